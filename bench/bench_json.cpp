// Reply bytes to values and to pages of records: the library against
// simdjson's bare DOM parse and nlohmann::json (parse, and parse plus mapping
// into plain structs), on the same bytes in the same run.
//
// Inputs: a 1 MB page of order-like rows, pages of 41-key orders, of phone
// numbers and of devices, of 1 MB and of 10 rows. Orders read most of their
// fields on first use: OrderPage makes the page, OrderPageShown also uses
// every order once.
// Figures per benchmark: bytes/s (compare as the ratios printed at the end),
// allocations per reply (operator new calls, counted here; per order too), and the heap a
// parsed reply keeps while it is held, per byte of reply ("heap_x").
//
// malloc is pinned so that its heuristics do not move the figures: no mmap
// below 64 MiB (M_MMAP_THRESHOLD) and no trimming below 256 MiB
// (M_TRIM_THRESHOLD), so freed memory is reused by the next iteration
// instead of being returned to the system and faulted in again.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "RatioReporter.h"
#include "veltrane/catalogue/NumberInfo.h"
#include "veltrane/catalogue/ProductInfo.h"
#include "veltrane/orders/Order.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/ListConversion.h"

namespace {
std::atomic<size_t> allocations{0};
}

void* operator new(size_t n) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

using namespace veltrane;

std::string pageOf(const std::string& rows, size_t count) {
    return R"({"count":)" + std::to_string(count) + R"(,"totalPages":9,"totalRows":9999,"nowPage":1,"data":[)" + rows + "]}";
}

// Rows made by row(i), until the text passes bytes (or count rows are made).
template <class Row>
std::string grow(size_t bytes, size_t count, Row row) {
    std::string rows;
    size_t i = 0;
    for (; rows.size() < bytes && i < count; ++i) {
        if (i) rows += ',';
        rows += row(i);
    }
    return pageOf(rows, i);
}

std::string orderRow(size_t i) {
    return R"({"ID":)" + std::to_string(100000 + i) + R"(,"SN":"SN2026112)" + std::to_string(i) +
           R"(","CTUserName":"张三丰","Address":"广东省广州市天河区体育西路)" + std::to_string(i) +
           R"(号","Amount":1999.5,"Type":1,"CreateTime":1763700000.25,"Remarks":null,"IsPaid":true,)"
           R"("GoodsInfo":[{"GoodsID":12,"GoodsName":"青岚 Q60","ReferencePrice":5999,"IMEI":"86)" +
           std::to_string(1000000000000 + i) + R"("}],"PhoneInfo":[{"Phone":"139)" + std::to_string(10000000 + i) +
           R"(","Price":50.0}]})";
}

// An order of the incoming format, 41 keys.
std::string order41Row(size_t i) {
    std::string id = std::to_string(100000 + i);
    return R"({"ID":)" + id + R"(,"SN":"SN20261121)" + id + R"(","Status":1,"UserID":7,"CompanyID":1,"Type":1,"TypeName":"新装",)"
           R"("CTUserName":"张三丰","Address":"广东省广州市天河区体育西路)" + id + R"(号","CTCardNumber":"440106199001011234",)"
           R"("CTPictureHeads":"/uploads/idcard/)" + id + R"(-front.jpg","CTPictureTails":"/uploads/idcard/)" + id + R"(-back.jpg",)"
           R"("Consignee":"张三丰","Tel":"13912345678","AgentCTUserName":null,"AgentCTCardNumber":null,"AgentCTAddress":null,)"
           R"("AgentCTPictureHeads":null,"AgentCTPictureTails":null,"CreateTime":1763433600,"Remarks":"客户要求加急",)"
           R"("Amount":6999,"AreaName":"广州市","SubAreaName":"天河区","CTAddress":"广州市天河区体育西路103号维多利广场A座1208",)"
           R"("InstallDate":1763604000,"ReceiptPath":"/receipts/SN20261121)" + id + R"(.pdf","CTCityID":20,"CTAreaID":2001,)"
           R"("ReferenceAmount":7049,"OrderType":2,"IsPaid":1,"PayType":"现金","ShopName":"天河体育西营业厅","ShopID":12,)"
           R"("AuditStatus":0,"AuditRemarks":"","Channel":"counter","UpdateTime":1763440000,)"
           R"("GoodsInfo":[{"GoodsID":101,"GoodsName":"青岚 Q60 Pro","ReferencePrice":6999,"IMEI":"861234567890126","Price":6999},)"
           R"({"GoodsID":105,"GoodsName":"云桥 5G 随身WiFi","ReferencePrice":399,"IMEI":"861122070204817","Price":399}],)"
           R"("PhoneInfo":[{"Phone":"13922223333","Price":50}],"PlanInfo":[{"PlanID":11,"PlanName":"5G畅享129元套餐"}],)"
           R"("ReceiptArr":[{"ID":801,"SN":"SN20261121)" + id + R"(","CRMXML":"/receipts/SN20261121)" + id + R"(.pdf"}]})";
}

std::string numberRow(size_t i) {
    return R"({"Phone":"139)" + std::to_string(10000000 + i) + R"(","Rank":)" + std::to_string(i % 4) + R"(,"Prestore":)" +
           (i % 5 ? std::to_string(i % 4 * 50) : "\"50\"") + R"(,"UIM":"8986031000000)" + std::to_string(100000 + i) +
           R"(","PlanType":2,"NetType":1})";
}

std::string productRow(size_t i) {
    return R"({"ID":)" + std::to_string(100 + i % 50) + R"(,"Name":"青岚 Q60 Pro 12GB+512GB 雅川青","Picture":"/uploads/goods/)" +
           std::to_string(i) + R"(.jpg","Price":6999.5,"Brand":"青岚","Stock":8,"IMEI":"86451205)" + std::to_string(2048170 + i) + R"("})";
}

const std::string& input(int which) {
    static const std::string inputs[] = {
        grow(1 << 20, SIZE_MAX, orderRow),  grow(1 << 20, SIZE_MAX, order41Row), grow(1 << 20, SIZE_MAX, numberRow),
        grow(1 << 20, SIZE_MAX, productRow), grow(SIZE_MAX, 10, numberRow),      grow(SIZE_MAX, 10, productRow),
        grow(SIZE_MAX, 10, order41Row),
    };
    return inputs[which];
}
const char* kInputNames[] = {"orders1MB", "orders41keys1MB", "numbers1MB", "products1MB", "numbers10rows", "products10rows", "orders10rows"};

size_t heapInUse() {
    struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
}

// Runs work(text) per iteration and reports bytes/s, allocations per
// iteration and the heap that one result keeps, per byte of input.
template <class Work>
void measure(benchmark::State& state, Work work) {
    const std::string& text = input(static_cast<int>(state.range(0)));
    state.SetLabel(kInputNames[state.range(0)]);
    benchmark::DoNotOptimize(work(text));  // the parser's own buffers grow once, not counted below
    {
        size_t before = heapInUse();
        auto kept = work(text);
        state.counters["heap_x"] = static_cast<double>(heapInUse() - before) / static_cast<double>(text.size());
        benchmark::DoNotOptimize(kept);
    }
    size_t allocationsBefore = allocations.load();
    for (auto _ : state) benchmark::DoNotOptimize(work(text));
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(allocations.load() - allocationsBefore), benchmark::Counter::kAvgIterations);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// ---- The library ------------------------------------------------------------------

void Values(benchmark::State& state) {
    measure(state, [](const std::string& text) { return parseJSON(text); });
}

template <class Record>
DataPage<Record> recordsOf(const std::string& text) {
    return DataPage<Record>(parseJSON(text).asDictionary(), makeRecord<Record>);
}
void NumberPage(benchmark::State& state) { measure(state, recordsOf<NumberInfo>); }
void ProductPage(benchmark::State& state) { measure(state, recordsOf<ProductInfo>); }
// The allocations per order, beside those per page.
void perOrder(benchmark::State& state) {
    double orders = static_cast<double>(recordsOf<Order>(input(static_cast<int>(state.range(0)))).data()->size());
    state.counters["orders"] = orders;
    state.counters["allocs_per_order"] = benchmark::Counter(state.counters["allocs"].value / orders, benchmark::Counter::kAvgIterations);
}
void OrderPage(benchmark::State& state) {
    measure(state, recordsOf<Order>);
    perOrder(state);
}

// A page of orders of which every one is then shown: the fields an order
// reads on first use are read here too, as a screen that shows them all would.
void OrderPageShown(benchmark::State& state) {
    measure(state, [](const std::string& text) {
        DataPage<Order> page = recordsOf<Order>(text);
        for (const Order& order : *page.data()) benchmark::DoNotOptimize(order.SN());
        return page;
    });
    perOrder(state);
}

// ---- Peers ------------------------------------------------------------------------------

void SimdjsonDOM(benchmark::State& state) {
    simdjson::dom::parser parser;
    measure(state, [&](const std::string& text) {
        simdjson::dom::element root;
        if (parser.parse(text.data(), text.size(), true).get(root)) std::abort();
        return root;
    });
}

void Nlohmann(benchmark::State& state) {
    measure(state, [](const std::string& text) { return nlohmann::json::parse(text); });
}

// The rows mapped into plain structs, with the same readings as the records
// (numbers or numeric text; absent keys empty).
float number(const nlohmann::json& row, const char* key) {
    auto it = row.find(key);
    if (it == row.end()) return 0;
    if (it->is_string()) return std::strtof(it->get_ref<const std::string&>().c_str(), nullptr);
    return it->is_number() ? it->get<float>() : 0;
}
std::string textOf(const nlohmann::json& row, const char* key) {
    auto it = row.find(key);
    return it != row.end() && it->is_string() ? it->get<std::string>() : std::string();
}

struct NumberRow {
    std::string phone, uim;
    int32_t rank;
    float prefund;
};
struct ProductRow {
    int32_t id;
    std::string name, imei, picture;
    float price;
};

// An order with what the record reads of it: its texts, numbers, goods,
// phone numbers, plan and receipts.
struct OrderRow {
    struct Goods {
        int32_t id;
        std::string name, imei;
        float price, dealPrice;
    };
    struct Phone {
        std::string phone;
        float price;
    };
    struct Receipt {
        long id;
        std::string sn, path;
    };
    long id;
    unsigned long type;
    std::string sn, typeName, customerName, address, cardNumber, pictureHeads, pictureTails, consignee, tel, remarks, ctAddress, areaName,
        subAreaName, receiptPath;
    std::string agentName, agentCardNumber, agentAddress, agentHeads, agentTails;
    double createTime, installDate;
    float amount;
    std::vector<Goods> goods;
    std::vector<Phone> phones;
    int32_t planID;
    std::string planName;
    std::vector<Receipt> receipts;
};

template <class Row, class Map>
std::vector<Row> mapRows(const std::string& text, Map map) {
    nlohmann::json page = nlohmann::json::parse(text);
    std::vector<Row> rows;
    const nlohmann::json& data = page["data"];
    rows.reserve(data.size());
    for (const nlohmann::json& row : data) rows.push_back(map(row));
    return rows;
}

void NlohmannNumberPage(benchmark::State& state) {
    measure(state, [](const std::string& text) {
        return mapRows<NumberRow>(text, [](const nlohmann::json& r) {
            return NumberRow{textOf(r, "Phone"), textOf(r, "UIM"), static_cast<int32_t>(number(r, "Rank")), number(r, "Prestore")};
        });
    });
}

void NlohmannProductPage(benchmark::State& state) {
    measure(state, [](const std::string& text) {
        return mapRows<ProductRow>(text, [](const nlohmann::json& r) {
            return ProductRow{static_cast<int32_t>(number(r, "ID")), textOf(r, "Name"), textOf(r, "IMEI"), textOf(r, "Picture"), number(r, "Price")};
        });
    });
}

void NlohmannOrderPage(benchmark::State& state) {
    measure(state, [](const std::string& text) {
        return mapRows<OrderRow>(text, [](const nlohmann::json& r) {
            OrderRow o{};
            o.id = static_cast<long>(number(r, "ID"));
            o.type = static_cast<unsigned long>(number(r, "Type"));
            o.sn = textOf(r, "SN");
            o.typeName = textOf(r, "TypeName");
            o.customerName = textOf(r, "CTUserName");
            o.address = textOf(r, "Address");
            o.cardNumber = textOf(r, "CTCardNumber");
            o.pictureHeads = textOf(r, "CTPictureHeads");
            o.pictureTails = textOf(r, "CTPictureTails");
            o.agentName = textOf(r, "AgentCTUserName");
            o.agentCardNumber = textOf(r, "AgentCTCardNumber");
            o.agentAddress = textOf(r, "AgentCTAddress");
            o.agentHeads = textOf(r, "AgentCTPictureHeads");
            o.agentTails = textOf(r, "AgentCTPictureTails");
            o.consignee = textOf(r, "Consignee");
            o.tel = textOf(r, "Tel");
            o.remarks = textOf(r, "Remarks");
            o.ctAddress = textOf(r, "CTAddress");
            o.areaName = textOf(r, "AreaName");
            o.subAreaName = textOf(r, "SubAreaName");
            o.receiptPath = textOf(r, "ReceiptPath");
            o.createTime = number(r, "CreateTime");
            o.installDate = number(r, "InstallDate");
            o.amount = number(r, "Amount");
            for (const nlohmann::json& g : r.value("GoodsInfo", nlohmann::json::array()))
                o.goods.push_back({static_cast<int32_t>(number(g, "GoodsID")), textOf(g, "GoodsName"), textOf(g, "IMEI"),
                                   number(g, "ReferencePrice"), number(g, "Price")});
            for (const nlohmann::json& p : r.value("PhoneInfo", nlohmann::json::array())) o.phones.push_back({textOf(p, "Phone"), number(p, "Price")});
            if (auto plans = r.find("PlanInfo"); plans != r.end() && !plans->empty()) {
                o.planID = static_cast<int32_t>(number(plans->front(), "PlanID"));
                o.planName = textOf(plans->front(), "PlanName");
            }
            for (const nlohmann::json& c : r.value("ReceiptArr", nlohmann::json::array()))
                o.receipts.push_back({static_cast<long>(number(c, "ID")), textOf(c, "SN"), textOf(c, "CRMXML")});
            return o;
        });
    });
}

// ---- Dictionary lookups, to place the index threshold ------------------------------------

// Looks up every key of an n-key dictionary built by the parser (indexed or
// not by its size) and by hand (indexed past the threshold as it grows).
void DictionaryLookup(benchmark::State& state) {
    size_t n = static_cast<size_t>(state.range(0));
    std::string json = "{";
    std::vector<std::string> keys;
    for (size_t i = 0; i < n; ++i) {
        keys.push_back("Key" + std::to_string(i * 7919 % 1000));
        json += (i ? ",\"" : "\"") + keys.back() + "\":" + std::to_string(i);
    }
    Dictionary d = parseJSON(json + "}").asDictionary();
    for (auto _ : state)
        for (const std::string& k : keys) benchmark::DoNotOptimize(d.find(k));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}

void inputs(benchmark::internal::Benchmark* b, std::initializer_list<int> which) {
    for (int i : which) b->Arg(i);
    b->Unit(benchmark::kMicrosecond);
}

BENCHMARK(Values)->Apply([](auto* b) { inputs(b, {0, 1, 2, 3, 4, 5}); });
BENCHMARK(SimdjsonDOM)->Apply([](auto* b) { inputs(b, {0, 1, 2, 3, 4, 5, 6}); });
BENCHMARK(Nlohmann)->Apply([](auto* b) { inputs(b, {0, 1, 2, 3}); });
BENCHMARK(NumberPage)->Apply([](auto* b) { inputs(b, {2, 4}); });
BENCHMARK(NlohmannNumberPage)->Apply([](auto* b) { inputs(b, {2, 4}); });
BENCHMARK(ProductPage)->Apply([](auto* b) { inputs(b, {3, 5}); });
BENCHMARK(NlohmannProductPage)->Apply([](auto* b) { inputs(b, {3, 5}); });
BENCHMARK(OrderPage)->Apply([](auto* b) { inputs(b, {1, 6}); });
BENCHMARK(OrderPageShown)->Apply([](auto* b) { inputs(b, {1, 6}); });
BENCHMARK(NlohmannOrderPage)->Apply([](auto* b) { inputs(b, {1, 6}); });
BENCHMARK(DictionaryLookup)->DenseRange(4, 24, 4)->Arg(32)->Arg(41)->Arg(64)->Unit(benchmark::kNanosecond);

} // namespace

int main(int argc, char** argv) {
    mallopt(M_MMAP_THRESHOLD, 64 << 20);
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    benchmark::Initialize(&argc, argv);
    std::vector<std::pair<std::string, std::string>> pairs;
    for (const char* input : {"/0", "/1", "/2", "/3", "/4", "/5"}) {
        pairs.emplace_back(std::string("Values") + input, std::string("SimdjsonDOM") + input);
        pairs.emplace_back(std::string("Values") + input, std::string("Nlohmann") + input);
    }
    for (const char* input : {"/2", "/4"}) {
        pairs.emplace_back(std::string("NumberPage") + input, std::string("SimdjsonDOM") + input);
        pairs.emplace_back(std::string("NumberPage") + input, std::string("NlohmannNumberPage") + input);
    }
    for (const char* input : {"/3", "/5"}) {
        pairs.emplace_back(std::string("ProductPage") + input, std::string("SimdjsonDOM") + input);
        pairs.emplace_back(std::string("ProductPage") + input, std::string("NlohmannProductPage") + input);
    }
    for (const char* input : {"/1", "/6"}) {
        pairs.emplace_back(std::string("OrderPage") + input, std::string("SimdjsonDOM") + input);
        pairs.emplace_back(std::string("OrderPage") + input, std::string("NlohmannOrderPage") + input);
        pairs.emplace_back(std::string("OrderPageShown") + input, std::string("NlohmannOrderPage") + input);
    }
    veltrane::bench::RatioReporter reporter(std::move(pairs), "bytes_per_second");
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
}
