// Call groups, scopes and calls.
#include "veltrane/foundation/Call.h"

#include <algorithm>
#include <utility>

namespace veltrane {

struct CallGroup::State {
    mutable std::mutex mutex;
    bool cancelled = false;
    std::optional<std::chrono::milliseconds> timeout;
    std::optional<Call::Clock::time_point> deadline;
    std::vector<std::weak_ptr<Call>> calls;  // under way

    void remove(const Call* call) {
        std::lock_guard lock(mutex);
        std::erase_if(calls, [&](const std::weak_ptr<Call>& c) {
            std::shared_ptr<Call> held = c.lock();
            return !held || held.get() == call;
        });
    }
};

namespace {
thread_local std::shared_ptr<CallGroup::State> currentScope;
} // namespace

CallGroup::CallGroup() : state_(std::make_shared<State>()) {}

void CallGroup::cancel() const {
    std::vector<std::shared_ptr<Call>> calls;
    {
        std::lock_guard lock(state_->mutex);
        state_->cancelled = true;
        for (const std::weak_ptr<Call>& c : state_->calls)
            if (std::shared_ptr<Call> held = c.lock()) calls.push_back(std::move(held));
    }
    std::vector<std::function<void()>> settles;
    for (const std::shared_ptr<Call>& call : calls)
        for (auto& settle : call->startCancel()) settles.push_back(std::move(settle));
    for (const auto& settle : settles) settle();
}

bool CallGroup::isCancelled() const {
    std::lock_guard lock(state_->mutex);
    return state_->cancelled;
}

void CallGroup::setTimeout(std::chrono::milliseconds timeout) const {
    std::lock_guard lock(state_->mutex);
    state_->timeout = timeout;
}

void CallGroup::setDeadline(std::chrono::steady_clock::time_point deadline) const {
    std::lock_guard lock(state_->mutex);
    state_->deadline = deadline;
}

size_t CallGroup::pending() const {
    std::lock_guard lock(state_->mutex);
    return static_cast<size_t>(std::count_if(state_->calls.begin(), state_->calls.end(), [](const auto& c) { return !c.expired(); }));
}

CallScope::CallScope(CallGroup group) : previous_(std::exchange(currentScope, group.state_)) {}

CallScope::~CallScope() { currentScope = std::move(previous_); }

std::optional<CallGroup> CallScope::current() {
    if (!currentScope) return std::nullopt;
    return CallGroup(currentScope);
}

Call::Call(std::string name, std::shared_ptr<CallGroup::State> group) : name_(std::move(name)), group_(std::move(group)) {
    if (!group_) return;
    std::lock_guard lock(group_->mutex);
    cancelled_ = group_->cancelled;
    deadline_ = group_->deadline;
    if (group_->timeout && (!deadline_ || startedAt_ + *group_->timeout < *deadline_)) deadline_ = startedAt_ + *group_->timeout;
}

std::shared_ptr<Call> Call::begin(std::string name) {
    auto call = std::make_shared<Call>(std::move(name), currentScope);
    if (call->group_ && !call->cancelled_) {
        std::lock_guard lock(call->group_->mutex);
        if (call->group_->cancelled) call->cancelled_ = true;  // cancelled in the meantime
        else call->group_->calls.push_back(call);
    }
    return call;
}

bool Call::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

std::string Call::cancelledMessage() const { return name_ + ": cancelled"; }

std::string Call::expiredMessage() const {
    auto given = deadline_ ? std::chrono::duration_cast<std::chrono::milliseconds>(*deadline_ - startedAt_).count() : 0;
    return name_ + ": no answer within " + std::to_string(std::max<long long>(given, 0)) + " ms";
}

void Call::onCancel(std::function<void()> canceller, const void* key) { onCancel(std::move(canceller), nullptr, key); }

void Call::onCancel(std::function<void()> start, std::function<void()> settle, const void* key) {
    {
        std::lock_guard lock(mutex_);
        if (finished_) return;
        if (!cancelled_) {
            bool known = key && std::any_of(cancellers_.begin(), cancellers_.end(), [&](const Canceller& c) { return c.key == key; });
            if (!known) cancellers_.push_back({key, std::move(start), std::move(settle)});
            return;
        }
    }
    start();
    if (settle) settle();
}

std::vector<std::function<void()>> Call::startCancel() {
    std::vector<Canceller> cancellers;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_ || finished_) return {};
        cancelled_ = true;
        cancellers = std::move(cancellers_);
        cancellers_.clear();
    }
    std::vector<std::function<void()>> settles;
    for (Canceller& c : cancellers) {
        c.start();
        if (c.settle) settles.push_back(std::move(c.settle));
    }
    return settles;
}

void Call::cancel() {
    for (const auto& settle : startCancel()) settle();
}

bool Call::finish() {
    {
        std::lock_guard lock(mutex_);
        if (finished_) return false;
        finished_ = true;
        cancellers_.clear();
    }
    if (group_) group_->remove(this);
    return true;
}

bool Call::isFinished() const {
    std::lock_guard lock(mutex_);
    return finished_;
}

} // namespace veltrane
