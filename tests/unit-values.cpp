// The JSON value model: number kinds and conversions, typed readings, null
// against absent, sharing against copying, and equality.
#include <cmath>
#include <climits>
#include <limits>
#include <thread>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/JSON.h"
#include "veltrane/foundation/ValueNodes.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using test::dict;

struct NumberCase {
    const char* name;
    Value value;
    Number::Kind kind;
    int32_t asInt;
    long asLong;
    unsigned long asUnsigned;
    double asDouble;
    const char* text;
};

const NumberCase kNumberCases[] = {
    {"float keeps single precision", NSBoxFloat(0.1f), Number::Kind::Float, 0, 0, 0, 0.100000001490116119384765625, "0.1"},
    {"double keeps double precision", NSBoxDouble(0.1), Number::Kind::Double, 0, 0, 0, 0.1, "0.1"},
    {"int -1 read unsigned wraps", NSBoxInt(-1), Number::Kind::Int32, -1, -1, ULONG_MAX, -1, "-1"},
    {"long beyond 32 bits narrows by wrap", NSBoxLong(4294967297L), Number::Kind::Long, 1, 4294967297L, 4294967297UL, 4294967297.0, "4294967297"},
    {"unsigned max reads -1 signed", NSBoxUnsignedLong(ULONG_MAX), Number::Kind::UnsignedLong, -1, -1, ULONG_MAX, 18446744073709551615.0, "18446744073709551615"},
    {"fraction truncates toward zero", NSBoxDouble(-49.9), Number::Kind::Double, -49, -49, static_cast<unsigned long>(-49L), -49.9, "-49.9"},
    {"huge double clamps then wraps", NSBoxDouble(1e300), Number::Kind::Double, -1, LONG_MAX, ULONG_MAX, 1e300, "1e+300"},
    {"NaN reads as zero", NSBoxDouble(std::nan("")), Number::Kind::Double, 0, 0, 0, std::nan(""), "nan"},
    {"2^63 clamps to the signed maximum", NSBoxDouble(0x1p63), Number::Kind::Double, -1, LONG_MAX, 9223372036854775808UL, 0x1p63, "9223372036854775808"},
    {"2^64 clamps to the unsigned maximum", NSBoxDouble(0x1p64), Number::Kind::Double, -1, LONG_MAX, ULONG_MAX, 0x1p64, "18446744073709551616"},
    {"negative huge clamps to the minimum", NSBoxDouble(-1e300), Number::Kind::Double, 0, LONG_MIN, static_cast<unsigned long>(LONG_MIN), -1e300, "-1e+300"},
};

TEST(Values, NumberKindsAndConversions) {
    for (const NumberCase& c : kNumberCases) {
        SCOPED_TRACE(c.name);
        const Number& n = c.value.asNumber();
        EXPECT_EQ(n.kind(), c.kind);
        EXPECT_EQ(n.intValue(), c.asInt);
        EXPECT_EQ(n.longValue(), c.asLong);
        EXPECT_EQ(n.unsignedLongValue(), c.asUnsigned);
        if (std::isnan(c.asDouble)) EXPECT_TRUE(std::isnan(n.doubleValue()));
        else EXPECT_EQ(n.doubleValue(), c.asDouble);
        EXPECT_EQ(n.text(), c.text);
        EXPECT_EQ(n.boolValue(), n.doubleValue() != 0) << "true when not zero, NaN too";
    }
}

// One dictionary holding every kind of value, read by every accessor.
const char* kReadings = R"({"int":5,"neg":-1,"float":2.5,"numtext":"12abc","text":"abc","yes":"YES",
  "true":true,"null":null,"array":[1],"dict":{"a":1},"big":4294967297,"spaced":"  3.75","exponent":"7e2","upper":"5E-1","plus":"+2.5","twenty":"-99999999999999999999",
  "rounded":"9007199254740993"})";

struct ReadingCase {
    const char* key;
    std::optional<std::string> asString;
    int32_t asInt;
    long asLong;
    bool asBool;
    double asDouble;
};

const ReadingCase kReadingCases[] = {
    {"int", "5", 5, 5, true, 5},
    {"neg", "-1", -1, -1, true, -1},
    {"float", "2.5", 2, 2, true, 2.5},
    {"numtext", "12abc", 12, 12, true, 12},
    {"text", "abc", 0, 0, false, 0},
    {"yes", "YES", 0, 0, true, 0},
    {"true", "true", 1, 1, true, 1},
    {"null", std::nullopt, 0, 0, false, 0},
    {"array", std::nullopt, 0, 0, false, 0},
    {"dict", std::nullopt, 0, 0, false, 0},
    {"big", "4294967297", 1, 4294967297L, true, 4294967297.0},
    {"spaced", "  3.75", 3, 3, true, 3.75},
    {"exponent", "7e2", 7, 7, true, 700},
    {"upper", "5E-1", 5, 5, true, 0.5},
    {"plus", "+2.5", 2, 2, true, 2.5},
    {"twenty", "-99999999999999999999", 0, std::numeric_limits<long>::min(), true, -1e20},
    {"rounded", "9007199254740993", 1, 9007199254740993L, true, 9007199254740992.0},
    {"absent", std::nullopt, 0, 0, false, 0},
};

TEST(Values, OptAccessorsNeverThrow) {
    Dictionary d = dict(kReadings);
    for (const ReadingCase& c : kReadingCases) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(d.optString(c.key), c.asString);
        EXPECT_EQ(d.optInt(c.key), c.asInt);
        EXPECT_EQ(d.optLong(c.key), c.asLong);
        EXPECT_EQ(d.optBool(c.key), c.asBool);
        EXPECT_EQ(d.optDouble(c.key), c.asDouble);
        EXPECT_EQ(d.optFloat(c.key), static_cast<float>(c.asDouble));
    }
    EXPECT_TRUE(d.optArray("array").has_value());
    EXPECT_FALSE(d.optArray("dict").has_value());
    EXPECT_EQ(d.optDictionary("dict").optInt("a"), 1);
    EXPECT_TRUE(d.optDictionary("absent").empty());
}

TEST(Values, PlainReadingsThrowForNullAndContainers) {
    Dictionary d = dict(kReadings);
    EXPECT_EQ(d.intValue("absent"), 0);
    EXPECT_EQ(d.intValue("numtext"), 12);
    EXPECT_EQ(d.floatValue("spaced"), 3.75f);
    for (const char* key : {"null", "array", "dict"}) {
        SCOPED_TRACE(key);
        EXPECT_THROW(d.intValue(key), ValueError);
        EXPECT_THROW(d.doubleValue(key), ValueError);
        try {
            d.floatValue(key);
            ADD_FAILURE() << "no throw";
        } catch (const ValueError& e) {
            EXPECT_NE(std::string(e.what()).find("has no float value"), std::string::npos) << e.what();
        }
        EXPECT_THROW(d.find(key)->boolValue(), ValueError);
    }
}

TEST(Values, NullIsNotAbsent) {
    Dictionary d = dict(R"({"n":null})");
    ASSERT_NE(d.find("n"), nullptr);
    EXPECT_TRUE(d.find("n")->isNull());
    EXPECT_EQ(d.find("missing"), nullptr);
    d.setValue("n", std::nullopt);  // setting nothing removes the key
    EXPECT_FALSE(d.contains("n"));
    EXPECT_EQ(writeJSON(Dictionary{{"a", NSGuardNil(std::optional<std::string>())}}), R"({"a":null})");
    EXPECT_EQ(NSGuardNil(std::optional<Value>("x")), Value("x"));
}

TEST(Values, SharedHandlesAndOneLevelCopies) {
    Dictionary inner{{"k", 1}};
    Dictionary original{{"inner", inner}, {"n", 1}};
    Dictionary shared = original;
    Dictionary copy = original.mutableCopy();

    shared.set("n", 2);
    EXPECT_EQ(original.optInt("n"), 2) << "a shared handle is the same dictionary";
    EXPECT_EQ(copy.optInt("n"), 1) << "a copy does not see later changes";
    copy.set("added", true);
    EXPECT_FALSE(original.contains("added"));
    inner.set("k", 9);
    EXPECT_EQ(copy.optDictionary("inner").optInt("k"), 9) << "the copy is one level deep";

    Dictionary frozen = original.immutableCopy();
    EXPECT_THROW(frozen.set("n", 3), ValueError);
    EXPECT_THROW(frozen.remove("n"), ValueError);
    EXPECT_FALSE(frozen.mutableCopy().isReadOnly());

    // A detached copy goes 1024 levels down, and refuses one more.
    for (int levels : {1024, 1025}) {
        Value nested(0);
        for (int i = 0; i < levels; ++i) nested = Value(Array{nested});
        if (levels == 1024) EXPECT_NO_THROW(nested.detached());
        else EXPECT_THROW(nested.detached(), ValueError);
    }
}

TEST(Values, InsertionOrderSurvivesReplaceAndGrowth) {
    Dictionary d;
    for (int i = 0; i < 100; ++i) d.set("k" + std::to_string(99 - i), i);
    d.set("k50", -1);
    d.remove("k10");
    EXPECT_EQ(d.size(), 99u);
    EXPECT_EQ((*d.begin()).first, "k99");
    EXPECT_EQ(d.optInt("k50"), -1);
    EXPECT_FALSE(d.contains("k10"));
    EXPECT_EQ(d.optInt("k0"), 99);
    for (std::string key : {"fifteen-bytes-k", "sixteen-bytes-ke"}) {
        d.set(key, 1);
        d.set(key, 2);
        EXPECT_EQ(d.optInt(key), 2) << key;
    }
    EXPECT_EQ(d.size(), 101u) << "the longest inline key and the shortest long one, each set twice";
    EXPECT_EQ(writeJSON(Dictionary{{"c", 1}, {"a", 2}, {"b", 3}, {"a", 4}}), R"({"c":1,"a":4,"b":3})");

    // Room already there is not made again: elements stay where they are.
    Array a;
    a.reserve(5);
    a.push_back(1);
    const Value* first = a.begin();
    a.reserve(5);
    for (int i = 2; i <= 5; ++i) a.push_back(i);
    EXPECT_EQ(a.begin(), first);
    a.push_back(6);
    EXPECT_EQ(writeJSON(a), "[1,2,3,4,5,6]");
}

struct EqualityCase {
    const char* a;
    const char* b;
    bool equal;
};

const EqualityCase kEqualityCases[] = {
    {"1", "1.0", true},
    {"1", "\"1\"", false},
    {"null", "false", false},
    {"0", "false", false},
    {"[1,2]", "[1,2]", true},
    {"[1,2]", "[2,1]", false},
    {R"({"a":1,"b":[null]})", R"({"b":[null],"a":1})", true},
    {R"({"a":1})", R"({"a":1,"b":2})", false},
    {"18446744073709551615", "-1", false},
    {"9007199254740993", "9007199254740992.0", false},
};

TEST(Values, Equality) {
    for (const EqualityCase& c : kEqualityCases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(parseJSON(c.a) == parseJSON(c.b), c.equal);
        EXPECT_EQ(parseJSON(c.b) == parseJSON(c.a), c.equal);
    }
    EXPECT_EQ(Value(0UL), Value(0L)) << "zero, signed or not";
}

// ---- One arena per reply ----------------------------------------------------------------

class Replies : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(detail::liveArenas(), alive) << "every reply is freed with its last handle"; }
    size_t alive = detail::liveArenas();
};

TEST_F(Replies, RowsOfOneShapeStayApartWhenWritten) {
    Value page = parseJSON(R"([{"a":1,"b":2,"LongKeyOfTheRow":0},{"a":3,"b":4,"LongKeyOfTheRow":0},)"
                           R"({"a":5,"b":6,"LongKeyOfTheRow":0},{"a":7,"b":8,"LongKeyOfTheRow":0}])");
    const Array& rows = page.asArray();
    Dictionary first = rows[0].asDictionary(), second = rows[1].asDictionary(), third = rows[2].asDictionary();
    first.set("c", 7);
    second.remove("a");
    third.set("b", "x");
    Dictionary fourth = rows[3].asDictionary();
    for (int i = 0; i < 40; ++i) fourth.set("k" + std::to_string(i), i);
    EXPECT_EQ(writeJSON(Array{rows[0], rows[1], rows[2]}),
              R"([{"a":1,"b":2,"LongKeyOfTheRow":0,"c":7},{"b":4,"LongKeyOfTheRow":0},{"a":5,"b":"x","LongKeyOfTheRow":0}])");
    EXPECT_EQ(rows[3].asDictionary().size(), 43u);
    EXPECT_EQ(rows[3].asDictionary().optInt("k39"), 39);
    EXPECT_EQ(rows[3].asDictionary().optInt("a"), 7);
}

TEST_F(Replies, ManyKeysAreFoundThroughTheIndex) {
    std::string json = "[";
    for (int row = 0; row < 3; ++row) {
        json += row ? ",{" : "{";
        for (int k = 0; k < 41; ++k) json += (k ? ",\"" : "\"") + std::string(k % 2 ? "AgentCTPictureHeads" : "k") + std::to_string(k) + "\":" + std::to_string(row * 100 + k);
        json += "}";
    }
    Value page = parseJSON(json + "]");
    for (int row = 0; row < 3; ++row)
        for (int k = 0; k < 41; ++k)
            EXPECT_EQ(page.asArray()[row].asDictionary().optInt(std::string(k % 2 ? "AgentCTPictureHeads" : "k") + std::to_string(k)), row * 100 + k);
    EXPECT_FALSE(page.asArray()[1].asDictionary().contains("k1"));
}

TEST_F(Replies, ValuesOutliveTheReplyTheyCameFrom) {
    Dictionary inner;
    Value longText;
    {
        Value reply = parseJSON(R"({"inner":{"name":"广东省广州市天河区体育西路103号"},"other":[1,2,3]})");
        inner = reply.asDictionary().optDictionary("inner");
        longText = *inner.find("name");
    }
    EXPECT_EQ(detail::liveArenas(), alive + 1) << "a handle keeps its whole reply";
    EXPECT_EQ(longText.asString(), "广东省广州市天河区体育西路103号");
    inner.set("added", 1);
    EXPECT_EQ(inner.size(), 2u);
}

TEST_F(Replies, AReplyThatRefersToItselfIsStillFreed) {
    Value reply = parseJSON(R"({"a":{"b":[1]},"s":"a string longer than fifteen bytes"})");
    Dictionary root = reply.asDictionary();
    Dictionary a = root.optDictionary("a");
    a.set("parent", reply);
    a.set("self", a);
    root.set("again", root.optValue("s").value());
    a.optArray("b")->push_back(reply);
    EXPECT_EQ(a.optDictionary("parent").optDictionary("a").optDictionary("self").optArray("b")->size(), 2u);
}

TEST_F(Replies, AValueFromAnotherReplyKeepsThatReplyAlive) {
    Value first = parseJSON(R"({"kept":null})");
    {
        Value second = parseJSON(R"({"x":{"deep":"from the second reply, long enough"}})");
        Dictionary target = first.asDictionary();
        target.set("kept", second.asDictionary().optDictionary("x"));
        Dictionary built;
        built.set("y", second);  // and a container of no reply holds it too
        target.set("built", built);
    }
    EXPECT_EQ(detail::liveArenas(), alive + 2);
    EXPECT_EQ(first.asDictionary().optDictionary("kept").optString("deep"), "from the second reply, long enough");
    first = Value();
    EXPECT_EQ(detail::liveArenas(), alive);
}

TEST_F(Replies, HoldersShareAParsedContainerThroughItsGrowth) {
    Value reply = parseJSON(R"({"d":{"a":1},"l":[1]})");
    Dictionary d = reply.asDictionary().optDictionary("d");
    Array l = *reply.asDictionary().optArray("l");
    for (int i = 0; i < 100; ++i) {
        d.set("k" + std::to_string(i), i);
        l.push_back(i);
    }
    EXPECT_EQ(reply.asDictionary().optDictionary("d").size(), 101u);
    EXPECT_EQ(reply.asDictionary().optArray("l")->size(), 101u);
    EXPECT_EQ(reply.asDictionary().optDictionary("d").optInt("k99"), 99);
}

TEST_F(Replies, HandlesCrossThreads) {
    Value page = parseJSON(R"([{"Phone":"13912345678","UIM":"8986031234567890001"},{"Phone":"13912345679","UIM":"8986031234567890002"}])");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([row = page.asArray()[t % 2]] {
            for (int i = 0; i < 20000; ++i) {
                Value copy = row;
                std::optional<Value> uim = copy.asDictionary().optValue("UIM");
                if (!uim || uim->asString().size() != 19) std::abort();
            }
        });
    page = Value();
    for (std::thread& t : threads) t.join();
}

// A page's records count on their reply in one step when the page is made
// and when it goes; a record kept, or freed on another thread, counts alone.
TEST_F(Replies, APagesRecordsCountOnTheirReplyTogether) {
    struct Row {
        Dictionary raw;
        std::optional<Value> name;
        explicit Row(const Dictionary& d) : raw(d), name(d.optValue("name")) {}
    };
    const char* json = R"({"data":[{"name":"a name longer than fifteen bytes"},{"name":"another long name, also kept"}]})";
    auto rowOf = [](const Value& v) { return std::optional<Row>(Row(v.asDictionary())); };
    std::optional<Row> kept;
    {
        DataPage<Row> page(parseJSON(json).asDictionary(), makeRecord<Row>);
        kept = page.data()->back();
        DataPage<Row> converted(parseJSON(json).asDictionary(), rowOf);  // through the conversion, a record at a time
        EXPECT_EQ(detail::liveArenas(), alive + 2);
        std::thread([moved = std::move(converted)] {}).join();
        EXPECT_EQ(detail::liveArenas(), alive + 1);
    }
    EXPECT_EQ(detail::liveArenas(), alive + 1) << "the record kept keeps its reply";
    EXPECT_EQ(kept->name->asString(), "another long name, also kept");
    kept.reset();
    EXPECT_EQ(detail::liveArenas(), alive);
    // A conversion that reads another reply per row, inside the page's batch.
    DataPage<Row> nested(parseJSON(json).asDictionary(), [](const Value&) {
        return std::optional<Row>(Row(parseJSON(R"({"name":"from a reply of its own, long"})").asDictionary()));
    });
    EXPECT_EQ(detail::liveArenas(), alive + 2) << "the rows' own replies; the page's is gone";
}

TEST_F(Replies, DetachedRecordsHoldNoReply) {
    struct Record {
        Dictionary raw;
        std::optional<Value> name;
        std::vector<Value> list;
    };
    std::optional<Record> kept;
    {
        Value reply = parseJSON(R"({"name":"a name longer than fifteen bytes","list":[[1],{"x":"y"}]})");
        Array list = *reply.asDictionary().optArray("list");
        Record record{reply.asDictionary(), reply.asDictionary().optValue("name"), std::vector<Value>(list.begin(), list.end())};
        kept = detach(record);
        EXPECT_FALSE(kept->raw.isSame(record.raw));
    }
    EXPECT_EQ(detail::liveArenas(), alive) << "the detached copy holds nothing of the reply";
    EXPECT_EQ(kept->name->asString(), "a name longer than fifteen bytes");
    EXPECT_EQ(writeJSON(kept->raw), R"({"name":"a name longer than fifteen bytes","list":[[1],{"x":"y"}]})");
    EXPECT_EQ(writeJSON(kept->list[1]), R"({"x":"y"})");
    Array loop;
    loop.push_back(loop);
    EXPECT_THROW(detach(loop), ValueError) << "a container that holds itself cannot be copied deeply";
    loop.set(0, Value());
}

} // namespace
} // namespace veltrane
