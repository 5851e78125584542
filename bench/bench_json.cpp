// Parsing a 1 MB server reply: the library's value model against simdjson's
// bare DOM parse and nlohmann::json, on the same bytes in the same run.
// Each benchmark reports throughput; compare them as ratios of bytes/s.
#include <benchmark/benchmark.h>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include <string>

#include "RatioReporter.h"
#include "foundation/JSON.h"

namespace {

// A paged reply of order-like rows with Chinese text, nested lists and
// numbers of every kind, grown until it passes 1 MB.
const std::string& reply() {
    static const std::string text = [] {
        std::string rows;
        for (int i = 0; rows.size() < 1024 * 1024; ++i) {
            if (i) rows += ',';
            rows += R"({"ID":)" + std::to_string(100000 + i) + R"(,"SN":"SN2026112)" + std::to_string(i) +
                    R"(","CTUserName":"张三丰","Address":"广东省广州市天河区体育西路)" + std::to_string(i) +
                    R"(号","Amount":1999.5,"Type":1,"CreateTime":1763700000.25,"Remarks":null,"IsPaid":true,)"
                    R"("GoodsInfo":[{"GoodsID":12,"GoodsName":"华为 Mate 60","ReferencePrice":5999,"IMEI":"86)" +
                    std::to_string(1000000000000 + i) +
                    R"("}],"PhoneInfo":[{"Phone":"139)" + std::to_string(10000000 + i) + R"(","Price":50.0}]})";
        }
        return R"({"count":)" + std::to_string(rows.size()) + R"(,"totalPages":9,"totalRows":9999,"nowPage":1,"data":[)" + rows + "]}";
    }();
    return text;
}

void ValueModel(benchmark::State& state) {
    const std::string& text = reply();
    for (auto _ : state) benchmark::DoNotOptimize(veltrane::parseJSON(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void SimdjsonDOM(benchmark::State& state) {
    const std::string& text = reply();
    simdjson::dom::parser parser;
    for (auto _ : state) {
        simdjson::dom::element root;
        if (parser.parse(text.data(), text.size(), true).get(root)) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(root);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void NlohmannJSON(benchmark::State& state) {
    const std::string& text = reply();
    for (auto _ : state) benchmark::DoNotOptimize(nlohmann::json::parse(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

BENCHMARK(ValueModel)->Unit(benchmark::kMillisecond);
BENCHMARK(SimdjsonDOM)->Unit(benchmark::kMillisecond);
BENCHMARK(NlohmannJSON)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    veltrane::bench::RatioReporter reporter({{"ValueModel", "SimdjsonDOM"}, {"ValueModel", "NlohmannJSON"}}, "bytes_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
