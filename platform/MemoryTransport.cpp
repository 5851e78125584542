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
        std::function<void()> next;
        {
            std::lock_guard lock(mutex_);
            if (held_.empty()) return count;
            next = std::move(held_.front());
            held_.pop_front();
        }
        ++count;
        next();
    }
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
    held_.clear();
}

void MemoryTransport::send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) {
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
    auto answer = [completion = std::move(completion), reply = std::move(*reply)]() {
        completion(reply.success, reply.message, reply.data);
    };
    if (!deferred) {
        answer();
        return;
    }
    std::lock_guard lock(mutex_);
    held_.emplace_back(std::move(answer));
}

} // namespace veltrane
