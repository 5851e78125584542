// JSON reading with simdjson's DOM parser, and the compact writer.
#include "veltrane/foundation/JSON.h"

#include <simdjson.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "veltrane/foundation/ValueNodes.h"

namespace veltrane {

namespace {

using detail::Builder;
using detail::DictNode;
using detail::StringNode;

// A thread's parser and the scratch space of reading one reply into values.
// Shapes and interned keys point into the reply being read; each read starts
// a new generation, which makes those of earlier replies stale.
struct ThreadParser {
    simdjson::dom::parser parser;
    uint64_t generation = 0;

    // The keys of the last object read of each size class (without
    // duplicates), so that the rows of a page, which share their keys, are
    // checked against the row before and then share its keys and index.
    struct Shape {
        uint64_t generation = 0;
        uint32_t size = 0;
        Value* keys = nullptr;
        const detail::Index* index = nullptr;
    };
    Shape shapes[32];

    // Long keys (over 15 bytes) of the reply, one node each.
    struct Interned {
        uint64_t generation = 0;
        uint64_t hash = 0;
        StringNode* node = nullptr;
    };
    std::vector<Interned> interned = std::vector<Interned>(256);
    size_t internedCount = 0;

    std::vector<uint32_t> seen;  // duplicate-key check of large objects

    // The text, copied with the padding simdjson reads past its end.
    std::unique_ptr<char[]> padded;
    size_t paddedCapacity = 0;

    // Beyond this, a reply's buffers are let go after it is read, so that one
    // large reply does not keep its memory in the thread for good.
    static constexpr size_t kKeptCapacity = 4u << 20;

    ThreadParser() { reset(); }

    void reset() {
        parser = simdjson::dom::parser();
        // Keep the depth limit when the parser grows its capacity later.
        if (parser.allocate(64 * 1024, kJSONMaxDepth) != simdjson::SUCCESS) throw JSONError("out of memory");
        padded.reset();
        paddedCapacity = 0;
    }

    // Parses text, copied into the padded buffer.
    simdjson::error_code parse(std::string_view text) {
        if (paddedCapacity < text.size() + simdjson::SIMDJSON_PADDING) {
            paddedCapacity = text.size() + simdjson::SIMDJSON_PADDING;
            padded.reset(new char[paddedCapacity]);
        }
        std::memcpy(padded.get(), text.data(), text.size());
        std::memset(padded.get() + text.size(), 0, simdjson::SIMDJSON_PADDING);
        simdjson::dom::element root;
        return parser.parse(padded.get(), text.size(), false).get(root);
    }
};

// Reads one validated document into values in an arena, straight from
// simdjson's tape: a word per value (two for numbers), the type in its top
// byte; a container's word holds its element count (saturated at 2^24 - 1)
// and the index just past its end; a string's, the offset of its length and
// bytes in the string buffer.
class Reader {
public:
    Reader(ThreadParser& tp, detail::Arena* arena)
        : tp_(tp), build_(arena), tape_(tp.parser.doc.tape.get()), strings_(tp.parser.doc.string_buf.get()) {
        ++tp_.generation;
        tp_.internedCount = 0;
    }

    // Reads the value at tape index i into at; returns the index after it.
    size_t value(size_t i, Value* at) {
        switch (static_cast<char>(tape_[i] >> 56)) {
        case '{': return object(i, at);
        case '[': return array(i, at);
        default: return scalar(i, at);
        }
    }

    // The same for a value that is not a container, in the loop of its
    // container: most values of a reply are such, and need no call.
    [[gnu::always_inline]] size_t scalar(size_t i, Value* at) {
        uint64_t word = tape_[i];
        switch (static_cast<char>(word >> 56)) {
        case '"': build_.string(at, stringAt(word)); return i + 1;
        case 'l': Builder::integer(at, static_cast<int64_t>(tape_[i + 1])); return i + 2;
        case 'u': Builder::unsignedInteger(at, tape_[i + 1]); return i + 2;
        case 'd': {
            double d;
            std::memcpy(&d, &tape_[i + 1], sizeof d);
            Builder::real(at, d);
            return i + 2;
        }
        case 't': Builder::boolean(at, true); return i + 1;
        case 'f': Builder::boolean(at, false); return i + 1;
        default: Builder::null(at); return i + 1;
        }
    }

    // An element or a field's value: a container by a call, anything else here.
    [[gnu::always_inline]] size_t member(size_t i, Value* at) {
        char type = static_cast<char>(tape_[i] >> 56);
        if (type == '{' || type == '[') return type == '{' ? object(i, at) : array(i, at);
        return scalar(i, at);
    }

    std::string_view stringAt(uint64_t word) const noexcept {
        const uint8_t* at = strings_ + (word & simdjson::internal::JSON_VALUE_MASK);
        uint32_t length;
        std::memcpy(&length, at, sizeof length);
        return {reinterpret_cast<const char*>(at + sizeof length), length};
    }

private:
    // The index past a value's end.
    size_t after(size_t i) const noexcept {
        switch (static_cast<char>(tape_[i] >> 56)) {
        case '{':
        case '[': return static_cast<uint32_t>(tape_[i]);
        case 'l':
        case 'u':
        case 'd': return i + 2;
        default: return i + 1;
        }
    }

    // How many elements (or fields) the container at i holds.
    uint32_t count(size_t i, bool object) const {
        uint32_t n = static_cast<uint32_t>((tape_[i] >> 32) & simdjson::internal::JSON_COUNT_MASK);
        if (n < simdjson::internal::JSON_COUNT_MASK) return n;
        size_t end = static_cast<uint32_t>(tape_[i]) - 1;
        uint64_t counted = 0;
        for (size_t at = i + 1; at < end; at = after(object ? at + 1 : at)) ++counted;
        if (counted > std::numeric_limits<uint32_t>::max()) throw JSONError("container too large");
        return static_cast<uint32_t>(counted);
    }

    size_t array(size_t i, Value* at) {
        uint32_t n = count(i, false);
        detail::ArrayNode* node = build_.array(at, n);
        size_t next = i + 1;
        for (uint32_t k = 0; k < n; ++k) next = member(next, &node->items[k]);
        node->size = n;
        return static_cast<uint32_t>(tape_[i]);
    }

    size_t object(size_t i, Value* at) {
        uint32_t n = count(i, true);
        DictNode* d = build_.dictionary(at, n);
        // A copy: the values read below may hold objects of this size, which
        // replace the shape remembered for it before this row is done.
        const ThreadParser::Shape shape = tp_.shapes[n & 31];
        bool sameShape = shape.generation == tp_.generation && shape.size == n;
        // While the keys are those of the shape, none is placed; at the first
        // that differs, the row gets keys of its own.
        Value* keys = sameShape ? nullptr : ownKeys(n);
        size_t next = i + 1;
        for (uint32_t k = 0; k < n; ++k) {
            std::string_view name = stringAt(tape_[next]);
            if (!keys && !matches(name, shape.keys[k])) {
                keys = ownKeys(n);
                std::memcpy(static_cast<void*>(keys), static_cast<const void*>(shape.keys), k * sizeof(Value));
            }
            if (keys) key(name, &keys[k]);
            next = member(next + 1, &d->values[k]);
        }
        d->size = n;
        if (!keys) {
            d->keys = shape.keys;
            d->index = shape.index;
        } else {
            d->keys = keys;
            if (hasDuplicates(d)) {
                keepFirstPlaceLastValue(d);
            } else {
                if (n > detail::kIndexedAbove) d->index = detail::buildArenaIndex(build_.arena(), keys, n);
                tp_.shapes[n & 31] = {tp_.generation, n, keys, d->index};
            }
        }
        return static_cast<uint32_t>(tape_[i]);
    }

    Value* ownKeys(uint32_t n) { return static_cast<Value*>(build_.arena()->allocate(size_t{n} * sizeof(Value))); }

    // Whether a key's text is that of a key placed earlier in this reply.
    static bool matches(std::string_view text, const Value& placed) noexcept {
        if (Builder::fitsInline(text.size())) return detail::sameImage(placed, detail::imageOf(text));
        std::optional<std::string_view> s = placed.stringIf();
        return s && *s == text;
    }

    // Places a key. Long keys are interned, so that one reply holds each only
    // once and keys of one reply are equal exactly when their bits are.
    void key(std::string_view text, Value* at) {
        if (Builder::fitsInline(text.size())) build_.string(at, text);
        else Builder::stringNode(at, intern(text));
    }

    StringNode* intern(std::string_view text) {
        if (tp_.internedCount * 2 >= tp_.interned.size()) {
            std::vector<ThreadParser::Interned> grown(tp_.interned.size() * 2);
            for (const auto& i : tp_.interned)
                if (i.generation == tp_.generation) place(grown, i);
            tp_.interned.swap(grown);
        }
        uint64_t hash = detail::hashKey(text);
        size_t mask = tp_.interned.size() - 1;
        for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
            ThreadParser::Interned& i = tp_.interned[slot];
            if (i.generation != tp_.generation) {
                i = {tp_.generation, hash, build_.stringNode(text)};
                ++tp_.internedCount;
                return i.node;
            }
            if (i.hash == hash && i.node->view() == text) return i.node;
        }
    }
    static void place(std::vector<ThreadParser::Interned>& table, const ThreadParser::Interned& i) {
        size_t mask = table.size() - 1;
        size_t slot = i.hash & mask;
        while (table[slot].generation == i.generation) slot = (slot + 1) & mask;
        table[slot] = i;
    }

    // Keys of one reply are equal exactly when their bits are (interning).
    bool hasDuplicates(const DictNode* d) {
        const uint32_t n = d->size;
        const Value* keys = d->keys;
        if (n <= 8) {
            for (uint32_t i = 1; i < n; ++i)
                for (uint32_t j = 0; j < i; ++j)
                    if (Builder::sameBits(keys[i], keys[j])) return true;
            return false;
        }
        uint32_t capacity = 16;
        while (capacity < n * 2) capacity *= 2;
        tp_.seen.assign(capacity, 0);
        for (uint32_t i = 0; i < n; ++i) {
            uint32_t slot = static_cast<uint32_t>(detail::hashKey(keys[i].asString())) & (capacity - 1);
            for (; tp_.seen[slot]; slot = (slot + 1) & (capacity - 1))
                if (Builder::sameBits(keys[tp_.seen[slot] - 1], keys[i])) return true;
            tp_.seen[slot] = i + 1;
        }
        return false;
    }

    // A key given twice keeps its first place and takes its last value. The
    // keys are the dictionary's own (a shape is recorded only without
    // duplicates); a large one gets its index after.
    void keepFirstPlaceLastValue(DictNode* d) {
        uint32_t kept = 0;
        for (uint32_t i = 0; i < d->size; ++i) {
            uint32_t first = 0;
            while (first < kept && !Builder::sameBits(d->keys[first], d->keys[i])) ++first;
            if (first == kept) {
                std::memcpy(static_cast<void*>(&d->keys[kept]), static_cast<const void*>(&d->keys[i]), sizeof(Value));
                ++kept;
            }
            std::memcpy(static_cast<void*>(&d->values[first]), static_cast<const void*>(&d->values[i]), sizeof(Value));
        }
        d->size = kept;
        if (kept > detail::kIndexedAbove) d->index = detail::buildArenaIndex(build_.arena(), d->keys, kept);
    }

    ThreadParser& tp_;
    Builder build_;
    const uint64_t* tape_;
    const uint8_t* strings_;
};

constexpr size_t kShortReply = 16 * 1024;

// The arena's first block, from the tape's length and the text's: a number
// takes two tape words and becomes 16 bytes, a key one word and nothing when
// its row shares the keys of the row before, a container two words and a
// node; long strings take bytes of their own, a part of the text. Further
// blocks, a quarter of this each, make up for a low guess, so the arena
// holds little unused room whatever the reply's shape. A short reply (a page
// of ten rows) gets room for as many bytes again as its text: a second block
// would cost more than the few hundred bytes it may leave unused.
size_t arenaEstimate(const simdjson::dom::parser& parser, size_t textSize) {
    uint64_t tapeWords = parser.doc.tape[0] & simdjson::internal::JSON_VALUE_MASK;
    size_t strings = textSize < kShortReply ? textSize : textSize / 4;
    return static_cast<size_t>(tapeWords) * 9 + strings + 256;
}

// The document just parsed by tp's parser, as values. The tape starts with
// the root word; the document's value follows it.
Value fromDocument(ThreadParser& tp, size_t textSize) {
    const uint64_t* tape = tp.parser.doc.tape.get();
    char type = static_cast<char>(tape[1] >> 56);
    if (type != '{' && type != '[' && type != '"') {
        Value scalar;
        Reader(tp, nullptr).value(1, &scalar);
        return scalar;
    }
    if (type == '"') {
        std::string_view text = Reader(tp, nullptr).stringAt(tape[1]);
        if (Builder::fitsInline(text.size())) return Value(text);
    }
    detail::Arena* arena = detail::Arena::create(arenaEstimate(tp.parser, textSize));
    Value* built = static_cast<Value*>(arena->allocate(sizeof(Value)));
    try {
        Reader(tp, arena).value(1, built);
    } catch (...) {
        arena->release();
        throw;
    }
    return Builder::adoptRoot(built);
}

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
    struct ShrinkAfterLargeReplies {
        ThreadParser& tp;
        ~ShrinkAfterLargeReplies() {
            if (tp.paddedCapacity > ThreadParser::kKeptCapacity) tp.reset();
        }
    } shrink{tp};
    auto error = tp.parse(text);
    if (error == simdjson::NUMBER_ERROR) {
        // simdjson refuses integers beyond 64 bits; read them as doubles.
        if (std::optional<std::string> widened = widenBigIntegers(text)) {
            if (auto again = tp.parse(*widened)) refuse(again);
            return fromDocument(tp, widened->size());
        }
    }
    if (error) refuse(error);
    return fromDocument(tp, text.size());
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
