// The reader against an independent one (nlohmann::json, ordered) on a corpus
// of replies and of mutations of them: both accept and refuse the same texts
// (up to the nesting limit, which only ours has) and read the same values,
// keys in the same order, a key given twice at its first place with its last
// value, number kinds alike (integers as integers, others as doubles).
#include <nlohmann/json.hpp>

#include <random>

#include "veltrane/foundation/JSON.h"
#include "sandbox/Seed.h"
#include "support/Harness.h"

namespace veltrane {
namespace {

using Reference = nlohmann::ordered_json;

// Empty when v and r are the same value; otherwise where they differ.
std::string difference(const Value& v, const Reference& r, const std::string& at = "$") {
    auto differs = [&](const std::string& what) { return at + ": " + what + " (ours " + describe(v) + ", theirs " + r.dump() + ")"; };
    switch (v.type()) {
    case Value::Type::Null: return r.is_null() ? "" : differs("kind");
    case Value::Type::Boolean: return r.is_boolean() && r.get<bool>() == v.asBool() ? "" : differs("boolean");
    case Value::Type::String: return r.is_string() && r.get_ref<const std::string&>() == v.asString() ? "" : differs("string");
    case Value::Type::Number: {
        Number n = v.asNumber();
        if (n.isFloating() != r.is_number_float() || !r.is_number()) return differs("number kind");
        if (r.is_number_float()) return r.get<double>() == n.doubleValue() ? "" : differs("double");
        if (r.is_number_unsigned()) return n.kind() != Number::Kind::Long || n.longValue() >= 0 ? (r.get<uint64_t>() == n.unsignedLongValue() ? "" : differs("integer")) : differs("sign");
        return r.get<int64_t>() == n.longValue() ? "" : differs("integer");
    }
    case Value::Type::Array: {
        if (!r.is_array() || r.size() != v.asArray().size()) return differs("array");
        for (size_t i = 0; i < r.size(); ++i)
            if (std::string d = difference(v.asArray()[i], r[i], at + "[" + std::to_string(i) + "]"); !d.empty()) return d;
        return "";
    }
    case Value::Type::Dictionary: {
        const Dictionary& d = v.asDictionary();
        if (!r.is_object() || r.size() != d.size()) return differs("object");
        auto theirs = r.items().begin();
        for (auto [key, value] : d) {
            if (theirs.key() != key) return differs("key order");
            if (std::string diff = difference(value, theirs.value(), at + "." + std::string(key)); !diff.empty()) return diff;
            ++theirs;
        }
        return "";
    }
    }
    return "unknown kind";
}

size_t nesting(const Reference& r) {
    size_t deepest = 0;
    if (r.is_structured())
        for (const auto& child : r) deepest = std::max(deepest, nesting(child));
    return deepest + (r.is_structured() ? 1 : 0);
}

// Texts both readers should agree on: every list of the sandbox's seed as a
// reply, and a page of each kind of row the library reads.
std::vector<std::string> corpus() {
    std::vector<std::string> texts{sandbox::seedText()};
    Value seed = parseJSON(sandbox::seedText());
    for (auto [name, list] : seed.asDictionary())
        texts.push_back(R"({"status":1,"info":"ok","data":)" + writeJSON(list) + "}");
    texts.push_back(R"({"count":2,"totalPages":1,"totalRows":2,"nowPage":1,"data":[{"ID":1,"Phone":"13900000000","Rank":2,"Prestore":"50"},)"
                    R"({"ID":2,"Phone":"13900000001","Rank":2,"Prestore":50,"ID":3}]})");
    texts.push_back(R"([18446744073709551616,-9223372036854775809,1e400,-0,0.0,1E-7,"\ud83d\ude00\u0000",{"":{"":[]}}])");
    return texts;
}

// A deterministic mutation of text: bytes flipped, removed, doubled, JSON
// punctuation and digits put in.
std::string mutate(std::string text, std::mt19937& random) {
    static const std::string pieces[] = {"{", "}", "[", "]", ",", ":", "\"", "\\", "0", "99999999999999999999", "-", "e", ".", "null",
                                         "\"a\":1,", "\xE5\xBC", "\xFF", " "};
    int edits = 1 + static_cast<int>(random() % 3);
    for (int i = 0; i < edits && !text.empty(); ++i) {
        size_t at = random() % text.size();
        switch (random() % 4) {
        case 0: text[at] = static_cast<char>(random()); break;
        case 1: text.erase(at, 1 + random() % 8); break;
        case 2: text.insert(at, pieces[random() % std::size(pieces)]); break;
        case 3: text.insert(at, text.substr(at, random() % 24)); break;
        }
    }
    return text;
}

TEST(JSONDifferential, SameValuesAndSameRefusalsAsAnIndependentReader) {
    std::mt19937 random(20261121);
    size_t compared = 0, refused = 0;
    for (const std::string& original : corpus()) {
        for (int round = 0; round < 400; ++round) {
            std::string text = round == 0 ? original : mutate(original, random);
            std::optional<Reference> theirs;
            try {
                theirs = Reference::parse(text);
            } catch (const nlohmann::json::exception&) {
            }
            if (theirs && nesting(*theirs) > kJSONMaxDepth) {
                EXPECT_THROW(parseJSON(text), JSONError) << text;
                continue;
            }
            try {
                Value ours = parseJSON(text);
                ASSERT_TRUE(theirs) << "only ours accepted: " << text;
                ASSERT_EQ(difference(ours, *theirs), "") << text;
                ++compared;
            } catch (const JSONError& e) {
                ASSERT_FALSE(theirs) << "only ours refused (" << e.what() << "): " << text;
                ++refused;
            }
        }
    }
    EXPECT_GT(compared, 500u);
    EXPECT_GT(refused, 500u);
}

} // namespace
} // namespace veltrane
