// Every answer that reaches a completion, counted, from any thread: a test
// of "exactly once" waits for the first and then looks for a second.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace veltrane::test {

struct Answers {
    std::mutex mutex;
    std::vector<std::string> lines;  // "T|message" or "F|message"

    void add(bool ok, const std::optional<std::string>& message) {
        std::lock_guard lock(mutex);
        lines.push_back(std::string(ok ? "T|" : "F|") + message.value_or("-"));
    }
    size_t count() {
        std::lock_guard lock(mutex);
        return lines.size();
    }
    std::string all() {
        std::lock_guard lock(mutex);
        std::string out;
        for (const std::string& l : lines) out += (out.empty() ? "" : "; ") + l;
        return out;
    }
    bool waitFor(size_t n, std::chrono::milliseconds within = std::chrono::seconds(5)) {
        for (auto end = std::chrono::steady_clock::now() + within; count() < n && std::chrono::steady_clock::now() < end;)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return count() >= n;
    }
};

} // namespace veltrane::test
