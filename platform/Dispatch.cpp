// The main queue and the background pool.
#include "veltrane/platform/Dispatch.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <thread>

#include "veltrane/foundation/Log.h"
#include "veltrane/platform/ThreadPool.h"

namespace veltrane {

void MainQueue::async(Task task) { enqueue(Clock::now(), std::move(task)); }

void MainQueue::after(std::chrono::nanoseconds delay, Task task) { enqueue(Clock::now() + delay, std::move(task)); }

void MainQueue::enqueue(Clock::time_point deadline, Task task) {
    Executor executor;
    {
        std::lock_guard lock(mutex_);
        if (!executor_) {
            entries_.push_back({deadline, nextOrder_++, std::move(task)});
            changed_.notify_all();
            return;
        }
        executor = executor_;
    }
    executor(std::move(task), deadline);
}

size_t MainQueue::runDue(Clock::time_point now) {
    size_t ran = 0;
    for (;;) {
        Task task;
        {
            std::lock_guard lock(mutex_);
            auto due = std::min_element(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
                return a.deadline != b.deadline ? a.deadline < b.deadline : a.order < b.order;
            });
            if (due == entries_.end() || due->deadline > now) return ran;
            task = std::move(due->task);
            entries_.erase(due);
        }
        runGuarded(task, "main queue");
        ++ran;
    }
}

void MainQueue::runFor(std::chrono::nanoseconds duration, const std::function<bool()>& stop) {
    const Clock::time_point end = Clock::now() + duration;
    while (Clock::now() < end) {
        if (runDue() && stop && stop()) return;
        std::unique_lock lock(mutex_);
        Clock::time_point wake = end;
        for (const Entry& e : entries_) wake = std::min(wake, e.deadline);
        changed_.wait_until(lock, wake);
    }
    runDue();
}

size_t MainQueue::pending() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

void MainQueue::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

void MainQueue::setExecutor(Executor executor) {
    std::lock_guard lock(mutex_);
    executor_ = std::move(executor);
}

MainQueue& Dispatch::mainQueue() {
    static MainQueue queue;
    return queue;
}

void Dispatch::globalQueue(Task task) {
    // Never destroyed: its threads may outlive static destruction at exit.
    static ThreadPool* pool = new ThreadPool("global queue", std::clamp(std::thread::hardware_concurrency(), 2u, 4u), kGlobalQueueMaxThreads,
                                             std::chrono::seconds(10));
    pool->submit(std::move(task));
}

} // namespace veltrane
