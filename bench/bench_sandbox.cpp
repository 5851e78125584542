// Requests per second that the sandbox serves to 6 and to 64 clients at once,
// each client on a connection of its own (kept alive, or a new one for every
// request), all in the same run: 64 clients should be served about as fast
// as 6.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <atomic>
#include <thread>
#include <vector>

#include "RatioReporter.h"
#include "sandbox/Sandbox.h"

namespace {

using namespace veltrane;

sandbox::Sandbox& server() {
    static sandbox::Sandbox* s = [] {
        auto* started = new sandbox::Sandbox();
        started->start();
        return started;
    }();
    return *s;
}

constexpr int kRequestsPerIteration = 3200;

// Every iteration: kRequestsPerIteration requests, spread over `clients`
// threads that each use one curl handle (reusing its connection or not).
void clients(benchmark::State& state, bool keepAlive) {
    const int count = static_cast<int>(state.range(0));
    std::string url = server().address() + "/index.php/api/getLabel?companyid=1&type=1";
    std::atomic<int> failures{0};
    for (auto _ : state) {
        std::vector<std::thread> threads;
        for (int c = 0; c < count; ++c)
            threads.emplace_back([&] {
                CURL* h = curl_easy_init();
                curl_easy_setopt(h, CURLOPT_URL, url.c_str());
                curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, +[](char*, size_t s, size_t n, void*) { return s * n; });
                curl_easy_setopt(h, CURLOPT_FORBID_REUSE, keepAlive ? 0L : 1L);
                curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
                for (int i = 0; i < kRequestsPerIteration / count; ++i)
                    if (curl_easy_perform(h) != CURLE_OK) ++failures;
                curl_easy_cleanup(h);
            });
        for (std::thread& t : threads) t.join();
    }
    if (failures) state.SkipWithError("requests failed");
    state.SetItemsProcessed(state.iterations() * (kRequestsPerIteration / count) * count);
}

void KeepAlive(benchmark::State& state) { clients(state, true); }
void NewConnections(benchmark::State& state) { clients(state, false); }

BENCHMARK(KeepAlive)->Arg(6)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(NewConnections)->Arg(6)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    benchmark::Initialize(&argc, argv);
    veltrane::bench::RatioReporter reporter({{"KeepAlive/64", "KeepAlive/6"}, {"NewConnections/64", "NewConnections/6"}}, "items_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
