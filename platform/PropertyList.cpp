// Property lists through libplist.
#include "veltrane/platform/PropertyList.h"

#include <plist/plist.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>
#include <limits>
#include <memory>

#include "veltrane/foundation/Log.h"
#include "veltrane/platform/HTTPSession.h"
#include "veltrane/platform/Encodings.h"

namespace veltrane {

namespace {

// Owns one libplist tree: no copies, noexcept moves.
class PlistNode {
public:
    explicit PlistNode(plist_t node = nullptr) noexcept : node_(node) {}
    PlistNode(const PlistNode&) = delete;
    PlistNode& operator=(const PlistNode&) = delete;
    PlistNode(PlistNode&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
    PlistNode& operator=(PlistNode&& other) noexcept {
        std::swap(node_, other.node_);
        return *this;
    }
    ~PlistNode() {
        if (node_) plist_free(node_);
    }
    plist_t get() const noexcept { return node_; }

private:
    plist_t node_;
};

// Seconds between 1970-01-01 and the property-list epoch 2001-01-01.
constexpr double kPlistEpoch = 978307200.0;
constexpr size_t kMaxDepth = 256;
// How many nodes a property list may expand to: a binary list may refer to one
// object many times, and libplist copies it at every reference.
constexpr uint64_t kMaxNodes = 1u << 20;

// Checks a binary property list ("bplist00") before libplist reads it, so
// that no input can reach one of its assertions or make it recurse or copy
// without bound: the trailer and offset table lie inside the bytes, every
// object's contents too, references name existing objects, nesting stays
// under kMaxDepth without cycles, the expanded tree stays under kMaxNodes,
// dictionary keys are strings, and no string holds a NUL character.
// Returns what is wrong, or nothing.
class BinaryPlistCheck {
public:
    explicit BinaryPlistCheck(std::string_view b) : b_(b) {}

    std::optional<std::string> run() {
        if (b_.size() < 8 + 32) return "binary property list too short";
        std::string_view trailer = b_.substr(b_.size() - 32);
        offsetSize_ = static_cast<unsigned char>(trailer[6]);
        refSize_ = static_cast<unsigned char>(trailer[7]);
        count_ = bigEndian(b_.size() - 24, 8);
        uint64_t top = bigEndian(b_.size() - 16, 8);
        tableStart_ = bigEndian(b_.size() - 8, 8);
        if (offsetSize_ < 1 || offsetSize_ > 8 || refSize_ < 1 || refSize_ > 8) return "bad integer sizes in the trailer";
        objectsEnd_ = b_.size() - 32;
        if (tableStart_ < 8 || tableStart_ > objectsEnd_ || count_ == 0 || count_ > (objectsEnd_ - tableStart_) / offsetSize_)
            return "offset table outside the property list";
        if (top >= count_) return "top object out of range";
        state_.assign(count_, {});
        return visit(top, 0);
    }

private:
    struct ObjectState {
        uint8_t phase = 0;  // 0 unseen, 1 on the current path, 2 checked
        uint64_t nodes = 0; // size of its expanded tree
    };

    uint64_t bigEndian(uint64_t at, unsigned size) const {
        uint64_t v = 0;
        for (unsigned i = 0; i < size; ++i) v = v << 8 | static_cast<unsigned char>(b_[at + i]);
        return v;
    }
    static std::string where(uint64_t object, const char* what) { return "object " + std::to_string(object) + ": " + what; }

    // The object's length field: the marker's low nibble, or an integer object after it.
    bool length(uint64_t& at, unsigned low, uint64_t& n) const {
        if (low != 0xF) {
            n = low;
            return true;
        }
        if (at >= objectsEnd_) return false;
        unsigned char marker = static_cast<unsigned char>(b_[at++]);
        if ((marker & 0xF0) != 0x10 || (marker & 0x0F) > 3) return false;
        unsigned size = 1u << (marker & 0x0F);
        if (size > objectsEnd_ - at) return false;
        n = bigEndian(at, size);
        at += size;
        return true;
    }

    std::optional<std::string> visit(uint64_t object, size_t depth) {
        ObjectState& state = state_[object];
        if (state.phase == 1) return where(object, "refers to itself");
        if (state.phase == 2) return std::nullopt;
        if (depth > kMaxDepth) return "nested deeper than " + std::to_string(kMaxDepth) + " levels";
        state.phase = 1;
        uint64_t at = bigEndian(tableStart_ + object * offsetSize_, offsetSize_);
        if (at < 8 || at >= tableStart_) return where(object, "offset out of range");
        unsigned char marker = static_cast<unsigned char>(b_[at++]);
        unsigned type = marker >> 4, low = marker & 0x0F;
        uint64_t n = 0, nodes = 1;
        auto fits = [&](uint64_t bytes) { return bytes <= tableStart_ - at; };
        switch (type) {
        case 0x0:
            if (low != 0x0 && low != 0x8 && low != 0x9 && low != 0xF) return where(object, "unknown marker");
            break;
        case 0x1:
        case 0x2:
            if (low > 4 || !fits(uint64_t{1} << low)) return where(object, "number outside the list");
            break;
        case 0x3:
            if (!fits(8)) return where(object, "date outside the list");
            break;
        case 0x4:
        case 0x5:
        case 0x6: {
            if (!length(at, low, n)) return where(object, "bad length");
            uint64_t bytes = type == 0x6 ? n * 2 : n;
            if (n > tableStart_ || !fits(bytes)) return where(object, "text or data outside the list");
            if (type == 0x5 && std::memchr(b_.data() + at, 0, n)) return where(object, "text holds a NUL character");
            if (type == 0x6)
                for (uint64_t i = 0; i < n; ++i)
                    if (bigEndian(at + 2 * i, 2) == 0) return where(object, "text holds a NUL character");
            break;
        }
        case 0x8:
            if (!fits(low + 1)) return where(object, "UID outside the list");
            break;
        case 0xA:
        case 0xC:
        case 0xD: {
            if (!length(at, low, n)) return where(object, "bad length");
            uint64_t refs = type == 0xD ? n * 2 : n;
            if (n > tableStart_ || !fits(refs * refSize_)) return where(object, "references outside the list");
            for (uint64_t i = 0; i < refs; ++i) {
                uint64_t child = bigEndian(at + i * refSize_, refSize_);
                if (child >= count_) return where(object, "refers to a missing object");
                if (type == 0xD && i < n && !isString(child)) return where(object, "dictionary key is not text");
                if (auto problem = visit(child, depth + 1)) return problem;
                nodes += state_[child].nodes;
                if (nodes > kMaxNodes) return "expands to more than " + std::to_string(kMaxNodes) + " values";
            }
            break;
        }
        default: return where(object, "unknown marker");
        }
        state_[object] = {2, nodes};
        return std::nullopt;
    }

    bool isString(uint64_t object) const {
        uint64_t at = bigEndian(tableStart_ + object * offsetSize_, offsetSize_);
        if (at < 8 || at >= tableStart_) return false;
        unsigned type = static_cast<unsigned char>(b_[at]) >> 4;
        return type == 0x5 || type == 0x6;
    }

    std::string_view b_;
    unsigned offsetSize_ = 0, refSize_ = 0;
    uint64_t count_ = 0, tableStart_ = 0, objectsEnd_ = 0;
    std::vector<ObjectState> state_;
};

// A cheap look at an XML property list before libplist parses it: no NUL
// byte (XML has no such character, and libplist would keep it inside a text
// and assert on it) and nesting within kMaxDepth (its parser recurses once
// per level).
std::optional<std::string> checkXMLPlist(std::string_view xml) {
    if (xml.find('\0') != std::string_view::npos) return "text holds a NUL character";
    size_t depth = 0, deepest = 0;
    for (size_t at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
        std::string_view tag = xml.substr(at + 1, 6);
        bool closing = !tag.empty() && tag[0] == '/';
        std::string_view name = closing ? tag.substr(1) : tag;
        if (name.substr(0, 4) != "dict" && name.substr(0, 5) != "array") continue;
        size_t close = xml.find('>', at);
        bool empty = close != std::string_view::npos && close > at && xml[close - 1] == '/';
        if (closing) depth -= depth > 0;
        else if (!empty) deepest = std::max(deepest, ++depth);
    }
    if (deepest > kMaxDepth) return "nested deeper than " + std::to_string(kMaxDepth) + " levels";
    return std::nullopt;
}

std::optional<Value> toValue(plist_t node, size_t depth) {
    if (!node || depth > kMaxDepth) return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return Value(b != 0);
    }
    case PLIST_UINT: {
        uint64_t u = 0;
        plist_get_uint_val(node, &u);
        // libplist keeps every integer as 64 bits; those above the signed range read unsigned.
        if (u <= static_cast<uint64_t>(std::numeric_limits<long>::max())) return Value(static_cast<long>(u));
        return Value(static_cast<unsigned long>(u));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return Value(d);
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* s = plist_get_string_ptr(node, &length);
        return Value(std::string_view(s ? s : "", s ? length : 0));
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        std::string data(bytes ? bytes : "", bytes ? length : 0);
        free(bytes);
        return Value(base64Encode(data));
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return Value(kPlistEpoch + sec + usec / 1e6);
    }
    case PLIST_UID: {
        uint64_t u = 0;
        plist_get_uid_val(node, &u);
        return Value(static_cast<unsigned long>(u));
    }
    case PLIST_ARRAY: {
        Array out;
        uint32_t n = plist_array_get_size(node);
        out.reserve(n);
        for (uint32_t i = 0; i < n; ++i) {
            auto v = toValue(plist_array_get_item(node, i), depth + 1);
            if (!v) return std::nullopt;
            out.push_back(std::move(*v));
        }
        return out;
    }
    case PLIST_DICT: {
        Dictionary out;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        std::unique_ptr<void, decltype(&free)> ownIterator(it, &free);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, it, &key, &item);
            std::unique_ptr<char, decltype(&free)> ownKey(key, &free);
            if (!item) break;
            auto v = toValue(item, depth + 1);
            if (!v) return std::nullopt;
            out.set(key ? key : "", std::move(*v));
        }
        return out;
    }
    default: return std::nullopt;
    }
}

// The bytes at url: an http or https address through the HTTP session, a
// file address ("file:///path", percent-escaped) or a plain path from disk.
// Nothing, with a log line, on any failure or beyond kMaxPropertyListBytes.
std::optional<std::string> fetch(const std::string& url) {
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
    HTTPSessionOptions options;
    options.maxReplyBytes = kMaxPropertyListBytes;
    HTTPSession::Outcome outcome = HTTPSession::perform(request, options);
    if (outcome.error) return fail(outcome.error->description);
    if (outcome.response->statusCode >= 400) return fail("server answered HTTP " + std::to_string(outcome.response->statusCode));
    return outcome.data;
}

} // namespace

std::optional<Value> propertyListWithData(std::string_view bytes, std::string* error) {
    auto refuse = [&](std::string why) -> std::optional<Value> {
        if (error) *error = std::move(why);
        return std::nullopt;
    };
    if (bytes.empty()) return refuse("no bytes");
    if (bytes.size() > kMaxPropertyListBytes) return refuse("larger than " + std::to_string(kMaxPropertyListBytes) + " bytes");
    bool binary = bytes.substr(0, 8) == "bplist00";
    if (auto problem = binary ? BinaryPlistCheck(bytes).run() : checkXMLPlist(bytes)) return refuse(*problem);
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    PlistNode owner(root);
    if (!root) return refuse(binary ? "not a binary property list" : "not a property list");
    std::optional<Value> value = toValue(owner.get(), 0);
    if (!value) return refuse("holds a value of an unknown kind");
    return value;
}

std::optional<Dictionary> dictionaryWithContentsOfURL(const std::string& url) {
    std::optional<std::string> bytes = fetch(url);
    if (!bytes) return std::nullopt;
    std::string why;
    std::optional<Value> value = propertyListWithData(*bytes, &why);
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
