// The JSON value model: number kinds and conversions, typed readings, null
// against absent, sharing against copying, and equality.
#include <cmath>
#include <climits>
#include <limits>

#include "foundation/Boxing.h"
#include "foundation/JSON.h"
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
    }
}

// One dictionary holding every kind of value, read by every accessor.
const char* kReadings = R"({"int":5,"neg":-1,"float":2.5,"numtext":"12abc","text":"abc","yes":"YES",
  "true":true,"null":null,"array":[1],"dict":{"a":1},"big":4294967297,"spaced":"  3.75"})";

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
        EXPECT_THROW(d.floatValue(key), ValueError);
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
}

TEST(Values, InsertionOrderSurvivesReplaceAndGrowth) {
    Dictionary d;
    for (int i = 0; i < 100; ++i) d.set("k" + std::to_string(99 - i), i);
    d.set("k50", -1);
    d.remove("k10");
    EXPECT_EQ(d.size(), 99u);
    EXPECT_EQ(d.entries().front().first, "k99");
    EXPECT_EQ(d.optInt("k50"), -1);
    EXPECT_FALSE(d.contains("k10"));
    EXPECT_EQ(d.optInt("k0"), 99);
    EXPECT_EQ(writeJSON(Dictionary{{"c", 1}, {"a", 2}, {"b", 3}, {"a", 4}}), R"({"c":1,"a":4,"b":3})");
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
}

} // namespace
} // namespace veltrane
