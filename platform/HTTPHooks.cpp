// The registered adapters and the observer, behind one lock each.
#include "veltrane/platform/HTTPHooks.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>

#include "veltrane/foundation/PersonalData.h"
#include "veltrane/platform/ThreadPool.h"

namespace veltrane {

namespace {

struct Adapters {
    std::mutex mutex;
    uint64_t next = 1;
    std::vector<std::pair<uint64_t, RequestAdapter>> list;
    std::atomic<bool> any{false};
};
Adapters& adapters() {
    static Adapters a;
    return a;
}

struct Observer {
    std::mutex mutex;
    std::shared_ptr<const RequestObserver> current;
    std::atomic<bool> any{false};
};
Observer& observer() {
    static Observer o;
    return o;
}

} // namespace

uint64_t addRequestAdapter(RequestAdapter adapter) {
    Adapters& a = adapters();
    std::lock_guard lock(a.mutex);
    a.list.emplace_back(a.next, std::move(adapter));
    a.any = true;
    return a.next++;
}

void removeRequestAdapter(uint64_t number) {
    Adapters& a = adapters();
    std::lock_guard lock(a.mutex);
    std::erase_if(a.list, [&](const auto& entry) { return entry.first == number; });
    a.any = !a.list.empty();
}

void removeAllRequestAdapters() {
    Adapters& a = adapters();
    std::lock_guard lock(a.mutex);
    a.list.clear();
    a.any = false;
}

bool hasRequestAdapters() noexcept { return adapters().any.load(); }

void adaptRequest(OutgoingRequest& request) {
    if (!hasRequestAdapters()) return;
    std::vector<RequestAdapter> run;
    {
        std::lock_guard lock(adapters().mutex);
        for (const auto& [number, adapter] : adapters().list) run.push_back(adapter);
    }
    size_t before = request.headers.size();
    for (const RequestAdapter& adapter : run) adapter(request);
    // What adapters add (tokens, mostly) never reaches the log in clear.
    for (size_t i = before; i < request.headers.size(); ++i) registerSecret(request.headers[i].second);
}

RequestObserver setRequestObserver(RequestObserver next) {
    Observer& o = observer();
    std::lock_guard lock(o.mutex);
    RequestObserver previous = o.current ? *o.current : RequestObserver();
    o.current = next ? std::make_shared<const RequestObserver>(std::move(next)) : nullptr;
    o.any = o.current != nullptr;
    return previous;
}

bool hasRequestObserver() noexcept { return observer().any.load(); }

void observeRequest(const RequestEvent& event) noexcept {
    if (!hasRequestObserver()) return;
    std::shared_ptr<const RequestObserver> current;
    {
        std::lock_guard lock(observer().mutex);
        current = observer().current;
    }
    if (current) runGuarded([&] { (*current)(event); }, "request observer");
}

} // namespace veltrane
