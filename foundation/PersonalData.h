/// @file
/// Personal data kept out of the log: identity-document numbers, phone
/// numbers, people's names and addresses, photos and other payloads, and
/// the tokens request adapters add. The log masks every entry with these
/// rules before any sink sees it, unless the application opted in to the
/// exact text (logPersonalDataInClear, for development builds).
///
/// By key, where a dictionary is dumped (logValue): the value under a key
/// that holds a person's data is masked; a dictionary that holds an identity
/// card (its number, gender, nation or birthday) has its "Name"/"name"
/// masked too. By pattern, in every entry's text: 18-character resident ID
/// numbers, mobile and fixed phone numbers, base64 runs of 64 characters or
/// more (but not hex-only ones: digests), and registered secrets. The shape of a line stays: keys,
/// punctuation and every other value are left as they are.
///
/// How a value is masked:
///   identity numbers   first 2 and last 2 characters: "44**************89"
///   phone numbers      first 3 and last 4 digits:     "139****5678", "020-****5678"
///   names, addresses   "***"
///   photos, payloads   their length and a short hash:  "<1536 chars #8f3a2c1d>"
///   secrets            "<secret>"
///
/// Thread rules: every function is safe from any thread.
#pragma once

#include <string>
#include <string_view>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// Masks the patterns above in text.
std::string maskPersonalText(std::string_view text);

/// A deep copy of value with the values under personal keys masked, then
/// the patterns masked in every text.
Value maskPersonalValue(const Value& value);

/// Masks every occurrence of secret (a token an adapter adds to requests) in
/// what the log writes from now on. The last 32 secrets are remembered.
void registerSecret(std::string secret);

/// Whether the log shows personal data as it is. Turning it on logs one line
/// that says so.
///@{
void logPersonalDataInClear(bool clear = true);
bool loggingPersonalDataInClear() noexcept;
///@}

} // namespace veltrane
