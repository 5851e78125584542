/// @file
/// The completion shapes of every server call.
///
/// Every completion runs exactly once. Unless an operation says otherwise, it
/// runs on the thread that delivers the reply: the HTTP transport's own thread
/// (return promptly, and hand UI work to Dispatch::mainQueue()), or, with a
/// MemoryTransport, the thread that answers. The signature upload and the
/// update check complete on the main queue. A failure is (false, a message):
/// the server's own message unchanged, or one that starts with the API name
/// ("getOrders: cancelled", "getPhonePages: data[3].Rank: null has no integer
/// value"). The few operations documented as "unguarded" let a reply's
/// reading error out to the transport that delivered the reply (which logs
/// it) instead.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// (success, message, result). An absent result (nullopt) is not JSON null: a
/// ResultCallback<Value> can receive either.
template <class T>
using ResultCallback = std::function<void(bool success, std::optional<std::string> message, std::optional<T> result)>;

/// (success, message, success again): the completion of commands whose reply
/// data is dropped (lock, unlock, print, submit...).
using FlagCallback = std::function<void(bool success, std::optional<std::string> message, bool flag)>;

/// What the gateway hands back: the reply's data part as it came.
using GatewayCallback = ResultCallback<Value>;

/// (success, message): the completion of the signature upload.
using UploadCompletion = std::function<void(bool success, std::optional<std::string> message)>;

/// (a newer version exists, message): the completion of the update check.
using UpdateCheckCompletion = std::function<void(bool newer, std::optional<std::string> message)>;

} // namespace veltrane
