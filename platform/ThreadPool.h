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

/// A pool of threads that grows while its threads are busy (see the top of
/// this file).
class ThreadPool {
public:
    /// Work for the pool.
    using Task = std::function<void()>;

    /// name labels the log line of a task that throws ("<name>: task raised: ...").
    /// minThreads start at once and stay; up to maxThreads in all while
    /// tasks keep every thread busy; a thread beyond the minimum ends after
    /// idleTimeout without work.
    ThreadPool(std::string name, size_t minThreads, size_t maxThreads, std::chrono::milliseconds idleTimeout);
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    /// Runs task on a pool thread (a new one when every thread is busy and
    /// the cap allows), or after shutdown() on the calling thread.
    void submit(Task task);
    /// Runs the queued tasks, then joins every thread.
    void shutdown();

    /// What the pool holds now.
    struct Load {
        size_t threads = 0;  ///< alive
        size_t idle = 0;     ///< waiting for a task
        size_t queued = 0;   ///< tasks not started
    };
    /// The pool's load now (for tests and diagnostics).
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
