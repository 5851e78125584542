/// @file
/// Dispatch queues: the main queue, which the application drives from its own
/// main loop, and a small pool of high-priority background threads.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

namespace veltrane {

/// Work for a queue.
using Task = std::function<void()>;
/// The clock of the main queue's deadlines.
using Clock = std::chrono::steady_clock;

/// The main queue. Tasks are queued from any thread and run, in deadline order
/// (ties in order of submission), by whoever drives the queue: the
/// application's main loop calls runDue() or runFor(), or hands every task to
/// its own UI loop with setExecutor(). Tests drive it by hand, and can pass a
/// later time to runDue() to run delayed tasks without waiting.
/// An exception that leaves a task is logged; the queue goes on.
class MainQueue {
public:
    /// Runs task as soon as the queue is driven.
    void async(Task task);
    /// Runs task once delay has passed (nanosecond resolution, steady clock).
    void after(std::chrono::nanoseconds delay, Task task);

    /// Runs every task due at `now`, including tasks that those tasks queue
    /// for no later than `now`. Returns how many ran. Call from the main thread.
    size_t runDue(Clock::time_point now = Clock::now());
    /// Drives the queue for a while: runs tasks as they fall due, sleeping in
    /// between. Returns when the time is up or stop is true after a task.
    void runFor(std::chrono::nanoseconds duration, const std::function<bool()>& stop = {});
    /// How many tasks wait.
    size_t pending() const;
    /// Drops every waiting task unrun (for tests).
    void clear();

    /// Hands each task (with its deadline) to another executor instead of
    /// keeping it here; an empty executor restores the built-in queue.
    ///@{
    using Executor = std::function<void(Task task, Clock::time_point deadline)>;
    void setExecutor(Executor executor);
    ///@}

private:
    struct Entry {
        Clock::time_point deadline;
        uint64_t order;
        Task task;
    };
    void enqueue(Clock::time_point deadline, Task task);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Entry> entries_;
    uint64_t nextOrder_ = 0;
    Executor executor_;
};

/// How many threads the global queue may grow to.
inline constexpr size_t kGlobalQueueMaxThreads = 64;

/// The process's queues.
class Dispatch {
public:
    /// The main queue: completions meant for the UI thread run there.
    static MainQueue& mainQueue();
    /// Runs task on the pool of high-priority background threads (created on
    /// first use, alive for the whole process): 2 to 4 threads, one per core,
    /// and more when all of them are busy, up to kGlobalQueueMaxThreads, so that
    /// a task that blocks (a manifest read over a slow network) never holds up
    /// the others; threads beyond the first ones end after 10 s idle.
    /// Exceptions are logged.
    static void globalQueue(Task task);
};

} // namespace veltrane
