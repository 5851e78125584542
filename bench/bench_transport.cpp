// Requests per second and added latency of the gateway's HTTP transport,
// against plain libcurl reusing one handle, both against the same loopback
// server in the same run.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <malloc.h>

#include <condition_variable>
#include <mutex>
#include <thread>

#include "RatioReporter.h"
#include "veltrane/platform/HTTPTransport.h"

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
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~Loopback() {
        server_.stop();
        thread_.join();
    }
    std::string address() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    httplib::Server server_;
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
    std::mutex mutex;
    std::condition_variable done;
    for (auto _ : state) {
        bool finished = false, ok = false;
        transport->send(HTTPMethod::GET, "getLabel", kParams, [&](bool success, std::optional<std::string>, std::optional<Value>) {
            std::lock_guard lock(mutex);
            finished = true;
            ok = success;
            done.notify_one();
        });
        std::unique_lock lock(mutex);
        done.wait(lock, [&] { return finished; });
        if (!ok) state.SkipWithError("request failed");
    }
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

// The floor: one reused easy handle, synchronous, the same URL, no parsing.
void PlainCurl(benchmark::State& state) {
    CURL* h = curl_easy_init();
    std::string url = loopback().address() + "/index.php/api/getLabel?type=1&companyid=12";
    std::string body;
    curl_easy_setopt(h, CURLOPT_URL, url.c_str());
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, +[](char* d, size_t s, size_t n, void* out) {
        static_cast<std::string*>(out)->append(d, s * n);
        return s * n;
    });
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &body);
    for (auto _ : state) {
        body.clear();
        if (curl_easy_perform(h) != CURLE_OK) state.SkipWithError("request failed");
    }
    curl_easy_cleanup(h);
    state.SetItemsProcessed(state.iterations());
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

BENCHMARK(Transport)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(TransportUncompressed)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(TransportConcurrent16)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(PlainCurl)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(Burst10000)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

} // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    benchmark::Initialize(&argc, argv);
    veltrane::bench::RatioReporter reporter({{"Transport", "PlainCurl"}, {"TransportUncompressed", "PlainCurl"}, {"TransportConcurrent16", "PlainCurl"}}, "items_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
