// Requests per second and added latency of the gateway's HTTP transport,
// against plain libcurl reusing one handle (on the calling thread, and handed
// to a thread of its own and back), all against the same loopback server in
// the same run; and a burst and a cancelled group, with the memory they
// leave behind.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>
#include <sys/socket.h>

#include <malloc.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

#include "RatioReporter.h"
#include "veltrane/foundation/Call.h"
#include "veltrane/platform/HTTPHooks.h"
#include "veltrane/platform/HTTPTransport.h"
#include "sandbox/Sandbox.h"
#include "support/Nginx.h"

namespace {

using namespace veltrane;

const char* kReply = R"({"status":1,"info":"ok","data":[{"ID":1,"Content":"退回修改","Title":"标签"}]})";

class Loopback {
public:
    Loopback() {
        server_.set_keep_alive_max_count(1000000);
        server_.set_tcp_nodelay(true);
        server_.Get("/index.php/api/getLabel", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(kReply, "application/json");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        server_.widenBacklog();
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~Loopback() {
        server_.stop();
        thread_.join();
    }
    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    // Debian's cpp-httplib listens with a backlog of 5: the sixth connection
    // opened at once would wait a second for its SYN to be sent again.
    struct Listener : httplib::Server {
        void widenBacklog() { ::listen(svr_sock_, SOMAXCONN); }
    };
    Listener server_;
    int port_ = 0;
    std::thread thread_;
};

Loopback& loopback() {
    static Loopback server;
    return server;
}

const Dictionary kParams{{"type", 1}, {"companyid", 12}};

// One request at a time through the transport, waiting for each completion.
void sequential(benchmark::State& state, HTTPTransportOptions options) {
    Server::setAddress(loopback().address());
    auto transport = std::make_shared<HTTPTransport>(std::move(options));
    // How many requests have been answered, and failed; the waiter sleeps on
    // the count itself (a futex), as a thread waiting for an answer would.
    std::atomic<int> answered{0}, failed{0};
    for (auto _ : state) {
        int before = answered.load();
        transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool success, std::optional<std::string>, std::optional<Value>) {
            if (!success) ++failed;
            ++answered;
            answered.notify_one();
        });
        answered.wait(before);
    }
    if (failed) state.SkipWithError("requests failed");
    state.SetItemsProcessed(state.iterations());
}

void Transport(benchmark::State& state) { sequential(state, {}); }

// Without compression, like the plain libcurl peer.
void TransportUncompressed(benchmark::State& state) {
    HTTPTransportOptions options;
    options.acceptEncoding.clear();
    sequential(state, options);
}

// The same requests, 16 at a time.
void TransportConcurrent16(benchmark::State& state) {
    Server::setAddress(loopback().address());
    auto transport = std::make_shared<HTTPTransport>();
    std::mutex mutex;
    std::condition_variable done;
    for (auto _ : state) {
        int left = 16;
        for (int i = 0; i < 16; ++i)
            transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool, std::optional<std::string>, std::optional<Value>) {
                std::lock_guard lock(mutex);
                if (--left == 0) done.notify_one();
            });
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return left == 0; });
    }
    state.SetItemsProcessed(state.iterations() * 16);
}

// One reused easy handle on the loopback server's getLabel, no parsing.
struct PlainRequest {
    CURL* h = curl_easy_init();
    std::string url = loopback().address() + "/index.php/api/getLabel?type=1&companyid=12";
    std::string body;
    PlainRequest() {
        curl_easy_setopt(h, CURLOPT_URL, url.c_str());
        curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, +[](char* d, size_t s, size_t n, void* out) {
            static_cast<std::string*>(out)->append(d, s * n);
            return s * n;
        });
        curl_easy_setopt(h, CURLOPT_WRITEDATA, &body);
    }
    ~PlainRequest() { curl_easy_cleanup(h); }
    bool perform() {
        body.clear();
        return curl_easy_perform(h) == CURLE_OK;
    }
};

// The floor: synchronous, on the calling thread.
void PlainCurl(benchmark::State& state) {
    PlainRequest request;
    for (auto _ : state)
        if (!request.perform()) state.SkipWithError("request failed");
    state.SetItemsProcessed(state.iterations());
}

// The floor of any design that keeps the network off the calling thread:
// the same plain request, handed to a thread of its own and its end handed
// back (two thread hops, nothing else).
void PlainCurlHandedOff(benchmark::State& state) {
    PlainRequest request;
    std::atomic<int> asked{0}, answered{0};
    std::atomic<bool> failed{false};
    std::thread worker([&] {
        for (int seen = 0;;) {
            asked.wait(seen);
            if ((seen = asked.load()) < 0) return;
            if (!request.perform()) failed = true;
            ++answered;
            answered.notify_one();
        }
    });
    for (auto _ : state) {
        int before = answered.load();
        ++asked;
        asked.notify_one();
        answered.wait(before);
    }
    asked = -1;
    asked.notify_one();
    worker.join();
    if (failed) state.SkipWithError("request failed");
    state.SetItemsProcessed(state.iterations());
}

// A group of 100 calls of which half are cancelled at once: every call
// answers, and the transport's load and the heap return to where they were.
void CancelHalfOf100(benchmark::State& state) {
    Server::setAddress(loopback().address());
    auto heapMiB = [] {
        malloc_trim(0);
        return static_cast<double>(mallinfo2().uordblks) / (1 << 20);
    };
    auto transport = std::make_shared<HTTPTransport>();
    double before = heapMiB(), after = 0;
    size_t left = 0;
    for (auto _ : state) {
        std::atomic<int> answered{0};
        CallGroup kept, cancelled;
        for (int i = 0; i < 100; ++i) {
            CallScope scope(i % 2 ? kept : cancelled);
            transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool, std::optional<std::string>, std::optional<Value>) {
                ++answered;
                answered.notify_one();
            });
        }
        cancelled.cancel();
        for (int seen = answered.load(); seen < 100; seen = answered.load()) answered.wait(seen);
    }
    HTTPTransport::Load load = transport->load();
    left = load.waiting + load.active;
    after = heapMiB();
    state.counters["retained_MiB"] = after - before;
    state.counters["left_under_way"] = static_cast<double>(left);
    state.counters["idle_handles"] = static_cast<double>(load.idleHandles);
    state.SetItemsProcessed(state.iterations() * 100);
}

// A burst of 10,000 requests sent at once, then the transport left idle: the
// heap in use (glibc's count) before, at the peak and after, in MiB. The
// transport keeps curl handles only for the requests that hold a connection,
// and a bounded pool of idle ones, so what stays after the burst is close to
// the idle level.
void Burst10000(benchmark::State& state) {
    Server::setAddress(loopback().address());
    auto heapMiB = [] {
        malloc_trim(0);
        return static_cast<double>(mallinfo2().uordblks) / (1 << 20);
    };
    double before = 0, peak = 0, after = 0;
    for (auto _ : state) {
        auto transport = std::make_shared<HTTPTransport>();
        before = heapMiB();
        std::mutex mutex;
        std::condition_variable done;
        int left = 10000;
        for (int i = 0; i < 10000; ++i)
            transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool, std::optional<std::string>, std::optional<Value>) {
                std::lock_guard lock(mutex);
                if (--left == 0) done.notify_one();
            });
        peak = heapMiB();
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return left == 0; });
        lock.unlock();
        after = heapMiB();
    }
    state.counters["heap_before_MiB"] = before;
    state.counters["heap_queued_MiB"] = peak;
    state.counters["heap_after_MiB"] = after;
    state.counters["retained_MiB"] = after - before;
    state.SetItemsProcessed(state.iterations() * 10000);
}

// Sixteen calls at once through nginx (TLS) in front of the sandbox: over
// HTTP/2, where they share one connection, and over HTTP/1.1, where they
// share the transport's 6 connections to the host.
struct ThroughNginx {
    sandbox::Sandbox sandbox;
    std::optional<test::Nginx> nginx;
    ThroughNginx() {
        sandbox.start();
        if (!test::Nginx::missing()) nginx.emplace("127.0.0.1:" + std::to_string(sandbox.port()));
    }
};

void concurrentThroughNginx(benchmark::State& state, bool http2) {
    static ThroughNginx* site = [] {
        static ThroughNginx running;  // stopped at exit
        return &running;
    }();
    if (!site->nginx) return state.SkipWithError("nginx is not installed (scripts/bootstrap installs it)");
    Server::setAddress(site->nginx->address(0));
    HTTPTransportOptions options;
    options.caCertificates = site->nginx->trustFile();
    options.http2 = http2;
    auto transport = std::make_shared<HTTPTransport>(options);
    std::atomic<int> answered{0}, failed{0};
    for (auto _ : state) {
        int target = answered.load() + 16;
        for (int i = 0; i < 16; ++i)
            transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool ok, std::optional<std::string>, std::optional<Value>) {
                if (!ok) ++failed;
                ++answered;
                answered.notify_one();
            });
        for (int seen = answered.load(); seen < target; seen = answered.load()) answered.wait(seen);
    }
    if (failed) state.SkipWithError("requests failed");
    state.SetItemsProcessed(state.iterations() * 16);
}

void Nginx16HTTP2(benchmark::State& state) { concurrentThroughNginx(state, true); }
void Nginx16HTTP11(benchmark::State& state) { concurrentThroughNginx(state, false); }

// The observer's cost: the same sequential requests, each told to an observer.
void TransportObserved(benchmark::State& state) {
    std::atomic<size_t> heard{0};
    RequestObserver previous = setRequestObserver([&](const RequestEvent& e) { heard += e.bytesReceived > 0; });
    HTTPTransportOptions options;
    options.acceptEncoding.clear();
    sequential(state, options);
    setRequestObserver(previous);
    if (heard == 0) state.SkipWithError("the observer heard nothing");
}

BENCHMARK(Transport)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(TransportUncompressed)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(TransportConcurrent16)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(TransportObserved)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(PlainCurl)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(PlainCurlHandedOff)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(CancelHalfOf100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Nginx16HTTP2)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(Nginx16HTTP11)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(Burst10000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    benchmark::Initialize(&argc, argv);
    veltrane::bench::RatioReporter reporter({{"Transport", "PlainCurl"},
                                             {"TransportUncompressed", "PlainCurl"},
                                             {"TransportConcurrent16", "PlainCurl"},
                                             {"PlainCurlHandedOff", "PlainCurl"},
                                             {"TransportUncompressed", "PlainCurlHandedOff"},
                                             {"TransportObserved", "TransportUncompressed"},
                                             {"Nginx16HTTP2", "Nginx16HTTP11"}},
                                            "items_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
