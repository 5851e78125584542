// Reading and writing JSON: what parses to what, what is refused and why,
// and what the writer prints.
#include <cmath>
#include <limits>

#include "veltrane/foundation/Boxing.h"
#include "veltrane/foundation/JSON.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

struct ParseCase {
    const char* name;
    std::string input;
    const char* written;  // writeJSON of the result, or nullptr when parsing must fail
    const char* error = "";
};

const ParseCase kParseCases[] = {
    {"object keeps key order", R"({"b":1,"a":[true,null,"x"]})", R"({"b":1,"a":[true,null,"x"]})"},
    {"blanks are dropped", " { \"a\" : [ 1 , 2 ] } ", R"({"a":[1,2]})"},
    {"scalar at top level", "\"\\u5f20\\n\"", "\"\xE5\xBC\xA0\\n\""},
    {"integers beyond int64 stay unsigned", "18446744073709551615", "18446744073709551615"},
    {"negative integer", "-9223372036854775808", "-9223372036854775808"},
    {"double round-trips", "[0.1,1e-7,123456.789]", "[0.1,1e-07,123456.789]"},
    {"duplicate key keeps its first place", R"({"a":1,"b":2,"a":3})", R"({"a":3,"b":2})"},
    // Rows share their keys with the row of their size before them; an object
    // of that size inside a row must not take its place meanwhile.
    {"rows holding objects of their own size", R"([{"a":0,"b":0},{"a":{"x":0,"y":0},"b":0},{"a":0,"b":{"x":1,"y":1}}])",
     R"([{"a":0,"b":0},{"a":{"x":0,"y":0},"b":0},{"a":0,"b":{"x":1,"y":1}}])"},
    {"empty text", "", nullptr, "empty"},
    {"truncated object", R"({"a":[1,2)", nullptr, "malformed"},
    {"trailing comma", "[1,]", nullptr, "malformed"},
    {"bare word", "nul", nullptr, "malformed"},
    {"invalid UTF-8", "\"\xC3\x28\"", nullptr, "malformed"},
    {"two documents", "{} {}", nullptr, "malformed"},
    {"integer beyond 64 bits reads as a double", "[123456789012345678901234567890,-9223372036854775809]",
     "[1.2345678901234568e+29,-9223372036854775808]"},
    {"fractions beside a big integer keep their zeros", "[123456789012345678901234567890,1.0123456789012345678901234]",
     "[1.2345678901234568e+29,1.0123456789012346]"},
    {"a big integer alone", "123456789012345678901234567890", "1.2345678901234568e+29"},
    {"big digits before a fraction are a double already", "[123456789012345678901234567890,123456789012345678901234567890.5]",
     "[1.2345678901234568e+29,1.2345678901234568e+29]"},
    {"big digits inside text stay text", R"({"n":"123456789012345678901234567890"})", R"({"n":"123456789012345678901234567890"})"},
    {"a big integer does not excuse other errors", "[123456789012345678901234567890,]", nullptr, "malformed"},
    {"leading zeros stay refused", "[000000000000000000000000001]", nullptr, "malformed"},
    {"nesting at the limit", std::string(kJSONMaxDepth, '[') + std::string(kJSONMaxDepth, ']'), nullptr},
    {"nesting past the limit", std::string(kJSONMaxDepth + 1, '[') + std::string(kJSONMaxDepth + 1, ']'), nullptr, "nested deeper"},
};

TEST(JSON, Parse) {
    for (const ParseCase& c : kParseCases) {
        SCOPED_TRACE(c.name);
        if (c.written) {
            EXPECT_EQ(writeJSON(parseJSON(c.input)), c.written);
        } else if (*c.error == '\0') {
            EXPECT_NO_THROW(parseJSON(c.input));
        } else {
            try {
                parseJSON(c.input);
                ADD_FAILURE() << "parsed";
            } catch (const JSONError& e) {
                EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
            }
        }
    }
}

// Memory an earlier reply left behind must not change how keys compare: a long
// key given twice is one key, whatever bytes its arena held before.
TEST(JSON, DuplicateLongKeysWhateverCameBefore) {
    std::string earlier = "[";
    for (int i = 0; i < 2000; ++i) earlier += (i ? ",\"" : "\"") + std::string(40, static_cast<char>('a' + i % 26)) + "\"";
    for (int round = 0; round < 20; ++round) {
        { Value garbage = parseJSON(earlier + "]"); }
        Value v = parseJSON(R"({"a key longer than fifteen":1,"b":2,"a key longer than fifteen":3,"another long key, too":4,"another long key, too":5})");
        ASSERT_EQ(writeJSON(v), R"({"a key longer than fifteen":3,"b":2,"another long key, too":5})") << "round " << round;
    }
}

TEST(JSON, NumberKindsFromText) {
    Dictionary d = parseJSON(R"({"i":7,"u":18446744073709551615,"d":7.5})").asDictionary();
    EXPECT_EQ(d.find("i")->asNumber().kind(), Number::Kind::Long);
    EXPECT_EQ(d.find("u")->asNumber().kind(), Number::Kind::UnsignedLong);
    EXPECT_EQ(d.find("d")->asNumber().kind(), Number::Kind::Double);
}

struct WriteCase {
    const char* name;
    Value value;
    const char* written;  // nullptr when the writer must refuse
};

const WriteCase kWriteCases[] = {
    {"float prints in its own precision", Array{NSBoxFloat(0.1f), NSBoxFloat(1.0f / 3)}, "[0.1,0.33333334]"},
    {"double prints shortest", Array{NSBoxDouble(1.0 / 3), NSBoxDouble(42.0)}, "[0.3333333333333333,42]"},
    {"escapes", Value(std::string("q\" b\\ \x01 \t /")), R"("q\" b\\ \u0001 \t /")"},
    {"UTF-8 as is", Value("张三"), "\"张三\""},
    {"guarded nothing is null", Dictionary{{"a", NSGuardNil(std::optional<Value>())}}, R"({"a":null})"},
    {"NaN is refused", NSBoxDouble(std::nan("")), nullptr},
    {"infinity is refused", Array{NSBoxFloat(std::numeric_limits<float>::infinity())}, nullptr},
    {"invalid UTF-8 is refused", Value(std::string("\xFF")), nullptr},
    // Each edge of the UTF-8 ranges: the first valid sequence and the last invalid one.
    {"U+0080, the first of two bytes", Value(std::string("\xC2\x80")), "\"\xC2\x80\""},
    {"an overlong two bytes", Value(std::string("\xC1\xBF")), nullptr},
    {"U+0800, the first of three", Value(std::string("\xE0\xA0\x80")), "\"\xE0\xA0\x80\""},
    {"an overlong three bytes", Value(std::string("\xE0\x9F\xBF")), nullptr},
    {"U+D7FF, before the surrogates", Value(std::string("\xED\x9F\xBF")), "\"\xED\x9F\xBF\""},
    {"a surrogate", Value(std::string("\xED\xA0\x80")), nullptr},
    {"U+10000, the first of four", Value(std::string("\xF0\x90\x80\x80")), "\"\xF0\x90\x80\x80\""},
    {"an overlong four bytes", Value(std::string("\xF0\x8F\xBF\xBF" "a")), nullptr},
    {"U+10FFFF, the last", Value(std::string("\xF4\x8F\xBF\xBF")), "\"\xF4\x8F\xBF\xBF\""},
    {"beyond U+10FFFF", Value(std::string("\xF4\x90\x80\x80")), nullptr},
    {"a sequence cut short", Value(std::string("\xE5\xBC")), nullptr},
};

TEST(JSON, Write) {
    for (const WriteCase& c : kWriteCases) {
        SCOPED_TRACE(c.name);
        if (c.written) EXPECT_EQ(writeJSON(c.value), c.written);
        else EXPECT_THROW(writeJSON(c.value), JSONError);
    }
}

TEST(JSON, WrittenNumbersReadBackToTheSameValue) {
    const double doubles[] = {0.1, 1e-300, 5e-324, 1.7976931348623157e308, -0.0, 123456789.123456789};
    for (double d : doubles) EXPECT_EQ(parseJSON(writeJSON(NSBoxDouble(d))).doubleValue(), d);
    const float floats[] = {0.1f, 3.4028235e38f, 1e-45f, 16777217.0f};
    for (float f : floats) EXPECT_EQ(static_cast<float>(parseJSON(writeJSON(NSBoxFloat(f))).doubleValue()), f);
}

// Whatever the writer writes, the reader reads back as the same value: the
// settings store relies on it to never report a write it cannot read.
TEST(JSON, WriterAndReaderAgree) {
    const double wholeDoubles[] = {1e19, 18446744073709551616.0, 123456789012345680000.0, 1e21, -1e19, -9223372036854775808.0};
    for (double d : wholeDoubles) {
        SCOPED_TRACE(d);
        Value read = parseJSON(writeJSON(NSBoxDouble(d)));
        EXPECT_EQ(read.doubleValue(), d);
        EXPECT_EQ(read, NSBoxDouble(d));
    }
    auto nested = [](size_t depth) {
        Value v = Array();
        for (size_t i = 1; i < depth; ++i) v = Array{v};
        return v;
    };
    EXPECT_EQ(parseJSON(writeJSON(nested(kJSONMaxDepth))), nested(kJSONMaxDepth));
    EXPECT_THROW(writeJSON(nested(kJSONMaxDepth + 1)), JSONError);
}

TEST(JSON, ContainerThatHoldsItselfIsRefusedNotOverflowed) {
    Array loop;
    loop.push_back(loop);
    EXPECT_THROW(writeJSON(loop), JSONError);
    EXPECT_NE(describe(loop).find("..."), std::string::npos);
    loop.set(0, Value());  // shared handles cannot free a cycle: the holder breaks it
}

TEST(JSON, DescribeIsOneReadableLine) {
    EXPECT_EQ(describe(parseJSON(R"({"a":[1,"x"],"b":null})")), R"({"a": [1, "x"], "b": null})");
    EXPECT_EQ(describe(Value("plain")), "plain");
    EXPECT_EQ(describe(NSBoxDouble(std::nan(""))), "nan");
    EXPECT_EQ(describeOrNull(std::optional<Value>()), "(null)");
    EXPECT_EQ(describe(Array{Value("\xF0\x8F\xBF\xBF")}), "[\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"]")
        << "each byte of an overlong sequence stands for itself";
}

} // namespace
} // namespace veltrane
