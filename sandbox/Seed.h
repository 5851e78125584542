// The sandbox's seed data: one JSON object with a list per kind of record.
#pragma once

#include <string>

#include "foundation/Value.h"

namespace veltrane::sandbox {

// The built-in seed, as JSON text.
const std::string& seedText();

// The seed as values, with the generated lists (phone numbers, device units)
// filled in where the seed leaves them out.
Dictionary loadSeed(const std::string& text);

// The check digit that completes a 14-digit IMEI body (Luhn).
char imeiCheckDigit(const std::string& body);

} // namespace veltrane::sandbox
