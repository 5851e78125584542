// Property lists (XML or binary) read into the value model, and the
// application's own information dictionary.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Value.h"

namespace veltrane {

// Reads a property list from bytes. Dictionaries, arrays, strings, booleans,
// integers and reals map to their values; a date becomes seconds since 1970
// (a double), data becomes its base64 text, a UID an unsigned number.
// Nothing when the bytes are not a property list.
std::optional<Value> propertyListWithData(std::string_view bytes);

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
