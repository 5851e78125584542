// JSON reading with simdjson's DOM parser, and the compact writer.
#include "foundation/JSON.h"

#include <cmath>
#include <simdjson.h>

namespace veltrane {

namespace {

// The parse has validated the document, so a typed get fails only on a
// simdjson defect; it is still reported, never ignored.
template <class T>
T get(simdjson::dom::element e) {
    T v{};
    if (auto error = e.get(v)) throw JSONError(std::string("malformed JSON: ") + simdjson::error_message(error));
    return v;
}

Value fromElement(simdjson::dom::element e) {
    using T = simdjson::dom::element_type;
    switch (e.type()) {
    case T::ARRAY: {
        auto a = get<simdjson::dom::array>(e);
        Array out;
        out.reserve(a.size());
        for (simdjson::dom::element child : a) out.push_back(fromElement(child));
        return out;
    }
    case T::OBJECT: {
        auto o = get<simdjson::dom::object>(e);
        Dictionary out;
        out.reserve(o.size());
        for (simdjson::dom::key_value_pair field : o) out.set(field.key, fromElement(field.value));
        return out;
    }
    case T::INT64: return Value(static_cast<long>(get<int64_t>(e)));
    case T::UINT64: return Value(static_cast<unsigned long>(get<uint64_t>(e)));
    case T::DOUBLE: return Value(get<double>(e));
    case T::STRING: return Value(get<std::string_view>(e));
    case T::BOOL: return Value(get<bool>(e));
    case T::NULL_VALUE: return Value();
    }
    return Value();
}

struct ThreadParser {
    simdjson::dom::parser parser;
    ThreadParser() {
        // Keep the depth limit when the parser grows its capacity later.
        if (parser.allocate(64 * 1024, kJSONMaxDepth) != simdjson::SUCCESS) throw JSONError("out of memory");
    }
};

// Whether an integer literal (digits with an optional minus sign) lies
// beyond the 64-bit range: above 2^64-1, or below -2^63.
bool beyond64Bits(std::string_view literal) {
    bool negative = !literal.empty() && literal.front() == '-';
    std::string_view digits = literal.substr(negative ? 1 : 0);
    std::string_view limit = negative ? "9223372036854775808" : "18446744073709551615";
    return digits.size() > limit.size() || (digits.size() == limit.size() && digits > limit);
}

// The text with every integer literal beyond 64 bits turned into a double
// literal (".0" appended), so that it reads as the nearest double, as other
// JSON readers do. Nothing when the text has no such literal. Strings are
// skipped; anything malformed is left for the parser to refuse.
std::optional<std::string> widenBigIntegers(std::string_view text) {
    std::string out;
    size_t copied = 0;
    for (size_t i = 0; i < text.size();) {
        char c = text[i];
        if (c == '"') {
            for (++i; i < text.size() && text[i] != '"'; ++i)
                if (text[i] == '\\') ++i;
            ++i;
            continue;
        }
        if (c != '-' && (c < '0' || c > '9')) {
            ++i;
            continue;
        }
        size_t start = i++;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
        bool integer = i == text.size() || (text[i] != '.' && text[i] != 'e' && text[i] != 'E');
        if (integer && beyond64Bits(text.substr(start, i - start))) {
            out.append(text, copied, i - copied);
            out += ".0";
            copied = i;
        }
        while (i < text.size() && (text[i] == '.' || text[i] == 'e' || text[i] == 'E' || text[i] == '+' || text[i] == '-' ||
                                   (text[i] >= '0' && text[i] <= '9')))
            ++i;
    }
    if (copied == 0) return std::nullopt;
    out.append(text, copied);
    return out;
}

[[noreturn]] void refuse(simdjson::error_code error) {
    if (error == simdjson::DEPTH_ERROR) throw JSONError("JSON nested deeper than " + std::to_string(kJSONMaxDepth) + " levels");
    if (error == simdjson::EMPTY) throw JSONError("empty JSON text");
    throw JSONError(std::string("malformed JSON: ") + simdjson::error_message(error));
}

} // namespace

Value parseJSON(std::string_view text) {
    thread_local ThreadParser tp;
    simdjson::dom::element root;
    // The parser copies the text into its own padded buffer.
    auto error = tp.parser.parse(text.data(), text.size(), true).get(root);
    if (error == simdjson::NUMBER_ERROR) {
        // simdjson refuses integers beyond 64 bits; read them as doubles.
        if (std::optional<std::string> widened = widenBigIntegers(text)) {
            if (auto again = tp.parser.parse(widened->data(), widened->size(), true).get(root)) refuse(again);
            return fromElement(root);
        }
    }
    if (error) refuse(error);
    return fromElement(root);
}

// ---- Writing ---------------------------------------------------------------

namespace {

// Length of the valid UTF-8 sequence at s[i], or 0 when it is not valid.
size_t utf8SequenceLength(std::string_view s, size_t i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = byte(i);
    if (c < 0x80) return 1;
    size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
    if (n == 0 || c > 0xF4 || i + n > s.size()) return 0;
    for (size_t k = 1; k < n; ++k)
        if ((byte(i + k) & 0xC0) != 0x80) return 0;
    unsigned char c1 = byte(i + 1);
    if (c == 0xE0 && c1 < 0xA0) return 0;  // overlong
    if (c == 0xED && c1 >= 0xA0) return 0; // surrogate
    if (c == 0xF0 && c1 < 0x90) return 0;  // overlong
    if (c == 0xF4 && c1 >= 0x90) return 0; // beyond U+10FFFF
    return n;
}

void writeString(std::string& out, std::string_view s, bool strict) {
    static const char* hex = "0123456789abcdef";
    out += '"';
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c >= 0x80) {
            size_t n = utf8SequenceLength(s, i);
            if (n == 0) {
                if (strict) throw JSONError("text is not valid UTF-8");
                out += "\xEF\xBF\xBD";
                ++i;
                continue;
            }
            out.append(s, i, n);
            i += n;
            continue;
        }
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        default:
            if (c < 0x20) {
                out += "\\u00";
                out += hex[c >> 4];
                out += hex[c & 15];
            } else {
                out += static_cast<char>(c);
            }
        }
        ++i;
    }
    out += '"';
}

// strict: the JSON writer (refuses what JSON cannot hold); otherwise the
// description (renders everything, with blanks for reading).
void write(std::string& out, const Value& v, bool strict, size_t depth) {
    if (depth >= kJSONMaxDepth && (v.isArray() || v.isDictionary())) {
        // Deeper than any reader accepts, or a container that holds itself.
        if (strict) throw JSONError("value nested deeper than " + std::to_string(kJSONMaxDepth) + " levels");
        out += "...";
        return;
    }
    switch (v.type()) {
    case Value::Type::Null: out += "null"; return;
    case Value::Type::Boolean: out += v.asBool() ? "true" : "false"; return;
    case Value::Type::Number: {
        const Number& n = v.asNumber();
        if (strict && n.isFloating() && !std::isfinite(n.doubleValue()))
            throw JSONError("JSON cannot hold the number " + n.text());
        out += n.text();
        return;
    }
    case Value::Type::String:
        if (!strict && depth == 0) out += v.asString();
        else writeString(out, v.asString(), strict);
        return;
    case Value::Type::Array: {
        out += '[';
        bool first = true;
        for (const Value& e : v.asArray()) {
            if (!first) out += strict ? "," : ", ";
            first = false;
            write(out, e, strict, depth + 1);
        }
        out += ']';
        return;
    }
    case Value::Type::Dictionary: {
        out += '{';
        bool first = true;
        for (const auto& [key, value] : v.asDictionary()) {
            if (!first) out += strict ? "," : ", ";
            first = false;
            writeString(out, key, strict);
            out += strict ? ":" : ": ";
            write(out, value, strict, depth + 1);
        }
        out += '}';
        return;
    }
    }
}

} // namespace

std::string writeJSON(const Value& value) {
    std::string out;
    write(out, value, true, 0);
    return out;
}

std::string describe(const Value& value) {
    std::string out;
    write(out, value, false, 0);
    return out;
}

std::string describeOrNull(const std::optional<Value>& value) { return value ? describe(*value) : "(null)"; }

} // namespace veltrane
