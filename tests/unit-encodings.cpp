// Percent-encodings, strict base64, and UTF-16 measurement of UTF-8 text.
#include <gtest/gtest.h>

#include "veltrane/platform/Encodings.h"

namespace veltrane {
namespace {

struct PercentCase {
    const char* text;
    const char* urlPath;
    const char* legacy;
    const char* form;
};

const PercentCase kPercentCases[] = {
    {"张 三", "%E5%BC%A0%20%E4%B8%89", "%E5%BC%A0%20%E4%B8%89", "%E5%BC%A0+%E4%B8%89"},
    {"a&b=c", "a&b=c", "a&b=c", "a%26b%3Dc"},
    {"x+y/z:@!$'()*,~", "x+y/z:@!$'()*,~", "x+y/z:@!$'()*,~", "x%2By%2Fz%3A%40%21%24%27%28%29*%2C%7E"},
    {"50%?#;", "50%25%3F%23%3B", "50%25?%23;", "50%25%3F%23%3B"},
    {"\"<>[]{}|\\^`", "%22%3C%3E%5B%5D%7B%7D%7C%5C%5E%60", "%22%3C%3E%5B%5D%7B%7D%7C%5C%5E%60", "%22%3C%3E%5B%5D%7B%7D%7C%5C%5E%60"},
    {"Phone-15_Pro.", "Phone-15_Pro.", "Phone-15_Pro.", "Phone-15_Pro."},
    {"azAZ09", "azAZ09", "azAZ09", "azAZ09"},  // the ends of each range of letters and digits
    {"`{@[/:", "%60%7B@%5B/:", "%60%7B@%5B/:", "%60%7B%40%5B%2F%3A"},  // and the characters just outside them
};

TEST(Encodings, PercentSets) {
    for (const PercentCase& c : kPercentCases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(percentEncodeURLPath(c.text), c.urlPath);
        EXPECT_EQ(percentEncodeLegacyURL(c.text), c.legacy);
        EXPECT_EQ(formURLEncode(c.text), c.form);
        EXPECT_EQ(percentDecode(formURLEncode(c.text), true), c.text);
        EXPECT_EQ(percentDecode(percentEncodeURLPath(c.text)), c.text);
    }
    EXPECT_EQ(percentDecode("%zz%4"), "%zz%4") << "malformed escapes stay";
}

struct Base64Case {
    std::string bytes;
    const char* text;
};

const Base64Case kBase64Cases[] = {
    {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {std::string("\xFB\xFF\x00", 3), "+/8A"},
};

TEST(Encodings, Base64RoundTrips) {
    for (const Base64Case& c : kBase64Cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(stringEncodedWithDataUsingBase64(c.bytes), c.text);
        EXPECT_EQ(base64DecodeStrict(c.text), c.bytes);
    }
}

TEST(Encodings, StrictBase64RefusesWhatIsNotCanonical) {
    for (const char* bad : {"Zg=", "Zm9v\nZm9v", "Zm9v ", "Z===", "Zg==Zg==", "Zm=v", "Zh==", "Zm9-", "====", "Zm9="}) {
        SCOPED_TRACE(bad);
        EXPECT_FALSE(base64DecodeStrict(bad));
    }
}

struct Utf16Case {
    const char* text;
    size_t length;
    size_t location, count;
    const char* slice;
};

const Utf16Case kUtf16Cases[] = {
    {"13912345678", 11, 3, 4, "1234"},
    {"张三丰", 3, 1, 2, "三丰"},
    {"a😀b", 4, 1, 2, "😀"},
    {"a😀b", 4, 2, 2, "\xEF\xBF\xBD" "b"},  // cut through a surrogate pair
    {"abc", 3, 3, 0, ""},
    {"\xFF" "a", 2, 1, 1, "a"},  // an invalid byte counts one unit
    {"a😀b", 4, 2, 0, ""},          // an empty range inside a pair keeps nothing
    {"😀😀", 4, 1, 2, "\xEF\xBF\xBD\xEF\xBF\xBD"},  // one unit of each pair
    {"abc", 3, 2, 2, "c"},          // a range past the end is cut to the text
    {"abc", 3, 4, 0, ""},
    {"\xC2\xA0\xC1\xBF", 3, 0, 1, "\xC2\xA0"},  // 0xC2 leads two bytes; 0xC1 is no lead at all
    {"\xF4\x8F\xBF\xBF\xF5\x80", 4, 0, 2, "\xF4\x8F\xBF\xBF"},  // 0xF4 leads four bytes; 0xF5 none
};

TEST(Encodings, Utf16UnitsOfUtf8Text) {
    for (const Utf16Case& c : kUtf16Cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(utf16Length(c.text), c.length);
        EXPECT_EQ(utf16Substring(c.text, c.location, c.count), c.slice);
    }
    EXPECT_EQ(utf16Substring("abc", 1, SIZE_MAX), "bc");
}

} // namespace
} // namespace veltrane
