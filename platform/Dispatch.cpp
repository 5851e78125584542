// The main queue and the background pool.
#include "veltrane/platform/Dispatch.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <thread>

#include "veltrane/foundation/Log.h"

namespace veltrane {

namespace {
void runGuarded(const Task& task, const char* where) {
    try {
        task();
    } catch (const std::exception& e) {
        log(std::string(where) + ": task raised: " + e.what());
    } catch (...) {
        log(std::string(where) + ": task raised an unknown exception");
    }
}
} // namespace

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

namespace {
// Never destroyed: its threads may outlive static destruction at exit.
class Pool {
public:
    explicit Pool(unsigned threads) {
        for (unsigned i = 0; i < threads; ++i) std::thread([this] { work(); }).detach();
    }
    void submit(Task task) {
        {
            std::lock_guard lock(mutex_);
            tasks_.push_back(std::move(task));
        }
        ready_.notify_one();
    }

private:
    void work() {
        for (;;) {
            Task task;
            {
                std::unique_lock lock(mutex_);
                ready_.wait(lock, [&] { return !tasks_.empty(); });
                task = std::move(tasks_.front());
                tasks_.pop_front();
            }
            runGuarded(task, "global queue");
        }
    }
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Task> tasks_;
};
} // namespace

void Dispatch::globalQueue(Task task) {
    static Pool* pool = new Pool(std::clamp(std::thread::hardware_concurrency(), 2u, 4u));
    pool->submit(std::move(task));
}

} // namespace veltrane
