// Property lists (XML or binary) read into the value model, and the
// application's own information dictionary.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "veltrane/foundation/Value.h"

namespace veltrane {

// The largest property list read.
inline constexpr size_t kMaxPropertyListBytes = 16u << 20;

// Reads a property list (XML or binary) from bytes. Dictionaries, arrays,
// strings, booleans, integers and reals map to their values; a date becomes
// seconds since 1970 (a double), data becomes its base64 text, a UID an
// unsigned number. Any bytes are safe: a binary list is checked in full before
// libplist reads it (structure, references, nesting, size once expanded, NUL
// characters in text). Nothing when the bytes are not an acceptable property
// list, with the reason in *error when error is given.
std::optional<Value> propertyListWithData(std::string_view bytes, std::string* error = nullptr);

// Fetches url (http, https or file; a plain path is read as a file) and reads
// it as a property list whose top level is a dictionary. Nothing on any
// failure: no network, HTTP error status, not a property list, not a
// dictionary. Blocks the calling thread for the whole download.
std::optional<Dictionary> dictionaryWithContentsOfURL(const std::string& url);

// The application's information dictionary ("CFBundleShortVersionString" and
// whatever else it sets). Empty until the application sets it.
// Thread-safe.
class Bundle {
public:
    static Bundle& mainBundle();
    Dictionary infoDictionary() const;
    void setInfoDictionary(Dictionary info);
    // Sets "CFBundleShortVersionString" in the information dictionary.
    void setShortVersionString(std::string version);

private:
    mutable std::mutex mutex_;
    Dictionary info_;
};

} // namespace veltrane
