// The interruption flag and the waiting loops that look at it.
#include "cli/Interrupt.h"

#include <atomic>
#include <csignal>
#include <thread>

#include "veltrane/platform/Dispatch.h"

namespace veltrane::cli {

namespace {
std::atomic<bool> raised{false};
extern "C" void onInterrupt(int) { raised = true; }

bool waitWith(const std::function<void(std::chrono::milliseconds)>& step, const std::function<bool()>& answered, const CallGroup& group,
              std::chrono::nanoseconds limit) {
    auto end = std::chrono::steady_clock::now() + limit;
    while (!answered() && std::chrono::steady_clock::now() < end) {
        step(std::chrono::milliseconds(100));
        if (interrupted() && !group.isCancelled()) group.cancel();
    }
    return answered();
}
} // namespace

void catchInterrupts() {
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
}

bool interrupted() { return raised.load(); }

bool driveMainQueue(const std::function<bool()>& answered, const CallGroup& group, std::chrono::nanoseconds limit) {
    return waitWith([&](std::chrono::milliseconds slice) { Dispatch::mainQueue().runFor(slice, answered); }, answered, group, limit);
}

bool waitForAnswer(const std::function<bool()>& answered, const CallGroup& group, std::chrono::nanoseconds limit) {
    return waitWith([&](std::chrono::milliseconds slice) {
        for (auto end = std::chrono::steady_clock::now() + slice; !answered() && std::chrono::steady_clock::now() < end;)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }, answered, group, limit);
}

} // namespace veltrane::cli
