/// @file
/// Waiting on the calling thread for a completion that arrives on another,
/// for command-line tools and tests. Never call it on the thread that delivers
/// the completion (or on the main queue's thread when the operation delivers
/// there): it would wait for itself.
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "veltrane/foundation/Callbacks.h"

namespace veltrane {

/// What a ResultCallback was called with.
template <class T>
struct Outcome {
    bool success = false;                ///< the first argument
    std::optional<std::string> message;  ///< the second
    std::optional<T> result;             ///< the third
};

/// What a FlagCallback was called with.
struct FlagOutcome {
    bool success = false;                ///< the first argument
    std::optional<std::string> message;  ///< the second
    bool flag = false;                   ///< the third
};

/// Calls start with a completion and waits for its first call, at most limit;
/// no call in time gives (false, "no answer within N s", nothing), N being limit. Later
/// calls of the completion are ignored.
template <class T, class Start>
Outcome<T> await(Start start, std::chrono::seconds limit = std::chrono::seconds(60)) {
    auto promise = std::make_shared<std::promise<Outcome<T>>>();
    auto future = promise->get_future();
    auto once = std::make_shared<std::once_flag>();
    start([promise, once](bool success, std::optional<std::string> message, std::optional<T> result) {
        std::call_once(*once, [&] { promise->set_value({success, std::move(message), std::move(result)}); });
    });
    if (future.wait_for(limit) != std::future_status::ready)
        return {false, "no answer within " + std::to_string(limit.count()) + " s", std::nullopt};
    return future.get();
}

/// The same for a FlagCallback.
template <class Start>
FlagOutcome awaitFlag(Start start, std::chrono::seconds limit = std::chrono::seconds(60)) {
    Outcome<bool> o = await<bool>(
        [&](ResultCallback<bool> done) {
            start([done](bool success, std::optional<std::string> message, bool flag) { done(success, std::move(message), flag); });
        },
        limit);
    return {o.success, std::move(o.message), o.result.value_or(false)};
}

} // namespace veltrane
