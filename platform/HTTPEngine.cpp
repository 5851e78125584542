// The HTTP engine's loop: admissions, cancellations and timers, then libcurl.
#include "veltrane/platform/HTTPEngine.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <strings.h>
#include <unordered_map>

#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Curl.h"
#include "veltrane/platform/ThreadPool.h"

namespace veltrane::http {

namespace {

// "scheme://host[:port]" of a URL: the key of the per-host limit.
std::string hostOf(const std::string& url) {
    size_t scheme = url.find("://");
    size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    return url.substr(0, url.find_first_of("/?#", start));
}

struct Transfer {
    uint64_t id = 0;
    std::shared_ptr<Call> call;
    Exchange exchange;
    Engine::Done done;
    std::string host;
    Clock::time_point notBefore, queuedAt, startedAt;
    enum class State { delayed, waiting, active } state = State::waiting;
    curl::Slist headers;
    curl::Mime mime;
    curl::Easy easy;  // last, so that it goes first: it points to the headers and the body
    std::unique_ptr<char[]> errorBuffer;
    Result result;
    std::optional<std::multimap<Clock::time_point, uint64_t>::iterator> startTimer, deadlineTimer;
};

size_t collect(char* data, size_t size, size_t count, void* target) {
    auto* t = static_cast<Transfer*>(target);
    size_t n = size * count;
    t->result.replyStarted = true;
    if (t->result.body.size() + n > t->exchange.limits.maxReplyBytes) {
        t->result.tooLarge = true;
        return 0;  // aborts the transfer
    }
    t->result.body.append(data, n);
    return n;
}

// Notes that the reply has begun, and its Retry-After.
size_t header(char* data, size_t size, size_t count, void* target) {
    auto* t = static_cast<Transfer*>(target);
    std::string_view line(data, size * count);
    t->result.replyStarted = true;
    if (line.rfind("HTTP/", 0) == 0) t->result.retryAfter.reset();  // a new response (after a 100 Continue)
    constexpr std::string_view kRetryAfter = "retry-after:";
    if (line.size() > kRetryAfter.size() && strncasecmp(line.data(), kRetryAfter.data(), kRetryAfter.size()) == 0) {
        std::string_view value = line.substr(kRetryAfter.size());
        while (!value.empty() && (value.front() == ' ' || value.front() == '\t')) value.remove_prefix(1);
        while (!value.empty() && (value.back() == '\r' || value.back() == '\n' || value.back() == ' ')) value.remove_suffix(1);
        t->result.retryAfter = std::string(value);
    }
    return size * count;
}

int reportProgress(void* target, curl_off_t, curl_off_t, curl_off_t total, curl_off_t sent) {
    auto* t = static_cast<Transfer*>(target);
    if (total > 0) t->exchange.progress(static_cast<uint64_t>(sent), static_cast<uint64_t>(total));
    return 0;
}

std::chrono::microseconds microseconds(CURL* h, CURLINFO info) {
    curl_off_t value = 0;
    curl_easy_getinfo(h, info, &value);
    return std::chrono::microseconds(value);
}

std::string versionName(long version) {
    switch (version) {
    case CURL_HTTP_VERSION_1_0: return "1.0";
    case CURL_HTTP_VERSION_1_1: return "1.1";
    case CURL_HTTP_VERSION_2_0: return "2";
    case CURL_HTTP_VERSION_3: return "3";
    default: return "";
    }
}

} // namespace

RequestEvent eventOf(const std::string& name, const std::string& method, int attempt, const Result& r, const std::optional<std::string>& error) {
    RequestEvent e;
    e.name = name;
    e.method = method;
    e.attempt = attempt;
    e.status = r.ending == Ending::answered ? r.status : 0;
    e.bytesSent = r.bytesSent;
    e.bytesReceived = r.bytesReceived;
    e.nameLookup = r.timings.nameLookup;
    e.connect = r.timings.connect;
    e.tlsHandshake = r.timings.tlsHandshake;
    e.firstByte = r.timings.firstByte;
    e.total = r.timings.total;
    e.connectionReused = r.connectionReused;
    e.httpVersion = r.ending == Ending::answered ? r.httpVersion : "";
    e.error = error;
    return e;
}

struct Engine::Loop {
    explicit Loop(Options o) : options(o), multi(curl_multi_init()) {
        if (!multi) throw std::runtime_error("libcurl could not create a multi handle");
        curl_multi_setopt(multi.get(), CURLMOPT_PIPELINING, CURLPIPE_MULTIPLEX);
        curl_multi_setopt(multi.get(), CURLMOPT_MAX_HOST_CONNECTIONS, options.maxConnectionsPerHost);
        curl_multi_setopt(multi.get(), CURLMOPT_MAX_CONCURRENT_STREAMS, options.maxStreamsPerConnection);
    }

    const Options options;
    curl::Multi multi;
    std::atomic<std::thread::id> thread;

    // Shared with other threads, under the mutex.
    mutable std::mutex mutex;
    std::condition_variable cancelled;  // a batch of cancellations has been carried out
    std::deque<std::unique_ptr<Transfer>> incoming;
    std::vector<std::shared_ptr<Call>> cancels;
    std::deque<std::function<void()>> tasks;
    uint64_t cancelsAsked = 0, cancelsDone = 0;
    bool stopping = false;

    // The engine thread's own.
    uint64_t nextId = 1;
    std::unordered_map<uint64_t, std::unique_ptr<Transfer>> transfers;
    std::unordered_multimap<const Call*, uint64_t> byCall;
    std::unordered_map<CURL*, uint64_t> byHandle;
    struct Host {
        size_t active = 0;
        bool multiplexed = false;  // answered over HTTP/2: its exchanges share connections
        std::deque<uint64_t> waiting;
    };
    std::unordered_map<std::string, Host> hosts;
    std::multimap<Clock::time_point, uint64_t> starts, deadlines;
    std::vector<curl::Easy> idle;

    std::atomic<size_t> waitingCount{0}, activeCount{0}, idleCount{0};

    // Without an exchange here the loop sleeps on this instead of in libcurl:
    // waking it is then cheaper than through libcurl's wakeup socket.
    std::condition_variable work;
    bool sleeping = false;

    // Wakes the loop for new work; called with the mutex held.
    void wake() {
        if (sleeping) work.notify_one();
        else curl_multi_wakeup(multi.get());
    }

    // Sleeps until work arrives or 10 s pass, when nothing is under way.
    void sleepUntilWork() {
        std::unique_lock lock(mutex);
        auto arrived = [&] { return !incoming.empty() || !cancels.empty() || !tasks.empty() || stopping; };
        if (arrived()) return;
        sleeping = true;
        work.wait_for(lock, std::chrono::seconds(10), arrived);
        sleeping = false;
    }

    // Hands t to the loop; after shutdown it ends at once, on this thread.
    void enqueue(std::unique_ptr<Transfer> t) {
        {
            std::lock_guard lock(mutex);
            if (!stopping) {
                incoming.push_back(std::move(t));
                wake();
                return;
            }
        }
        deliver(*t, Ending::shutDown);
    }

    void post(std::function<void()> task) {
        std::lock_guard lock(mutex);
        if (stopping) return;
        tasks.push_back(std::move(task));
        wake();
    }

    // Asks the loop to end the call's exchange; returns the ticket to wait for.
    uint64_t askCancel(std::shared_ptr<Call> call) {
        std::lock_guard lock(mutex);
        if (stopping) return 0;
        cancels.push_back(std::move(call));
        wake();
        return ++cancelsAsked;
    }

    // Waits until the loop has carried out the cancellation of ticket; on
    // the loop's own thread it is carried out before anything is sent.
    void awaitCancel(uint64_t ticket) {
        if (std::this_thread::get_id() == thread.load()) return;
        std::unique_lock lock(mutex);
        cancelled.wait(lock, [&] { return cancelsDone >= ticket || stopping; });
    }

    void stop() {
        std::lock_guard lock(mutex);
        stopping = true;
        cancelled.notify_all();
        wake();
    }

    void run() {
        thread = std::this_thread::get_id();
        for (;;) {
            std::deque<std::unique_ptr<Transfer>> admitted;
            std::vector<std::shared_ptr<Call>> cancelling;
            std::deque<std::function<void()>> posted;
            uint64_t asked;
            bool stop;
            {
                std::lock_guard lock(mutex);
                admitted.swap(incoming);
                cancelling.swap(cancels);
                posted.swap(tasks);
                asked = cancelsAsked;
                stop = stopping;
            }
            for (auto& t : admitted) admit(std::move(t));
            for (const auto& call : cancelling) endCall(*call, Ending::cancelled);
            if (!cancelling.empty()) {
                std::lock_guard lock(mutex);
                cancelsDone = asked;
                cancelled.notify_all();
            }
            for (auto& task : posted) runGuarded(task, "HTTP engine");
            if (stop) break;
            fireTimers(Clock::now());
            int running = 0;
            curl_multi_perform(multi.get(), &running);
            int left = 0;
            while (CURLMsg* msg = curl_multi_info_read(multi.get(), &left))
                if (msg->msg == CURLMSG_DONE) complete(msg->easy_handle, msg->data.result);
            if (transfers.empty()) sleepUntilWork();
            else curl_multi_poll(multi.get(), nullptr, 0, pollTimeout(), nullptr);
        }
        // Shutting down: every exchange still here ends, once.
        std::vector<uint64_t> ids;
        for (const auto& [id, t] : transfers) ids.push_back(id);
        for (uint64_t id : ids) end(*transfers.at(id), Ending::shutDown);
        std::deque<std::unique_ptr<Transfer>> late;
        {
            std::lock_guard lock(mutex);
            late.swap(incoming);
        }
        for (auto& t : late) deliver(*t, Ending::shutDown);
    }

    static void deliver(Transfer& t, Ending ending) {
        t.result.ending = ending;
        runGuarded([&] { t.done(std::move(t.result)); }, "HTTP engine");
    }

    // Until the next timer, at most 10 s: work that arrives wakes the loop.
    int pollTimeout() const {
        Clock::time_point next = Clock::now() + std::chrono::seconds(10);
        if (!starts.empty()) next = std::min(next, starts.begin()->first);
        if (!deadlines.empty()) next = std::min(next, deadlines.begin()->first);
        auto ms = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
        return static_cast<int>(std::clamp<long long>(ms, 0, 10'000));
    }

    void admit(std::unique_ptr<Transfer> owned) {
        Transfer& t = *owned;
        t.id = nextId++;
        transfers.emplace(t.id, std::move(owned));
        byCall.emplace(t.call.get(), t.id);
        Clock::time_point now = Clock::now();
        if (t.call->isCancelled()) return end(t, Ending::cancelled);
        if (std::optional<Clock::time_point> deadline = t.call->deadline()) {
            if (*deadline <= now) return end(t, Ending::expired);
            t.deadlineTimer = deadlines.emplace(*deadline, t.id);
        }
        if (t.notBefore > now) {
            t.state = Transfer::State::delayed;
            t.startTimer = starts.emplace(t.notBefore, t.id);
            ++waitingCount;
            return;
        }
        queue(t);
    }

    size_t limit(const Host& host) const {
        return static_cast<size_t>(host.multiplexed ? options.maxStreamsPerConnection : options.maxConnectionsPerHost);
    }

    void queue(Transfer& t) {
        t.state = Transfer::State::waiting;
        t.queuedAt = Clock::now();
        Host& host = hosts[t.host];
        if (host.active < limit(host)) return start(host, t);
        host.waiting.push_back(t.id);
        ++waitingCount;
    }

    curl::Easy takeHandle() {
        if (idle.empty()) return curl::Easy(curl_easy_init());
        curl::Easy easy = std::move(idle.back());
        idle.pop_back();
        --idleCount;
        return easy;
    }

    void start(Host& host, Transfer& t) {
        t.easy = takeHandle();
        if (!t.easy) {
            t.result.error = "libcurl could not create a transfer";
            return end(t, Ending::failed);
        }
        CURL* h = t.easy.get();
        const Exchange& x = t.exchange;
        const Limits& limits = x.limits;
        t.startedAt = Clock::now();
        t.result.waited = t.startedAt - t.queuedAt;
        t.errorBuffer = std::make_unique<char[]>(CURL_ERROR_SIZE);
        t.errorBuffer[0] = '\0';
        curl_easy_setopt(h, CURLOPT_URL, x.url.c_str());
        curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(h, CURLOPT_PRIVATE, &t);
        curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
        curl_easy_setopt(h, CURLOPT_WRITEDATA, &t);
        curl_easy_setopt(h, CURLOPT_HEADERFUNCTION, header);
        curl_easy_setopt(h, CURLOPT_HEADERDATA, &t);
        curl_easy_setopt(h, CURLOPT_ERRORBUFFER, t.errorBuffer.get());
        curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits.connectTimeout.count()));
        curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, static_cast<long>(limits.timeout.count()));
        curl_easy_setopt(h, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limits.maxReplyBytes));
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, limits.verifyTLS ? 1L : 0L);
        curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, limits.verifyTLS ? 2L : 0L);
        if (!limits.pinnedPublicKeys.empty()) {
            std::string pins;
            for (const std::string& pin : limits.pinnedPublicKeys) pins += (pins.empty() ? "" : ";") + pin;
            curl_easy_setopt(h, CURLOPT_PINNEDPUBLICKEY, pins.c_str());  // copied by libcurl
        }
        if (!limits.caCertificates.empty()) curl_easy_setopt(h, CURLOPT_CAINFO, limits.caCertificates.c_str());
        curl_easy_setopt(h, CURLOPT_HTTP_VERSION, limits.http2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
        // A host known to speak HTTP/2 takes the exchange on its connection.
        // Waiting to know that of a host not heard from would hold every
        // exchange behind its first one, which may never be answered.
        if (host.multiplexed) curl_easy_setopt(h, CURLOPT_PIPEWAIT, 1L);
        if (!limits.userAgent.empty()) curl_easy_setopt(h, CURLOPT_USERAGENT, limits.userAgent.c_str());
        if (!limits.acceptEncoding.empty()) curl_easy_setopt(h, CURLOPT_ACCEPT_ENCODING, limits.acceptEncoding.c_str());
        curl_easy_setopt(h, CURLOPT_TCP_KEEPALIVE, 1L);
        if (!limits.keepAlive) curl_easy_setopt(h, CURLOPT_FORBID_REUSE, 1L);
        if (limits.freshConnection) curl_easy_setopt(h, CURLOPT_FRESH_CONNECT, 1L);
        for (const std::string& line : x.headers) curl::appendHeader(t.headers, line);
        curl::appendHeader(t.headers, "Expect:");
        curl_easy_setopt(h, CURLOPT_HTTPHEADER, t.headers.get());
        if (x.progress) {
            curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, reportProgress);
            curl_easy_setopt(h, CURLOPT_XFERINFODATA, &t);
            curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
        }
        if (x.method != "GET" && !x.parts.empty()) {
            t.mime.reset(curl_mime_init(h));
            for (const MultipartPart& part : x.parts) {
                curl_mimepart* p = curl_mime_addpart(t.mime.get());
                curl_mime_name(p, part.name.c_str());
                curl_mime_data(p, part.content.data(), part.content.size());
                if (part.fileName) curl_mime_filename(p, part.fileName->c_str());
                if (!part.contentType.empty()) curl_mime_type(p, part.contentType.c_str());
            }
            curl_easy_setopt(h, CURLOPT_MIMEPOST, t.mime.get());
        } else if (x.method != "GET") {
            curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(x.body.size()));
            curl_easy_setopt(h, CURLOPT_POSTFIELDS, x.body.c_str());
        }
        if (x.method != "GET" && x.method != "POST") curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, x.method.c_str());
        if (CURLMcode rc = curl_multi_add_handle(multi.get(), h); rc != CURLM_OK) {
            t.result.error = std::string("libcurl: ") + curl_multi_strerror(rc);
            t.easy.reset();
            return end(t, Ending::failed);
        }
        t.state = Transfer::State::active;
        byHandle.emplace(h, t.id);
        ++host.active;
        ++activeCount;
    }

    // A transfer libcurl has finished: answered, or failed with code.
    void complete(CURL* handle, CURLcode code) {
        auto found = byHandle.find(handle);
        if (found == byHandle.end()) return;
        Transfer& t = *transfers.at(found->second);
        Result& r = t.result;
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &r.status);
        if (const char* target = nullptr; curl_easy_getinfo(handle, CURLINFO_REDIRECT_URL, &target) == CURLE_OK && target) r.location = target;
        curl_off_t up = 0, down = 0;
        curl_easy_getinfo(handle, CURLINFO_SIZE_UPLOAD_T, &up);
        curl_easy_getinfo(handle, CURLINFO_SIZE_DOWNLOAD_T, &down);
        long requestHead = 0, replyHead = 0, connects = 0, version = 0;
        curl_easy_getinfo(handle, CURLINFO_REQUEST_SIZE, &requestHead);
        curl_easy_getinfo(handle, CURLINFO_HEADER_SIZE, &replyHead);
        curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &connects);
        curl_easy_getinfo(handle, CURLINFO_HTTP_VERSION, &version);
        r.bytesSent = static_cast<uint64_t>(up + requestHead);
        r.bytesReceived = static_cast<uint64_t>(down + replyHead);
        r.connectionReused = connects == 0 && code == CURLE_OK;
        r.httpVersion = versionName(version);
        r.timings = {microseconds(handle, CURLINFO_NAMELOOKUP_TIME_T), microseconds(handle, CURLINFO_CONNECT_TIME_T),
                     microseconds(handle, CURLINFO_APPCONNECT_TIME_T), microseconds(handle, CURLINFO_STARTTRANSFER_TIME_T),
                     microseconds(handle, CURLINFO_TOTAL_TIME_T)};
        if (version == CURL_HTTP_VERSION_2_0 || version == CURL_HTTP_VERSION_3) hosts[t.host].multiplexed = true;
        if (code == CURLE_FILESIZE_EXCEEDED) r.tooLarge = true;  // told by its Content-Length
        if (code != CURLE_OK || r.tooLarge) {
            r.code = code == CURLE_OK ? CURLE_FILESIZE_EXCEEDED : code;
            r.error = curl::describe(code, t.errorBuffer.get());
            if (code == CURLE_SSL_PINNEDPUBKEYNOTMATCH) r.error = "the server's public key is not pinned (" + r.error + ")";
        }
        end(t, code == CURLE_OK && !r.tooLarge ? Ending::answered : Ending::failed, true);
    }

    void fireTimers(Clock::time_point now) {
        while (!starts.empty() && starts.begin()->first <= now) {
            Transfer& t = *transfers.at(starts.begin()->second);
            starts.erase(starts.begin());
            t.startTimer.reset();
            --waitingCount;
            queue(t);
        }
        while (!deadlines.empty() && deadlines.begin()->first <= now) {
            Transfer& t = *transfers.at(deadlines.begin()->second);
            deadlines.erase(deadlines.begin());
            t.deadlineTimer.reset();
            end(t, Ending::expired);
        }
    }

    // Ends whichever exchange the call has here.
    void endCall(const Call& call, Ending ending) {
        std::vector<uint64_t> ids;
        auto [from, to] = byCall.equal_range(&call);
        for (auto it = from; it != to; ++it) ids.push_back(it->second);
        for (uint64_t id : ids)
            if (auto t = transfers.find(id); t != transfers.end()) end(*t->second, ending);
    }

    // Takes t out of every place it stands, frees or keeps its handle, lets
    // the next exchange of its host start, and delivers how it ended.
    // reusable: libcurl finished the handle's transfer itself, so the handle
    // has no pending message and may serve again.
    void end(Transfer& t, Ending ending, bool reusable = false) {
        if (t.startTimer) starts.erase(*t.startTimer);
        if (t.deadlineTimer) deadlines.erase(*t.deadlineTimer);
        auto [from, to] = byCall.equal_range(t.call.get());
        for (auto it = from; it != to; ++it)
            if (it->second == t.id) {
                byCall.erase(it);
                break;
            }
        std::string hostName = t.host;
        bool freed = false;
        switch (t.state) {
        case Transfer::State::active: {
            CURL* h = t.easy.get();
            curl_multi_remove_handle(multi.get(), h);
            byHandle.erase(h);
            curl_easy_reset(h);  // before the headers and body it points to go
            if (reusable && idle.size() < options.maxIdleHandles) {
                idle.push_back(std::move(t.easy));
                ++idleCount;
            }
            t.easy.reset();
            --hosts[hostName].active;
            --activeCount;
            freed = true;
            break;
        }
        case Transfer::State::waiting:
            if (auto host = hosts.find(hostName); host != hosts.end()) {
                auto& queue = host->second.waiting;
                if (auto at = std::find(queue.begin(), queue.end(), t.id); at != queue.end()) {
                    queue.erase(at);
                    --waitingCount;
                }
            }
            break;
        case Transfer::State::delayed:
            if (t.startTimer) --waitingCount;
            break;
        }
        std::unique_ptr<Transfer> owned = std::move(transfers.at(t.id));
        transfers.erase(t.id);
        if (freed) startWaiting(hostName);
        deliver(*owned, ending);
    }

    // Gives freed places of host to its waiting exchanges.
    void startWaiting(const std::string& name) {
        auto it = hosts.find(name);
        if (it == hosts.end()) return;
        Host& host = it->second;
        while (!host.waiting.empty() && host.active < limit(host)) {
            Transfer& next = *transfers.at(host.waiting.front());
            host.waiting.pop_front();
            --waitingCount;
            start(host, next);
        }
        if (host.active == 0 && host.waiting.empty() && !host.multiplexed) hosts.erase(it);
    }
};

Engine::Engine(Options options) {
    curl::ensureGlobalInit();
    loop_ = std::make_shared<Loop>(options);
    thread_ = std::thread([loop = loop_] { loop->run(); });
}

Engine::~Engine() {
    loop_->stop();
    // The last owner may let go from a done, on the engine's thread; the
    // thread then finishes on its own hold of the loop.
    if (thread_.get_id() == std::this_thread::get_id()) thread_.detach();
    else thread_.join();
}

void Engine::send(std::shared_ptr<Call> call, Exchange exchange, Done done, Clock::time_point notBefore) {
    auto t = std::make_unique<Transfer>();
    t->call = call;
    t->host = hostOf(exchange.url);
    t->exchange = std::move(exchange);
    t->done = std::move(done);
    t->notBefore = notBefore;
    loop_->enqueue(std::move(t));
    // Cancelling the call ends its exchange here, whichever it is then.
    auto ticket = std::make_shared<uint64_t>(0);
    call->onCancel(
        [loop = std::weak_ptr<Loop>(loop_), weak = std::weak_ptr<Call>(call), ticket] {
            std::shared_ptr<Loop> l = loop.lock();
            std::shared_ptr<Call> c = weak.lock();
            if (l && c) *ticket = l->askCancel(std::move(c));
        },
        [loop = std::weak_ptr<Loop>(loop_), ticket] {
            if (std::shared_ptr<Loop> l = loop.lock(); l && *ticket) l->awaitCancel(*ticket);
        },
        loop_.get());
}

void Engine::post(std::function<void()> task) { loop_->post(std::move(task)); }

Engine::Load Engine::load() const { return {loop_->waitingCount.load(), loop_->activeCount.load(), loop_->idleCount.load()}; }

bool Engine::onEngineThread() const noexcept { return std::this_thread::get_id() == loop_->thread.load(); }

} // namespace veltrane::http
