/// @file
/// Text encodings: percent-encoding (three sets), base64, and UTF-16 lengths
/// and slices of UTF-8 text. All are pure functions, safe from any thread.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace veltrane {

/// Percent-encoding of UTF-8 bytes with upper-case hex digits. Each function
/// leaves letters, digits and its own set of characters as they are:
///  - URL path: ! $ & ' ( ) * + , - . / : = @ _ ~
///  - legacy URL escaping: - . _ ~ ! $ & ' ( ) * + , / : ; = ? @
///    (every character that may stand in a URL; blanks, %, #, quotes,
///    brackets, controls and non-ASCII are escaped)
///  - form: * - . _, with the blank written as "+" (application/x-www-form-urlencoded)
///@{
std::string percentEncodeURLPath(std::string_view text);
std::string percentEncodeLegacyURL(std::string_view text);
std::string formURLEncode(std::string_view text);
///@}

/// Decodes %XX escapes (and "+" as a blank when form is true); malformed
/// escapes stay as they are.
std::string percentDecode(std::string_view text, bool form = false);

/// Standard base64 (with padding).
///@{
std::string base64Encode(std::string_view bytes);
std::string stringEncodedWithDataUsingBase64(std::string_view bytes);
///@}
/// Strict decoding: the standard alphabet, correct padding, nothing ignored
/// (a line break or blank makes the whole text invalid). Nothing when invalid.
std::optional<std::string> base64DecodeStrict(std::string_view text);

/// Length in UTF-16 code units (a character beyond U+FFFF counts 2; a byte
/// that is not valid UTF-8 counts 1).
size_t utf16Length(std::string_view utf8);
/// The UTF-8 text of the UTF-16 units [location, location + length), first
/// cut to the units the text has. Total: every range gives a result, of exactly
/// as many UTF-16 units as the cut range holds. A unit of the range that is one
/// half of a surrogate pair whose other half lies outside the range becomes
/// U+FFFD; an empty range gives "" wherever it starts.
std::string utf16Substring(std::string_view utf8, size_t location, size_t length);

} // namespace veltrane
