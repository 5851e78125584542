// The growing thread pool.
#include "veltrane/platform/ThreadPool.h"

#include <exception>

#include "veltrane/foundation/Log.h"

namespace veltrane {

void runGuarded(const std::function<void()>& task, std::string_view where) noexcept {
    try {
        try {
            task();
        } catch (const std::exception& e) {
            log(std::string(where) + ": task raised: " + e.what());
        } catch (...) {
            log(std::string(where) + ": task raised an unknown exception");
        }
    } catch (...) {  // the log line itself failed (out of memory)
    }
}

ThreadPool::ThreadPool(std::string name, size_t minThreads, size_t maxThreads, std::chrono::milliseconds idleTimeout)
    : name_(std::move(name)), minThreads_(minThreads), maxThreads_(std::max(maxThreads, size_t{1})), idleTimeout_(idleTimeout) {}

ThreadPool::~ThreadPool() { shutdown(); }

void ThreadPool::spawn() {
    std::thread t([this] { work(); });
    std::thread::id id = t.get_id();
    threads_.emplace(id, std::move(t));
}

void ThreadPool::joinRetired(std::unique_lock<std::mutex>& lock) {
    if (retired_.empty()) return;
    std::vector<std::thread> ended = std::move(retired_);
    retired_.clear();
    lock.unlock();
    for (std::thread& t : ended) t.join();
    lock.lock();
}

void ThreadPool::submit(Task task) {
    std::unique_lock lock(mutex_);
    if (stopping_) {
        lock.unlock();
        runGuarded(task, name_);
        return;
    }
    tasks_.push_back(std::move(task));
    // A thread for every task that no idle thread will take.
    if (tasks_.size() > idle_ && threads_.size() < maxThreads_) spawn();
    else ready_.notify_one();
    joinRetired(lock);
}

void ThreadPool::work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idle_;
        bool woken = ready_.wait_for(lock, idleTimeout_, [this] { return !tasks_.empty() || stopping_; });
        --idle_;
        if (tasks_.empty()) {
            if (stopping_ || (!woken && threads_.size() > minThreads_)) break;
            continue;
        }
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        runGuarded(task, name_);
        task = nullptr;  // what the task holds goes before the next wait
        lock.lock();
    }
    // Ends: hands its own thread to whoever joins next.
    if (auto self = threads_.find(std::this_thread::get_id()); self != threads_.end()) {
        retired_.push_back(std::move(self->second));
        threads_.erase(self);
    }
}

void ThreadPool::shutdown() {
    std::unique_lock lock(mutex_);
    stopping_ = true;
    ready_.notify_all();
    while (!threads_.empty() || !retired_.empty()) {
        std::vector<std::thread> all = std::move(retired_);
        retired_.clear();
        for (auto& [id, t] : threads_) all.push_back(std::move(t));
        threads_.clear();
        lock.unlock();
        for (std::thread& t : all) t.join();
        lock.lock();
    }
}

ThreadPool::Load ThreadPool::load() const {
    std::lock_guard lock(mutex_);
    return {threads_.size(), idle_, tasks_.size()};
}

} // namespace veltrane
