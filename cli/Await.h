// Waiting for a completion from the command line's main thread.
#pragma once

#include <chrono>
#include <future>
#include <optional>
#include <string>

#include "foundation/Callbacks.h"

namespace veltrane::cli {

template <class T>
struct Outcome {
    bool success = false;
    std::optional<std::string> message;
    std::optional<T> result;
};

// Calls start with a completion and waits for it (at most `limit`); a
// completion that never comes gives (false, "no answer within ...").
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

// The same for a FlagCallback.
template <class Start>
Outcome<bool> awaitFlag(Start start) {
    return await<bool>([&](ResultCallback<bool> done) {
        start([done](bool success, std::optional<std::string> message, bool flag) { done(success, std::move(message), flag); });
    });
}

} // namespace veltrane::cli
