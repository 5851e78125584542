/// @file
/// The completion shapes of every server call.
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
