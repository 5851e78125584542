// The push-message poller's cadence against the sandbox over loopback HTTP:
// the interval from the moment an answer reaches the poller to the moment its
// next request is sent, over 25 polls, with the application's main loop
// driving the main queue. The poller is to wait one second; the figures say
// how close the real interval comes (median, spread between the 10th and
// 90th percentiles, extremes), as a ratio to that second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <vector>

#include "sandbox/Sandbox.h"
#include "veltrane/foundation/Server.h"
#include "veltrane/messaging/PushMessage.h"
#include "veltrane/platform/Dispatch.h"
#include "veltrane/platform/HTTPTransport.h"
#include "veltrane/platform/UserDefaults.h"

namespace {

using namespace veltrane;

// Passes requests on to the HTTP transport, noting when each is sent and
// when each answer is handed to its completion.
class TimingTransport : public Transport {
public:
    explicit TimingTransport(std::shared_ptr<Transport> inner) : inner_(std::move(inner)) {}
    void send(HTTPMethod method, const std::string& api, Parameters params, GatewayCallback completion) override {
        {
            std::lock_guard lock(mutex_);
            sent.push_back(Clock::now());
        }
        inner_->send(method, api, std::move(params), [this, completion = std::move(completion)](bool ok, std::optional<std::string> m, std::optional<Value> d) {
            {
                std::lock_guard lock(mutex_);
                answered.push_back(Clock::now());
            }
            completion(ok, std::move(m), std::move(d));
        });
    }
    size_t requests() {
        std::lock_guard lock(mutex_);
        return sent.size();
    }
    std::vector<Clock::time_point> sent, answered;

private:
    std::shared_ptr<Transport> inner_;
    std::mutex mutex_;
};

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    return v[static_cast<size_t>(p * static_cast<double>(v.size() - 1) + 0.5)];
}

void PollerCadence(benchmark::State& state) {
    constexpr size_t kPolls = 25;
    sandbox::Sandbox server;
    server.start();
    auto timing = std::make_shared<TimingTransport>(std::make_shared<HTTPTransport>());
    Server::setTransport(timing);
    Server::setAddress(server.address());
    Account::signIn(User(7, 1, "bench"));
    std::vector<double> intervals;
    for (auto _ : state) {
        PushMessage::reset();
        PushMessage::start();
        while (timing->requests() < kPolls + 1) Dispatch::mainQueue().runFor(std::chrono::milliseconds(5));
        PushMessage::stop();
        for (size_t i = 0; i + 1 < timing->sent.size() && i < timing->answered.size(); ++i)
            intervals.push_back(std::chrono::duration<double, std::milli>(timing->sent[i + 1] - timing->answered[i]).count());
    }
    Server::setTransport(nullptr);
    state.counters["polls"] = static_cast<double>(intervals.size());
    state.counters["median_ms"] = percentile(intervals, 0.5);
    state.counters["p10_ms"] = percentile(intervals, 0.1);
    state.counters["p90_ms"] = percentile(intervals, 0.9);
    state.counters["spread_ms"] = percentile(intervals, 0.9) - percentile(intervals, 0.1);
    state.counters["min_ms"] = *std::min_element(intervals.begin(), intervals.end());
    state.counters["max_ms"] = *std::max_element(intervals.begin(), intervals.end());
    state.counters["median/1s"] = percentile(intervals, 0.5) / 1000.0;
}

BENCHMARK(PollerCadence)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    std::filesystem::path folder = std::filesystem::temp_directory_path() / "veltrane-bench-poller";
    UserDefaults::setStandardPath(folder / "UserDefaults.sqlite");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(folder);
}
