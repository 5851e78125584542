// Property lists through libplist.
#include "platform/PropertyList.h"

#include <plist/plist.h>

#include <fstream>
#include <limits>
#include <sstream>

#include "foundation/Log.h"
#include "platform/HTTPSession.h"
#include "platform/Encodings.h"

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

std::string takeString(char* text) {
    std::string s = text ? text : "";
    free(text);
    return s;
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
    case PLIST_STRING:
    case PLIST_KEY: {
        char* s = nullptr;
        plist_get_string_val(node, &s);
        return Value(takeString(s));
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
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, it, &key, &item);
            if (!item) {
                free(key);
                break;
            }
            std::string k = takeString(key);
            auto v = toValue(item, depth + 1);
            if (!v) {
                free(it);
                return std::nullopt;
            }
            out.set(k, std::move(*v));
        }
        free(it);
        return out;
    }
    default: return std::nullopt;
    }
}

std::optional<std::string> fetch(const std::string& url) {
    if (url.find("://") == std::string::npos) {
        std::ifstream in(url, std::ios::binary);
        if (!in) return std::nullopt;
        std::ostringstream bytes;
        bytes << in.rdbuf();
        return bytes.str();
    }
    HTTPRequest request;
    request.url = url;
    HTTPSession::Outcome outcome = HTTPSession::perform(request);
    if (outcome.error) log("property list " + url + ": " + outcome.error->description);
    if (!outcome.response || outcome.response->statusCode >= 400) return std::nullopt;
    return outcome.data;
}

} // namespace

std::optional<Value> propertyListWithData(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
    plist_t root = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &root);
    PlistNode owner(root);
    return toValue(owner.get(), 0);
}

std::optional<Dictionary> dictionaryWithContentsOfURL(const std::string& url) {
    std::optional<std::string> bytes = fetch(url);
    if (!bytes) return std::nullopt;
    std::optional<Value> value = propertyListWithData(*bytes);
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
