/// @file
/// Reading and writing JSON text in the value model, and the one-line rendering
/// of a value used in log lines.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// Malformed, truncated or too deeply nested input, or a value JSON cannot hold.
class JSONError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Arrays and objects may nest this deep, for reading and for writing alike;
/// deeper input is refused.
inline constexpr size_t kJSONMaxDepth = 256;

/// Parses UTF-8 JSON text (any value at top level). Integers become word-sized
/// numbers (unsigned above the signed range, doubles beyond 64 bits), other
/// numbers doubles; duplicate keys keep their first position and the last
/// value. Throws JSONError. Whatever writeJSON writes reads back equal.
/// Thread-safe: each thread reuses its own parser and buffers.
Value parseJSON(std::string_view text);

/// Compact JSON: no blanks, keys in insertion order, UTF-8 as is, every number
/// as the shortest text that reads back to its value in its own precision.
/// Throws JSONError for NaN, infinities and text that is not valid UTF-8.
std::string writeJSON(const Value& value);

/// A readable one-line rendering for logs: a string stands as itself at top
/// level and quoted inside containers; never throws and never fails.
std::string describe(const Value& value);
/// The same, with "(null)" for nothing.
std::string describeOrNull(const std::optional<Value>& value);

} // namespace veltrane
