/// @file
/// A pool of threads that grows on demand: a task handed in while every thread
/// is busy (running, or blocked inside a task) gets a thread of its own, up to
/// a cap, so that no task waits behind another that blocks; threads beyond the
/// minimum that stay idle for a while end. The global queue and the sandbox's
/// connections run on it.
///
/// Thread and lifetime rules: submit() may be called from any thread, also
/// from a task. Every task submitted runs exactly once: on a pool thread, or,
/// after shutdown() has begun, on the thread that submits it. shutdown() (and
/// the destructor) lets the queued tasks run, then joins every thread; it must
/// not be called from a task of the same pool.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace veltrane {

/// Runs task; an exception that leaves it is logged as "<where>: task raised:
/// <what>" and goes no further.
void runGuarded(const std::function<void()>& task, std::string_view where) noexcept;

class ThreadPool {
public:
    using Task = std::function<void()>;

    /// name labels the log line of a task that throws ("<name>: task raised: ...").
    ThreadPool(std::string name, size_t minThreads, size_t maxThreads, std::chrono::milliseconds idleTimeout);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    void submit(Task task);
    void shutdown();

    struct Load {
        size_t threads = 0, idle = 0, queued = 0;
    };
    Load load() const;

private:
    void work();
    void spawn();  ///< under the lock
    void joinRetired(std::unique_lock<std::mutex>& lock);

    const std::string name_;
    const size_t minThreads_, maxThreads_;
    const std::chrono::milliseconds idleTimeout_;

    mutable std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
    std::map<std::thread::id, std::thread> threads_;
    std::vector<std::thread> retired_;  ///< ended threads, joined by the next submit or shutdown
    size_t idle_ = 0;
    bool stopping_ = false;
};

} // namespace veltrane
