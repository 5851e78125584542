// List conversion, pages built directly, and the exported symbols.
#include <cstring>

#include "veltrane/Veltrane.h"  // the umbrella header, so that it keeps compiling
#include "veltrane/foundation/DataPage.h"
#include "veltrane/foundation/ListConversion.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

class ListConversion : public test::GatewayTest {};

// Doubles "n"; throws for n == 0 (as a record throws on a bad element);
// returns nothing for n < 0.
std::optional<int> doubled(const Value& element) {
    int n = element.asDictionary().intValue("n");
    if (n == 0) throw ValueError("zero");
    if (n < 0) return std::nullopt;
    return 2 * n;
}

struct ConvertCase {
    const char* name;
    const char* receiver;
    std::vector<int> result;
    std::vector<std::string> logs;
};

const ConvertCase kConvertCases[] = {
    {"empty array", "[]", {}, {}},
    {"bad element in the middle is dropped and logged", R"([{"n":1},{"n":0},{"n":3}])", {2, 6}, {"array convert error:zero"}},
    {"nothing is dropped silently", R"([{"n":1},{"n":-1}])", {2}, {}},
    {"elements of any kind reach the block", R"([null,"s",{"n":2}])", {4}, {"array convert error:null is not a dictionary", "array convert error:a string is not a dictionary"}},
    {"a dictionary is walked by its keys", R"({"a":1,"b":2})", {}, {"array convert error:a string is not a dictionary", "array convert error:a string is not a dictionary"}},
};

TEST_F(ListConversion, ConvertsWhatItCanInOrder) {
    for (const ConvertCase& c : kConvertCases) {
        SCOPED_TRACE(c.name);
        logLines.clear();
        EXPECT_EQ(arrayByConvertElementsUsingBlock(parseJSON(c.receiver), doubled), c.result);
        EXPECT_EQ(logLines, c.logs);
    }
}

TEST_F(ListConversion, ScalarsThrowBeforeAnyElement) {
    for (const char* scalar : {"\"text\"", "12", "true", "null"}) {
        SCOPED_TRACE(scalar);
        int calls = 0;
        auto counting = [&](const Value&) -> std::optional<int> { return ++calls; };
        EXPECT_THROW(arrayByConvertElementsUsingBlock(parseJSON(scalar), counting), ValueError);
        EXPECT_EQ(calls, 0);
    }
}

TEST(Pages, WithoutConversionKeepNoRows) {
    Dictionary envelope = test::dict(R"({"count":9,"nowPage":"2","data":[{"n":1}]})");
    DataPage<int> page(envelope, {});
    EXPECT_EQ(page.count(), 9);  // not checked against the rows
    EXPECT_EQ(page.currentPage(), 2);
    EXPECT_FALSE(page.data().has_value());
    DataPage<int> converted(envelope, [](const Value& v) { return doubled(v); });
    EXPECT_EQ(converted.data(), std::vector<int>{2});
    EXPECT_THROW(DataPage<int>(test::dict(R"({"data":[{"n":-1}]})"), [](const Value& v) { return doubled(v); }), ValueError);
}

TEST(Version, SymbolsLetterForLetter) {
    EXPECT_EQ(VeltraneVersionNumber, 1.0);
    EXPECT_STREQ(reinterpret_cast<const char*>(VeltraneVersionString), "@(#)PROGRAM:Veltrane  PROJECT:Veltrane-1\n");
}

} // namespace
} // namespace veltrane
