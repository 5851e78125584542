// A console reporter that, after the usual table, prints how each benchmark
// compares with a peer measured in the same run, as a ratio of one counter.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace veltrane::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    // Each pair is (subject, peer); counter names the figure compared
    // ("bytes_per_second", "items_per_second"); a benchmark with arguments is
    // named with them ("Values/2"). The difference in real time per iteration
    // is printed beside each ratio.
    RatioReporter(std::vector<std::pair<std::string, std::string>> pairs, std::string counter)
        : pairs_(std::move(pairs)), counter_(std::move(counter)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
            if (!run.counters.count(counter_)) continue;
            std::string name = run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args);
            figures_[name] = double(run.counters.at(counter_));
            // Real time of one iteration, in microseconds.
            times_[name] = run.GetAdjustedRealTime() * 1e6 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nRatios (%s, same run):\n", counter_.c_str());
        for (const auto& [subject, peer] : pairs_) {
            if (!figures_.count(subject) || !figures_.count(peer) || figures_[peer] == 0) continue;
            std::printf("  %-28s / %-28s = %.3f   (time per iteration %+.1f us)\n", subject.c_str(), peer.c_str(),
                        figures_[subject] / figures_[peer], times_[subject] - times_[peer]);
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> pairs_;
    std::string counter_;
    std::map<std::string, double> figures_;
    std::map<std::string, double> times_;
};

} // namespace veltrane::bench
