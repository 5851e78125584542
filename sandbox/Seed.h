// The sandbox's seed data: one JSON object with a list per kind of record.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "veltrane/foundation/Value.h"

namespace veltrane::sandbox {

// The built-in seed, as JSON text.
const std::string& seedText();

// The seed as values, with the generated lists (phone numbers, device units)
// filled in where the seed leaves them out. Throws std::invalid_argument for
// text that is not a JSON object, naming where it goes wrong ("line 3,
// column 14: ...").
Dictionary loadSeed(const std::string& text);

// Where the first syntax error of JSON text lies, as "line L, column C", or
// nothing when its syntax is sound.
std::optional<std::string> locateSyntaxError(std::string_view text);

// The check digit that completes a 14-digit IMEI body (Luhn).
char imeiCheckDigit(const std::string& body);

} // namespace veltrane::sandbox
