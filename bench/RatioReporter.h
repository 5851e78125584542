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
    // ("bytes_per_second", "items_per_second", or "time" for real time).
    RatioReporter(std::vector<std::pair<std::string, std::string>> pairs, std::string counter)
        : pairs_(std::move(pairs)), counter_(std::move(counter)) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
            double figure = counter_ == "time" ? run.GetAdjustedRealTime() : double(run.counters.at(counter_));
            figures_[run.run_name.function_name] = figure;
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nRatios (%s, same run):\n", counter_.c_str());
        for (const auto& [subject, peer] : pairs_) {
            if (!figures_.count(subject) || !figures_.count(peer) || figures_[peer] == 0) continue;
            std::printf("  %-28s / %-28s = %.3f\n", subject.c_str(), peer.c_str(), figures_[subject] / figures_[peer]);
        }
    }

private:
    std::vector<std::pair<std::string, std::string>> pairs_;
    std::string counter_;
    std::map<std::string, double> figures_;
};

} // namespace veltrane::bench
