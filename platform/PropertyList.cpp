// Property lists read exactly, in both formats: the binary one here, checked
// as it is read; XML through expat. Integers keep their whole 64-bit range,
// signed or unsigned; dates keep their fraction, whatever the year.
#include "veltrane/platform/PropertyList.h"

#include <expat.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <vector>

#include "veltrane/foundation/Log.h"
#include "veltrane/platform/Encodings.h"
#include "veltrane/platform/HTTPSession.h"

namespace veltrane {

namespace {

// Seconds between 1970-01-01 and the property-list epoch 2001-01-01.
constexpr double kPlistEpoch = 978307200.0;
constexpr size_t kMaxDepth = 256;
// How many values a property list may make: a binary list may refer to one
// object many times, and each reference is read as a copy of its own.
constexpr uint64_t kMaxValues = 1u << 20;

// Why a property list is refused: thrown inside the readers, caught once.
struct Refusal {
    std::string why;
};
[[noreturn]] void refuse(std::string why) { throw Refusal{std::move(why)}; }

// One value read, and its property-list kind ("string", "date", an array or
// dictionary of kinds...) when kinds are asked for.
struct Read {
    Value value;
    Value kind;
};

// Makes the values of one reading, counting them against kMaxValues.
class Builder {
public:
    explicit Builder(bool kinds) : kinds_(kinds) {}

    Read leaf(Value value, const char* kind) {
        count(1);
        return {std::move(value), kinds_ ? Value(kind) : Value()};
    }
    Read array(std::vector<Read>& items) {
        count(1);
        Array values, kinds;
        values.reserve(items.size());
        for (Read& item : items) {
            values.push_back(std::move(item.value));
            if (kinds_) kinds.push_back(std::move(item.kind));
        }
        return {std::move(values), kinds_ ? Value(std::move(kinds)) : Value()};
    }
    // Entries in order; a key given twice keeps its first place and its last value.
    Read dictionary(std::vector<std::pair<std::string, Read>>& entries) {
        count(1);
        Dictionary values, kinds;
        values.reserve(entries.size());
        for (auto& [key, item] : entries) {
            values.set(key, std::move(item.value));
            if (kinds_) kinds.set(key, std::move(item.kind));
        }
        return {std::move(values), kinds_ ? Value(std::move(kinds)) : Value()};
    }
    // Refuses when n more values would pass the limit; count also counts them.
    void check(uint64_t n) const {
        if (n > kMaxValues - made_) refuse("expands to more than " + std::to_string(kMaxValues) + " values");
    }
    void count(uint64_t n) {
        check(n);
        made_ += n;
    }
    uint64_t made() const noexcept { return made_; }

private:
    bool kinds_;
    uint64_t made_ = 0;
};

// UTF-8 of one code point.
void appendUTF8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// ---- Binary ---------------------------------------------------------------------------

// Reads a binary property list ("bplist00"): the trailer and offset table lie
// inside the bytes, every object's contents too, references name existing
// objects, nesting stays within kMaxDepth without cycles, dictionary keys are
// text, and text holds no NUL character (XML cannot hold one, so neither
// format may).
class BinaryReader {
public:
    BinaryReader(std::string_view b, Builder& build) : b_(b), build_(build) {}

    Read run() {
        if (b_.size() < 8 + 32) refuse("binary property list too short");
        std::string_view trailer = b_.substr(b_.size() - 32);
        offsetSize_ = static_cast<unsigned char>(trailer[6]);
        refSize_ = static_cast<unsigned char>(trailer[7]);
        count_ = bigEndian(b_.size() - 24, 8);
        uint64_t top = bigEndian(b_.size() - 16, 8);
        tableStart_ = bigEndian(b_.size() - 8, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) refuse("bad integer sizes in the trailer");
        uint64_t objectsEnd = b_.size() - 32;
        if (tableStart_ < 8 || tableStart_ > objectsEnd || count_ == 0 || count_ > (objectsEnd - tableStart_) / offsetSize_)
            refuse("offset table outside the property list");
        if (top >= count_) refuse("top object out of range");
        state_.assign(count_, {});
        return object(top, 0);
    }

private:
    struct ObjectState {
        bool onPath = false;  // being read: a reference to it is a cycle
        uint64_t values = 0;  // how many values reading it made, once read
    };

    uint64_t bigEndian(uint64_t at, unsigned size) const {
        uint64_t v = 0;
        for (unsigned i = 0; i < size; ++i) v = v << 8 | static_cast<unsigned char>(b_[at + i]);
        return v;
    }
    [[noreturn]] static void refuseAt(uint64_t object, const char* what) { refuse("object " + std::to_string(object) + ": " + what); }

    // Where an object starts.
    uint64_t offsetOf(uint64_t object) const {
        uint64_t at = bigEndian(tableStart_ + object * offsetSize_, offsetSize_);
        if (at < 8 || at >= tableStart_) refuseAt(object, "offset out of range");
        return at;
    }
    // Refuses unless bytes [at, at + n) lie before the offset table.
    void need(uint64_t at, uint64_t n, uint64_t object, const char* what) const {
        if (n > tableStart_ - at) refuseAt(object, what);
    }

    // The object's length: the marker's low nibble, or an integer object after it.
    uint64_t length(uint64_t& at, unsigned low, uint64_t object) const {
        if (low != 0xF) return low;
        need(at, 1, object, "bad length");
        unsigned char marker = static_cast<unsigned char>(b_[at++]);
        if ((marker & 0xF0) != 0x10 || (marker & 0x0F) > 3) refuseAt(object, "bad length");
        unsigned size = 1u << (marker & 0x0F);
        need(at, size, object, "bad length");
        uint64_t n = bigEndian(at, size);
        at += size;
        return n;
    }

    Read integer(uint64_t at, unsigned low, uint64_t object) {
        if (low > 4) refuseAt(object, "integer of an unknown size");
        unsigned size = 1u << low;
        need(at, size, object, "number outside the list");
        // 1, 2 and 4 bytes are unsigned, 8 are signed, 16 are a signed
        // 128-bit number that must fit 64 bits, signed or unsigned.
        if (size < 8) return build_.leaf(Value(static_cast<long>(bigEndian(at, size))), "integer");
        if (size == 8) return build_.leaf(Value(static_cast<long>(bigEndian(at, 8))), "integer");
        uint64_t high = bigEndian(at, 8), low64 = bigEndian(at + 8, 8);
        if (high == 0 && low64 > static_cast<uint64_t>(std::numeric_limits<long>::max()))
            return build_.leaf(Value(static_cast<unsigned long>(low64)), "integer");
        if ((high == 0 && !(low64 >> 63)) || (high == ~uint64_t{0} && (low64 >> 63)))
            return build_.leaf(Value(static_cast<long>(low64)), "integer");
        refuseAt(object, "integer beyond 64 bits");
    }

    Read real(uint64_t at, unsigned low, uint64_t object) {
        if (low != 2 && low != 3) refuseAt(object, "real of an unknown size");
        need(at, 1u << low, object, "number outside the list");
        if (low == 2) {
            uint32_t bits = static_cast<uint32_t>(bigEndian(at, 4));
            float f;
            std::memcpy(&f, &bits, sizeof f);
            return build_.leaf(Value(static_cast<double>(f)), "real");
        }
        uint64_t bits = bigEndian(at, 8);
        double d;
        std::memcpy(&d, &bits, sizeof d);
        return build_.leaf(Value(d), "real");
    }

    // ASCII (one byte a character) or UTF-16 big-endian text, as UTF-8.
    std::string text(uint64_t at, unsigned type, uint64_t n, uint64_t object) const {
        std::string out;
        if (type == 0x5) {
            need(at, n, object, "text or data outside the list");
            out.assign(b_.substr(at, n));
            for (unsigned char c : out) {
                if (c == 0) refuseAt(object, "text holds a NUL character");
                if (c >= 0x80) refuseAt(object, "ASCII text holds a byte above 0x7F");
            }
            return out;
        }
        if (n > tableStart_) refuseAt(object, "text or data outside the list");
        need(at, n * 2, object, "text or data outside the list");
        out.reserve(n);
        for (uint64_t i = 0; i < n; ++i) {
            uint32_t unit = static_cast<uint32_t>(bigEndian(at + 2 * i, 2));
            if (unit == 0) refuseAt(object, "text holds a NUL character");
            if (unit >= 0xDC00 && unit <= 0xDFFF) refuseAt(object, "text holds half a surrogate pair");
            if (unit >= 0xD800 && unit <= 0xDBFF) {
                uint32_t next = i + 1 < n ? static_cast<uint32_t>(bigEndian(at + 2 * (i + 1), 2)) : 0;
                if (next < 0xDC00 || next > 0xDFFF) refuseAt(object, "text holds half a surrogate pair");
                unit = 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
                ++i;
            }
            appendUTF8(out, unit);
        }
        return out;
    }

    // A dictionary key: an ASCII or UTF-16 text object.
    std::string key(uint64_t key, uint64_t dictionary) {
        uint64_t at = offsetOf(key);
        unsigned char marker = static_cast<unsigned char>(b_[at++]);
        unsigned type = marker >> 4;
        if (type != 0x5 && type != 0x6) refuseAt(dictionary, "dictionary key is not text");
        uint64_t n = length(at, marker & 0x0F, key);  // advances at past the length
        return text(at, type, n, key);
    }

    Read object(uint64_t object, size_t depth) {
        ObjectState& state = state_[object];
        if (state.onPath) refuseAt(object, "refers to itself");
        if (depth > kMaxDepth) refuse("nested deeper than " + std::to_string(kMaxDepth) + " levels");
        // Read before: refuse at once when another copy would pass the limit.
        build_.check(state.values);
        uint64_t before = build_.made();
        uint64_t at = offsetOf(object);
        unsigned char marker = static_cast<unsigned char>(b_[at++]);
        unsigned type = marker >> 4, low = marker & 0x0F;
        Read read;
        switch (type) {
        case 0x0:
            if (low == 0x0) read = build_.leaf(Value(), "null");
            else if (low == 0x8 || low == 0x9) read = build_.leaf(Value(low == 0x9), "boolean");
            else refuseAt(object, "unknown marker");
            break;
        case 0x1: read = integer(at, low, object); break;
        case 0x2: read = real(at, low, object); break;
        case 0x3: {
            if (low != 3) refuseAt(object, "unknown marker");
            need(at, 8, object, "date outside the list");
            uint64_t bits = bigEndian(at, 8);
            double sinceEpoch;
            std::memcpy(&sinceEpoch, &bits, sizeof sinceEpoch);
            read = build_.leaf(Value(kPlistEpoch + sinceEpoch), "date");
            break;
        }
        case 0x4: {
            uint64_t n = length(at, low, object);
            need(at, n, object, "text or data outside the list");
            read = build_.leaf(Value(base64Encode(b_.substr(at, n))), "data");
            break;
        }
        case 0x5:
        case 0x6: {
            uint64_t n = length(at, low, object);  // advances at past the length
            read = build_.leaf(Value(text(at, type, n, object)), "string");
            break;
        }
        case 0x8:
            if (low > 7) refuseAt(object, "UID beyond 64 bits");
            need(at, low + 1, object, "UID outside the list");
            read = build_.leaf(Value(static_cast<unsigned long>(bigEndian(at, low + 1))), "uid");
            break;
        case 0xA:
        case 0xC:
        case 0xD: {
            uint64_t n = length(at, low, object);
            uint64_t refs = type == 0xD ? n * 2 : n;
            if (n > tableStart_ || refs > (tableStart_ - at) / refSize_) refuseAt(object, "references outside the list");
            auto reference = [&](uint64_t i) {
                uint64_t child = bigEndian(at + i * refSize_, refSize_);
                if (child >= count_) refuseAt(object, "refers to a missing object");
                return child;
            };
            state.onPath = true;
            if (type == 0xD) {
                std::vector<std::pair<std::string, Read>> entries;
                entries.reserve(n);
                for (uint64_t i = 0; i < n; ++i) {
                    std::string k = key(reference(i), object);
                    entries.emplace_back(std::move(k), this->object(reference(n + i), depth + 1));
                }
                read = build_.dictionary(entries);
            } else {
                std::vector<Read> items;
                items.reserve(n);
                for (uint64_t i = 0; i < n; ++i) items.push_back(this->object(reference(i), depth + 1));
                read = build_.array(items);
            }
            state_[object].onPath = false;
            break;
        }
        default: refuseAt(object, "unknown marker");
        }
        state_[object].values = build_.made() - before;
        return read;
    }

    std::string_view b_;
    Builder& build_;
    unsigned offsetSize_ = 0, refSize_ = 0;
    uint64_t count_ = 0, tableStart_ = 0;
    std::vector<ObjectState> state_;
};

// ---- XML ----------------------------------------------------------------------------

bool isXMLSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isXMLSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isXMLSpace(text.back())) text.remove_suffix(1);
    return text;
}

// An <integer>: decimal or 0x-hexadecimal with an optional sign, from -2^63
// to 2^64 - 1; negative values and those up to 2^63 - 1 are signed.
Value integerOf(std::string_view text) {
    std::string_view t = trimmed(text);
    bool negative = !t.empty() && t.front() == '-';
    if (!t.empty() && (t.front() == '-' || t.front() == '+')) t.remove_prefix(1);
    int base = 10;
    if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
        base = 16;
        t.remove_prefix(2);
    }
    uint64_t magnitude = 0;
    auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), magnitude, base);
    if (t.empty() || end != t.data() + t.size()) refuse("integer \"" + std::string(text) + "\" is not a number");
    constexpr uint64_t kLongMax = static_cast<uint64_t>(std::numeric_limits<long>::max());
    if (error == std::errc::result_out_of_range || (negative && magnitude > kLongMax + 1))
        refuse("integer " + std::string(trimmed(text)) + " beyond 64 bits");
    if (negative) return Value(static_cast<long>(0 - magnitude));  // modular: -2^63 included
    if (magnitude > kLongMax) return Value(static_cast<unsigned long>(magnitude));
    return Value(static_cast<long>(magnitude));
}

// A <real>: a decimal number, or nan and inf in any case, with an optional sign.
Value realOf(std::string_view text) {
    std::string_view t = trimmed(text);
    bool negative = !t.empty() && t.front() == '-';
    std::string_view digits = !t.empty() && (t.front() == '-' || t.front() == '+') ? t.substr(1) : t;
    std::string lower(digits);
    for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    if (lower == "nan") return Value(std::numeric_limits<double>::quiet_NaN());
    if (lower == "inf" || lower == "infinity") return Value(negative ? -HUGE_VAL : HUGE_VAL);
    double d = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), d);
    if (digits.empty() || end != digits.data() + digits.size() || error == std::errc::invalid_argument)
        refuse("real \"" + std::string(text) + "\" is not a number");
    if (error == std::errc::result_out_of_range) refuse("real " + std::string(t) + " beyond a double");
    return Value(negative ? -d : d);
}

long daysFromCivil(long y, unsigned m, unsigned d) {
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<long>(doe) - 719468;
}

// A <date>, as seconds since 1970: YYYY[-MM[-DD[THH[:MM[:SS[.fraction]]]]]]Z in UTC.
Value dateOf(std::string_view text) {
    std::string_view t = trimmed(text);
    auto bad = [&]() -> Value { refuse("date \"" + std::string(text) + "\" is not YYYY-MM-DDTHH:MM:SSZ"); };
    size_t at = 0;
    auto field = [&](size_t digits, char before, long& out) {
        if (before && (at >= t.size() || t[at] != before)) return false;
        size_t start = at + (before ? 1 : 0);
        if (t.size() < start + digits) return false;
        auto [end, error] = std::from_chars(t.data() + start, t.data() + start + digits, out);
        if (error != std::errc() || end != t.data() + start + digits) return false;
        at = start + digits;
        return true;
    };
    long year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
    if (!field(4, 0, year)) return bad();
    (void)(field(2, '-', month) && field(2, '-', day) && field(2, 'T', hour) && field(2, ':', minute) && field(2, ':', second));
    double fraction = 0;
    if (at < t.size() && t[at] == '.') {
        size_t start = at;
        while (++at < t.size() && t[at] >= '0' && t[at] <= '9') {}
        std::string digits = "0" + std::string(t.substr(start, at - start));
        if (digits.size() == 2) return bad();
        std::from_chars(digits.data(), digits.data() + digits.size(), fraction);
    }
    if (at + 1 != t.size() || t[at] != 'Z') return bad();
    static const unsigned kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    if (month < 1 || month > 12 || day < 1 || static_cast<unsigned long>(day) > kDays[month - 1] || (month == 2 && day == 29 && !leap) ||
        hour > 23 || minute > 59 || second > 59)
        return bad();
    long days = daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    return Value(static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second) + fraction);
}

// <data>: base64, blanks and line breaks allowed anywhere; kept as canonical base64 text.
Value dataOf(std::string_view text) {
    std::string compact;
    for (char c : text)
        if (!isXMLSpace(c)) compact += c;
    std::optional<std::string> bytes = base64DecodeStrict(compact);
    if (!bytes) refuse("data is not base64");
    return Value(base64Encode(*bytes));
}

// Reads an XML property list with expat: <plist> holding one value; no
// entity declarations (so no entity can expand without bound); nesting within
// kMaxDepth.
class XMLReader {
public:
    XMLReader(std::string_view xml, Builder& build) : xml_(xml), build_(build), parser_(XML_ParserCreate(nullptr)) {
        if (!parser_) throw std::bad_alloc();
        XML_SetUserData(parser_, this);
        XML_SetElementHandler(parser_, start, end);
        XML_SetCharacterDataHandler(parser_, characters);
        XML_SetEntityDeclHandler(parser_, entityDeclaration);
    }
    ~XMLReader() { XML_ParserFree(parser_); }
    XMLReader(const XMLReader&) = delete;
    XMLReader& operator=(const XMLReader&) = delete;

    Read run() {
        // XML has no NUL character; say so rather than expat's "invalid token".
        if (xml_.find('\0') != std::string_view::npos) refuse("text holds a NUL character");
        if (XML_Parse(parser_, xml_.data(), static_cast<int>(xml_.size()), XML_TRUE) == XML_STATUS_ERROR && !problem_)
            problem_ = std::string("not a property list: ") + XML_ErrorString(XML_GetErrorCode(parser_)) + " at line " +
                       std::to_string(XML_GetCurrentLineNumber(parser_));
        if (problem_) refuse(*problem_);
        if (!result_) refuse("not a property list");
        return std::move(*result_);
    }

private:
    enum class Element { plist, dict, array, key, string, integer, real, date, data, boolean };

    struct Frame {
        Element element;
        bool truth = false;  // for <true/>
        std::string text;
        std::vector<Read> items;                                 // an array's, or the plist's one value
        std::vector<std::pair<std::string, Read>> entries;       // a dictionary's
        std::optional<std::string> key;                          // a dictionary's key awaiting its value
    };

    static bool holdsText(Element e) { return e >= Element::key && e <= Element::data; }

    static Element elementOf(std::string_view name, bool& truth) {
        static const std::pair<std::string_view, Element> kElements[] = {
            {"plist", Element::plist}, {"dict", Element::dict},       {"array", Element::array}, {"key", Element::key},
            {"string", Element::string}, {"integer", Element::integer}, {"real", Element::real},  {"date", Element::date},
            {"data", Element::data},   {"true", Element::boolean},    {"false", Element::boolean}};
        for (const auto& [n, e] : kElements)
            if (n == name) {
                truth = name == "true";
                return e;
            }
        refuse("unknown element <" + std::string(name.substr(0, 64)) + ">");
    }

    // Runs a handler's work; a refusal stops the parser (exceptions must not cross expat).
    template <class Work>
    void guarded(Work work) {
        if (problem_) return;
        try {
            work();
        } catch (const Refusal& r) {
            problem_ = r.why;
        } catch (const std::exception& e) {
            problem_ = e.what();
        }
        if (problem_) XML_StopParser(parser_, XML_FALSE);
    }

    void open(std::string_view name) {
        bool truth = false;
        Element element = elementOf(name, truth);
        if (stack_.empty()) {
            if (element != Element::plist || result_) refuse("not a property list: the document is not one <plist>");
        } else {
            Frame& parent = stack_.back();
            if (element == Element::plist) refuse("<plist> inside a value");
            if (holdsText(parent.element) || parent.element == Element::boolean) refuse("an element inside a single value");
            if (parent.element == Element::dict) {
                if ((element == Element::key) == parent.key.has_value())
                    refuse(element == Element::key ? "a dictionary key without a value" : "a dictionary value without a key");
            } else if (element == Element::key) {
                refuse("<key> outside a dictionary");
            } else if (parent.element == Element::plist && !parent.items.empty()) {
                refuse("a property list holds one value");
            }
            if (stack_.size() > kMaxDepth) refuse("nested deeper than " + std::to_string(kMaxDepth) + " levels");
        }
        stack_.push_back(Frame{element, truth, {}, {}, {}, {}});
    }

    void text(std::string_view s) {
        Frame& frame = stack_.back();
        if (holdsText(frame.element)) frame.text.append(s);
        else if (!trimmed(s).empty()) refuse("text outside a value");
    }

    void close() {
        Frame frame = std::move(stack_.back());
        stack_.pop_back();
        Read read;
        switch (frame.element) {
        case Element::plist:
            if (frame.items.empty()) refuse("an empty property list");
            result_ = std::move(frame.items.front());
            return;
        case Element::key: stack_.back().key = std::move(frame.text); return;
        case Element::dict:
            if (frame.key) refuse("a dictionary key without a value");
            read = build_.dictionary(frame.entries);
            break;
        case Element::array: read = build_.array(frame.items); break;
        case Element::string: read = build_.leaf(Value(frame.text), "string"); break;
        case Element::integer: read = build_.leaf(integerOf(frame.text), "integer"); break;
        case Element::real: read = build_.leaf(realOf(frame.text), "real"); break;
        case Element::date: read = build_.leaf(dateOf(frame.text), "date"); break;
        case Element::data: read = build_.leaf(dataOf(frame.text), "data"); break;
        case Element::boolean: read = build_.leaf(Value(frame.truth), "boolean"); break;
        }
        Frame& parent = stack_.back();
        if (parent.element == Element::dict) {
            parent.entries.emplace_back(std::move(*parent.key), std::move(read));
            parent.key.reset();
        } else {
            parent.items.push_back(std::move(read));
        }
    }

    static void XMLCALL start(void* self, const XML_Char* name, const XML_Char**) {
        auto* r = static_cast<XMLReader*>(self);
        r->guarded([&] { r->open(name); });
    }
    static void XMLCALL end(void* self, const XML_Char*) {
        auto* r = static_cast<XMLReader*>(self);
        r->guarded([&] { r->close(); });
    }
    static void XMLCALL characters(void* self, const XML_Char* s, int length) {
        auto* r = static_cast<XMLReader*>(self);
        r->guarded([&] { r->text(std::string_view(s, static_cast<size_t>(length))); });
    }
    static void XMLCALL entityDeclaration(void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*, const XML_Char*,
                                          const XML_Char*, const XML_Char*) {
        auto* r = static_cast<XMLReader*>(self);
        r->guarded([] { refuse("entity declarations are not allowed"); });
    }

    std::string_view xml_;
    Builder& build_;
    XML_Parser parser_;
    std::vector<Frame> stack_;
    std::optional<Read> result_;
    std::optional<std::string> problem_;
};

// ---- Fetching ---------------------------------------------------------------------------

// The bytes at url: an http or https address through the HTTP session, a
// file address ("file:///path", percent-escaped) or a plain path from disk.
// Nothing, with a log line, on any failure or beyond kMaxPropertyListBytes.
std::optional<std::string> fetch(const std::string& url, std::shared_ptr<Call> call, std::string* refusal) {
    auto fail = [&](const std::string& why) -> std::optional<std::string> {
        log("property list " + url + ": " + why);
        return std::nullopt;
    };
    bool file = url.rfind("file://", 0) == 0;
    if (file || url.find("://") == std::string::npos) {
        std::string path = file ? percentDecode(url.substr(7)) : url;
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) return fail("no such file: " + path);
        uintmax_t size = std::filesystem::file_size(path, error);
        if (error || size > kMaxPropertyListBytes) return fail("unreadable, or larger than " + std::to_string(kMaxPropertyListBytes) + " bytes");
        std::string bytes(static_cast<size_t>(size), '\0');
        std::ifstream in(path, std::ios::binary);
        if (!in.read(bytes.data(), static_cast<std::streamsize>(size))) return fail("cannot read " + path);
        return bytes;
    }
    HTTPRequest request;
    request.url = url;
    HTTPSessionOptions options = HTTPSession::sharedSession().options();
    options.maxReplyBytes = std::min(options.maxReplyBytes, kMaxPropertyListBytes);
    HTTPSession::Outcome outcome = HTTPSession::perform(request, options, {}, std::move(call));
    if (outcome.error && outcome.error->code == kRequestRefused && refusal) *refusal = outcome.error->description;
    if (outcome.error) return fail(outcome.error->description);
    if (outcome.response->statusCode >= 400) return fail("server answered HTTP " + std::to_string(outcome.response->statusCode));
    return outcome.data;
}

} // namespace

std::optional<Value> propertyListWithData(std::string_view bytes, std::string* error, Value* kinds) {
    try {
        if (bytes.empty()) refuse("no bytes");
        if (bytes.size() > kMaxPropertyListBytes) refuse("larger than " + std::to_string(kMaxPropertyListBytes) + " bytes");
        Builder build(kinds != nullptr);
        Read read = bytes.substr(0, 8) == "bplist00" ? BinaryReader(bytes, build).run() : XMLReader(bytes, build).run();
        if (kinds) *kinds = std::move(read.kind);
        return std::move(read.value);
    } catch (const Refusal& r) {
        if (error) *error = r.why;
        return std::nullopt;
    }
}

std::optional<Dictionary> dictionaryWithContentsOfURL(const std::string& url, Value* kinds, std::shared_ptr<Call> call, std::string* refusal) {
    std::optional<std::string> bytes = fetch(url, std::move(call), refusal);
    if (!bytes) return std::nullopt;
    std::string why;
    std::optional<Value> value = propertyListWithData(*bytes, &why, kinds);
    if (!value) log("property list " + url + ": refused: " + why);
    else if (!value->isDictionary()) log("property list " + url + ": top level is " + value->kindName() + ", not a dictionary");
    if (!value || !value->isDictionary()) return std::nullopt;
    return value->asDictionary();
}

Bundle& Bundle::mainBundle() {
    static Bundle bundle;
    return bundle;
}

Dictionary Bundle::infoDictionary() const {
    std::lock_guard lock(mutex_);
    return info_;
}

void Bundle::setInfoDictionary(Dictionary info) {
    std::lock_guard lock(mutex_);
    info_ = std::move(info);
}

void Bundle::setShortVersionString(std::string version) {
    std::lock_guard lock(mutex_);
    info_.set("CFBundleShortVersionString", std::move(version));
}

} // namespace veltrane
