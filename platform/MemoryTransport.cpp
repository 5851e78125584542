// The scripted in-memory transport.
#include "veltrane/platform/MemoryTransport.h"

#include <algorithm>
#include <stdexcept>

namespace veltrane {

void MemoryTransport::script(const std::string& api, Reply reply) {
    std::lock_guard lock(mutex_);
    scripted_.emplace_back(api, std::move(reply));
}

void MemoryTransport::setHandler(std::function<Reply(const Request&)> handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

void MemoryTransport::setDeferred(bool deferred) {
    std::lock_guard lock(mutex_);
    deferred_ = deferred;
}

size_t MemoryTransport::deliver() {
    size_t count = 0;
    for (;;) {
        Answer next;
        {
            std::lock_guard lock(held_->mutex);
            if (held_->answers.empty()) return count;
            next = std::move(held_->answers.front());
            held_->answers.pop_front();
        }
        ++count;
        std::optional<Call::Clock::time_point> deadline = next.call->deadline();
        if (deadline && Call::Clock::now() >= *deadline) next.completion(false, next.call->expiredMessage(), std::nullopt);
        else next.completion(next.reply.success, next.reply.message, next.reply.data);
    }
}

size_t MemoryTransport::held() const {
    std::lock_guard lock(held_->mutex);
    return held_->answers.size();
}

std::vector<MemoryTransport::Request> MemoryTransport::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

MemoryTransport::Request MemoryTransport::lastRequest() const {
    std::lock_guard lock(mutex_);
    if (requests_.empty()) throw std::logic_error("no request has been sent");
    return requests_.back();
}

void MemoryTransport::clear() {
    std::lock_guard lock(mutex_);
    requests_.clear();
    scripted_.clear();
    std::lock_guard heldLock(held_->mutex);
    held_->answers.clear();
}

void MemoryTransport::send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) {
    sendCall(method, api, std::move(params), std::move(completion), Call::begin(api));
}

void MemoryTransport::sendCall(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion, std::shared_ptr<Call> call) {
    Request request{method, api, std::move(params)};
    std::optional<Reply> reply;
    std::function<Reply(const Request&)> handler;
    bool deferred;
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
        auto it = std::find_if(scripted_.begin(), scripted_.end(), [&](const auto& s) { return s.first == api; });
        if (it != scripted_.end()) {
            reply = std::move(it->second);
            scripted_.erase(it);
        }
        handler = handler_;
        deferred = deferred_;
    }
    if (!reply) reply = handler ? handler(request) : Reply{false, "no reply scripted for " + api, std::nullopt};
    if (!deferred) return completion(reply->success, reply->message, reply->data);
    {
        std::lock_guard lock(held_->mutex);
        held_->answers.push_back({call, std::move(completion), std::move(*reply)});
    }
    call->onCancel([held = std::weak_ptr<Held>(held_), weak = std::weak_ptr<Call>(call)] {
        std::shared_ptr<Held> h = held.lock();
        std::shared_ptr<Call> c = weak.lock();
        if (!h || !c) return;
        Answer cancelled;
        {
            std::lock_guard lock(h->mutex);
            auto it = std::find_if(h->answers.begin(), h->answers.end(), [&](const Answer& a) { return a.call == c; });
            if (it == h->answers.end()) return;  // delivered already
            cancelled = std::move(*it);
            h->answers.erase(it);
        }
        cancelled.completion(false, c->cancelledMessage(), std::nullopt);
    });
}

} // namespace veltrane
