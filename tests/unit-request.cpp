// The request pattern: every way of reading a reply, on success, on failure
// and when something throws, driven through the in-memory transport.
#include <thread>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/RequestPattern.h"
#include "veltrane/foundation/Tag.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

// A record that needs "ID" to have an integer value (null throws).
struct Probe {
    explicit Probe(const Dictionary& d) : id(d.intValue("ID")) {}
    int32_t id;
};

// ---- One-line summaries of what a completion received -----------------------

std::string show(const Probe& p) { return "#" + std::to_string(p.id); }
std::string show(const Tag& t) { return "#" + std::to_string(t.ID()); }
std::string show(const Value& v) { return writeJSON(v); }
template <class T>
std::string show(const std::vector<T>& list) {
    std::string out = "[";
    for (const T& item : list) out += (out.size() > 1 ? "," : "") + show(item).substr(1);
    return out + "]";
}
std::string show(const DataPage<Probe>& p) {
    return std::to_string(p.count()) + "/" + std::to_string(p.totalPages()) + "/" + std::to_string(p.totalRows()) + "/" +
           std::to_string(p.currentPage()) + (p.data() ? show(*p.data()) : "-");
}
template <class T>
std::string show(bool ok, const std::optional<std::string>& message, const std::optional<T>& result) {
    return std::string(ok ? "T" : "F") + "|" + message.value_or("(none)") + "|" + (result ? show(*result) : "-");
}
std::string showFlag(bool ok, const std::optional<std::string>& message, bool flag) {
    return std::string(ok ? "T" : "F") + "|" + message.value_or("(none)") + "|" + (flag ? "T" : "F");
}

// What a row's completion does: record the call, and throw on the first call
// when the row asks for it.
struct Outcome {
    std::vector<std::string> calls;
    bool throwOnce = false;
    void record(std::string call) {
        calls.push_back(std::move(call));
        if (throwOnce) {
            throwOnce = false;
            throw std::runtime_error("completion failed");
        }
    }
    template <class T>
    ResultCallback<T> result() {
        return [this](bool ok, std::optional<std::string> m, std::optional<T> r) { record(show(ok, m, r)); };
    }
    FlagCallback flag() {
        return [this](bool ok, std::optional<std::string> m, bool f) { record(showFlag(ok, m, f)); };
    }
};

using Call = std::function<void(Outcome&)>;

template <class Make>
Call probe(Make make) {
    return [make](Outcome& o) { reply::get("probe", Dictionary(), make(o)); };
}

const Call kTags = [](Outcome& o) { Tag::listWithCompany(1, 2, o.result<std::vector<Tag>>()); };
const Call kPrinters = probe([](Outcome& o) {
    return reply::convertListOrFail<Probe>(o.result<std::vector<Probe>>(), "暂无可用打印机", reply::Guard::on);
});
const Call kArrayRequired = probe([](Outcome& o) {
    return reply::convertListOrFail<Probe>(o.result<std::vector<Probe>>(), "数据格式错误，请稍后重试", reply::Guard::off);
});
const Call kNullIsEmpty = probe([](Outcome& o) { return reply::convertListNullIsEmpty<Probe>(o.result<std::vector<Probe>>()); });
const Call kNonArrayIsNothing = probe([](Outcome& o) { return reply::convertListNonArrayIsNothing<Probe>(o.result<std::vector<Probe>>()); });
const Call kLoop = probe([](Outcome& o) { return reply::loopList<Probe>(o.result<std::vector<Probe>>()); });
const Call kChecked = probe([](Outcome& o) { return reply::checkedList<Probe>(o.result<std::vector<Probe>>(), "服务器数据错误"); });
const Call kLoopNonArrayIsEmpty = probe([](Outcome& o) { return reply::loopListNonArrayIsEmpty<Probe>(o.result<std::vector<Probe>>()); });
const Call kLoopSkipUnnamed = probe([](Outcome& o) {
    return reply::loopList<Probe>(o.result<std::vector<Probe>>(), [](const Value& e) {
        const Value* name = e.asDictionary().find("name");
        return name && name->isNull();
    });
});
const Call kPage = probe([](Outcome& o) { return reply::page<Probe>(o.result<DataPage<Probe>>()); });
const Call kRecord = probe([](Outcome& o) { return reply::oneRecord<Probe>(o.result<Probe>()); });
const Call kRecordUnguarded = probe([](Outcome& o) { return reply::oneRecord<Probe>(o.result<Probe>(), reply::Guard::off); });
const Call kRecordOfDictionary = probe([](Outcome& o) { return reply::oneRecordOfDictionary<Probe>(o.result<Probe>()); });
const Call kCoded = probe([](Outcome& o) { return reply::codedRecord<Probe>(o.result<Probe>()); });
const Call kField = probe([](Outcome& o) { return reply::field(o.result<Value>(), "Description"); });
const Call kPassThrough = probe([](Outcome& o) { return reply::passThrough(o.result<Value>()); });
const Call kDataOnSuccess = probe([](Outcome& o) { return reply::dataOnSuccess(o.result<Value>()); });
const Call kFlag = probe([](Outcome& o) { return reply::flag(o.flag()); });
const Call kBoolean = probe([](Outcome& o) { return reply::booleanOfData(o.flag()); });

struct VariantCase {
    const char* name;
    Call call;
    bool success;
    const char* data;  // JSON of the reply's data; nullptr for none
    std::vector<std::string> expected;  // one entry per completion call; "escaped:..." for an exception
    std::vector<std::string> logs = {};
    bool completionThrows = false;
};

const std::string kCannotEnumerate = "a string cannot be enumerated";
const std::string kTagsCannotEnumerate = "getLabel: " + kCannotEnumerate;
const std::string kBadString = "array convert error:a string is not a dictionary";
const std::string kBadNull = "array convert error:ID: null has no integer value";

const VariantCase kCases[] = {
    // The tolerant list, on getLabel.
    {"list: failure passes the message", kTags, false, R"([{"ID":1}])", {"F|M|-"}},
    {"list: bad elements dropped and logged", kTags, true, R"([{"ID":1},"x",{"ID":null},{"ID":3}])", {"T|M|[1,3]"}, {kBadString, kBadNull}},
    {"list: string data fails", kTags, true, R"("oops")", {"F|" + kTagsCannotEnumerate + "|-"}},
    {"list: object walked by keys", kTags, true, R"({"a":1,"b":2})", {"T|M|[]"}, {kBadString, kBadString}},
    {"list: absent data is nothing", kTags, true, nullptr, {"T|M|-"}},
    {"list: throwing completion called again", kTags, true, R"([{"ID":1}])", {"T|M|[1]", "F|completion failed|-"}, {}, true},
    // Lists that require an array.
    {"array required: object fails", kArrayRequired, true, R"({"ID":1})", {"F|数据格式错误，请稍后重试|-"}},
    {"array required: list", kArrayRequired, true, R"([{"ID":1},"x"])", {"T|M|[1]"}, {kBadString}},
    {"array required: throwing completion escapes", kArrayRequired, true, "[]", {"T|M|[]", "escaped:completion failed"}, {}, true},
    {"printers: null fails", kPrinters, true, "null", {"F|暂无可用打印机|-"}},
    {"printers: empty list", kPrinters, true, "[]", {"T|M|[]"}},
    {"printers: throwing completion called again", kPrinters, true, "[]", {"T|M|[]", "F|completion failed|-"}, {}, true},
    {"null is empty", kNullIsEmpty, true, "null", {"T|M|[]"}},
    {"null is empty: string still fails", kNullIsEmpty, true, R"("x")", {"F|probe: " + kCannotEnumerate + "|-"}},
    {"non-array is nothing: object", kNonArrayIsNothing, true, R"({"a":1})", {"T|M|-"}},
    {"non-array is nothing: list", kNonArrayIsNothing, true, R"([{"ID":4}])", {"T|M|[4]"}},
    // Strict lists.
    {"loop: one bad element fails all", kLoop, true, R"([{"ID":1},{"ID":null}])", {"F|probe: [1].ID: null has no integer value|-"}},
    {"loop: list in order", kLoop, true, R"([{"ID":2},{"ID":1}])", {"T|M|[2,1]"}},
    {"loop: absent data is empty", kLoop, true, nullptr, {"T|M|[]"}},
    {"loop: object keys are not records", kLoop, true, R"({"a":1})", {"F|probe: [0]: a string is not a dictionary|-"}},
    {"loop: failure", kLoop, false, "[]", {"F|M|-"}},
    {"loop non-array is empty: object", kLoopNonArrayIsEmpty, true, R"({"a":1})", {"T|M|[]"}},
    {"loop non-array is empty: list", kLoopNonArrayIsEmpty, true, R"([{"ID":5}])", {"T|M|[5]"}},
    {"checked: list in order", kChecked, true, R"([{"ID":2},{"ID":1}])", {"T|M|[2,1]"}},
    {"checked: object fails, the message replaced", kChecked, true, R"({"ID":1})", {"F|服务器数据错误|-"}},
    {"checked: absent data fails", kChecked, true, nullptr, {"F|服务器数据错误|-"}},
    {"checked: failure keeps the gateway's message", kChecked, false, "[]", {"F|M|-"}},
    {"checked: a bad element escapes", kChecked, true, R"([{"ID":1},{"ID":null}])", {"escaped:[1].ID: null has no integer value"}},
    {"loop skip unnamed", kLoopSkipUnnamed, true, R"([{"ID":1,"name":null},{"ID":2},{"ID":3,"name":"x"}])", {"T|M|[2,3]"}},
    // Pages.
    {"page: counters and rows", kPage, true, R"({"count":2,"totalPages":"5","totalRows":42,"nowPage":1,"data":[{"ID":1},{"ID":2}]})", {"T|M|2/5/42/1[1,2]"}},
    {"page: a bad row fails the page", kPage, true, R"({"count":1,"data":[{"ID":1},{"ID":null}]})", {"F|probe: data[1].ID: null has no integer value|-"}},
    {"page: null counter fails", kPage, true, R"({"count":null})", {"F|probe: count: null has no integer value|-"}},
    {"page: no data is not an empty page", kPage, true, R"({"count":3,"data":{}})", {"T|M|3/0/0/0-"}},
    {"page: empty data", kPage, true, R"({"data":[]})", {"T|M|0/0/0/0[]"}},
    {"page: data that is not a dictionary", kPage, true, "[]", {"F|probe: an array is not a dictionary|-"}},
    // One record.
    {"record", kRecord, true, R"({"ID":7})", {"T|M|#7"}},
    {"record: string data fails", kRecord, true, R"("x")", {"F|probe: a string is not a dictionary|-"}},
    {"record: failure", kRecord, false, R"({"ID":7})", {"F|M|-"}},
    {"record unguarded: exception escapes", kRecordUnguarded, true, R"({"ID":null})", {"escaped:ID: null has no integer value"}},
    {"record of dictionary: null fails with the message", kRecordOfDictionary, true, "null", {"F|M|-"}},
    {"record of dictionary: array fails with the message", kRecordOfDictionary, true, "[]", {"F|M|-"}},
    {"record of dictionary", kRecordOfDictionary, true, R"({"ID":4})", {"T|M|#4"}},
    {"coded: non-zero code gives the record", kCoded, true, R"({"code":1,"data":{"ID":9}})", {"T|M|#9"}},
    {"coded: zero code is success with nothing", kCoded, true, R"({"code":0,"data":{"ID":9}})", {"T|M|-"}},
    {"coded: record that is not a dictionary", kCoded, true, R"({"code":"2","data":"x"})", {"F|probe: data: a string is not a dictionary|-"}},
    // Fields and pass-through.
    {"field as it stands", kField, true, R"({"Description":["<b>x</b>"]})", {R"(T|M|["<b>x</b>"])"}},
    {"field absent", kField, true, "{}", {"T|M|-"}},
    {"field of a string fails", kField, true, R"("x")", {"F|probe: a string is not a dictionary|-"}},
    {"pass through keeps data on failure", kPassThrough, false, R"({"a":1})", {R"(F|M|{"a":1})"}},
    {"pass through keeps null", kPassThrough, true, "null", {"T|M|null"}},
    {"data on success only: failure", kDataOnSuccess, false, R"({"a":1})", {"F|M|-"}},
    {"data on success only", kDataOnSuccess, true, R"({"a":1})", {R"(T|M|{"a":1})"}},
    // Flags.
    {"flag: success doubled", kFlag, true, R"({"x":1})", {"T|M|T"}},
    {"flag: failure doubled", kFlag, false, nullptr, {"F|M|F"}},
    {"flag: throwing completion escapes", kFlag, true, nullptr, {"T|M|T", "escaped:completion failed"}, {}, true},
    {"boolean of data", kBoolean, true, "true", {"T|M|T"}, {"true"}},
    {"boolean of data: absent is false", kBoolean, true, nullptr, {"T|M|F"}, {"(null)"}},
    {"boolean of data: failure keeps the flag", kBoolean, false, "1", {"F|M|T"}, {"1"}},
    {"boolean of data: object has no reading", kBoolean, true, "{}", {"F|M|T"}, {"{}"}},
    {"boolean of data: throwing completion", kBoolean, true, "0", {"T|M|F", "F|M|T"}, {"0"}, true},
};

class RequestPattern : public test::GatewayTest {};

TEST_F(RequestPattern, EveryVariant) {
    for (const VariantCase& c : kCases) {
        SCOPED_TRACE(c.name);
        transport->clear();
        logLines.clear();
        transport->setHandler([&](const MemoryTransport::Request&) {
            return MemoryTransport::Reply{c.success, "M", c.data ? std::optional(parseJSON(c.data)) : std::nullopt};
        });
        Outcome outcome;
        outcome.throwOnce = c.completionThrows;
        try {
            c.call(outcome);
        } catch (const std::exception& e) {
            outcome.calls.push_back(std::string("escaped:") + e.what());
        }
        EXPECT_EQ(outcome.calls, c.expected);
        EXPECT_EQ(logLines, c.logs);
    }
}

TEST_F(RequestPattern, TagListSendsItsParameters) {
    Tag::listWithCompany(12, 3, [](bool, std::optional<std::string>, std::optional<std::vector<Tag>>) {});
    MemoryTransport::Request r = lastRequest();
    EXPECT_EQ(r.method, HTTPMethod::GET);
    EXPECT_EQ(r.api, "getLabel");
    EXPECT_EQ(test::typedParams(r.params), "type=3:u64 companyid=12:i32");
}

TEST_F(RequestPattern, TagCopiesItsFields) {
    Tag tag(test::dict(R"({"ID":"12","Content":5,"Title":"t"})"));
    EXPECT_EQ(tag.ID(), 12);
    EXPECT_EQ(tag.content(), Value(5));  // as it stands, no type test
    EXPECT_EQ(tag.title(), Value("t"));
    EXPECT_FALSE(Tag(Dictionary()).content().has_value());
    EXPECT_TRUE(Tag(test::dict(R"({"Content":null})")).content()->isNull());
}

TEST_F(RequestPattern, NoDictionaryIsNotAnEmptyDictionary) {
    test::Calls<Value> calls;
    reply("a", true, "M");
    reply("b", true, "M");
    Server::httpGet("a", std::nullopt, calls.callback());
    EXPECT_FALSE(lastRequest().params.has_value());
    Server::httpPost("b", Dictionary(), calls.callback());
    EXPECT_EQ(lastRequest().method, HTTPMethod::POST);
    ASSERT_TRUE(lastRequest().params.has_value());
    EXPECT_TRUE(lastRequest().params->empty());
}

TEST_F(RequestPattern, CompletionRunsOnTheDeliveringThread) {
    transport->setDeferred(true);
    reply("getLabel", true, "M", "[]");
    std::thread::id ranOn;
    Tag::listWithCompany(1, 1, [&](bool, std::optional<std::string>, std::optional<std::vector<Tag>>) {
        ranOn = std::this_thread::get_id();
    });
    std::thread::id deliverer;
    std::thread([&] {
        deliverer = std::this_thread::get_id();
        EXPECT_EQ(transport->deliver(), 1u);
    }).join();
    EXPECT_EQ(ranOn, deliverer);
}

TEST(Gateway, WithoutTransportFailsAtOnce) {
    Server::setTransport(nullptr);
    test::Calls<Value> calls;
    Server::httpGet("getLabel", std::nullopt, calls.callback());
    EXPECT_FALSE(calls.only().success);
    EXPECT_EQ(calls.only().message, "no server transport installed");
}

} // namespace
} // namespace veltrane
