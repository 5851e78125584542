/// @file
/// Property lists (XML or binary) read into the value model, and the
/// application's own information dictionary.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "veltrane/foundation/Call.h"
#include "veltrane/foundation/Value.h"

namespace veltrane {

/// The largest property list read.
inline constexpr size_t kMaxPropertyListBytes = 16u << 20;

/// Reads a property list (XML or binary) from bytes. Dictionaries, arrays,
/// strings and booleans map to their values; an integer to a signed number
/// (-2^63 to 2^63 - 1) or, above that, an unsigned one (up to 2^64 - 1); a real
/// to a double; a date to seconds since 1970 as a double, fraction included,
/// for any year; data to its base64 text; a UID to an unsigned number; a
/// binary null to JSON null.
///
/// Since a date reads as a number and data as text, kinds (when given)
/// receives a value of the same shape whose leaves name what each leaf was:
/// "string", "integer", "real", "boolean", "date", "data", "uid" or "null".
///
/// Any bytes are safe. Nothing, with the reason in *error when error is given,
/// for bytes that are not a property list, text that holds a NUL character or
/// is not Unicode, an integer beyond 64 bits, nesting past 256 levels, an XML
/// entity declaration, or a binary list that refers outside itself, to itself,
/// or to its objects so often that it would expand past 2^20 values.
std::optional<Value> propertyListWithData(std::string_view bytes, std::string* error = nullptr, Value* kinds = nullptr);

/// Fetches url (http, https or file; a plain path is read as a file) and reads
/// it as a property list whose top level is a dictionary (kinds as above).
/// Nothing on any failure: no network, HTTP error status, not a property list,
/// not a dictionary; the reason is logged. Blocks the calling thread for the
/// whole download, which the HTTP session carries as part of call (a call of
/// its own when none is given): its cancellation and deadline end the wait.
/// When a request adapter refused the request, refusal (if given) receives
/// its message.
std::optional<Dictionary> dictionaryWithContentsOfURL(const std::string& url, Value* kinds = nullptr, std::shared_ptr<Call> call = nullptr,
                                                      std::string* refusal = nullptr);

/// The application's information dictionary ("CFBundleShortVersionString" and
/// whatever else it sets). Empty until the application sets it.
/// Thread-safe.
class Bundle {
public:
    /// The application's bundle.
    static Bundle& mainBundle();
    /// The application's information (a copy).
    ///@{
    Dictionary infoDictionary() const;
    void setInfoDictionary(Dictionary info);
    ///@}
    /// Sets "CFBundleShortVersionString" in the information dictionary.
    void setShortVersionString(std::string version);

private:
    mutable std::mutex mutex_;
    Dictionary info_;
};

} // namespace veltrane
