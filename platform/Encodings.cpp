// Percent-encoding, base64 and UTF-16 measurement of UTF-8 text.
#include "veltrane/platform/Encodings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace veltrane {

namespace {

bool isAlnum(unsigned char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

std::string percentEncode(std::string_view text, std::string_view keep, bool blankAsPlus) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size() * 3);
    for (char ch : text) {
        unsigned char c = static_cast<unsigned char>(ch);
        if (isAlnum(c) || (c < 0x80 && keep.find(ch) != std::string_view::npos)) {
            out += ch;
        } else if (c == ' ' && blankAsPlus) {
            out += '+';
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 15];
        }
    }
    return out;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

std::string percentEncodeURLPath(std::string_view text) { return percentEncode(text, "!$&'()*+,-./:=@_~", false); }
std::string percentEncodeLegacyURL(std::string_view text) { return percentEncode(text, "-._~!$&'()*+,/:;=?@", false); }
std::string formURLEncode(std::string_view text) { return percentEncode(text, "*-._", true); }

std::string percentDecode(std::string_view text, bool form) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += form && text[i] == '+' ? ' ' : text[i];
        }
    }
    return out;
}

// ---- base64 -------------------------------------------------------------------

namespace {
const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::array<int8_t, 256> decodingTable() {
    std::array<int8_t, 256> table{};
    table.fill(-1);
    for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
    return table;
}
} // namespace

std::string base64Encode(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    auto at = [&](size_t k) { return static_cast<uint32_t>(static_cast<unsigned char>(bytes[k])); };
    for (; i + 3 <= bytes.size(); i += 3) {
        uint32_t n = at(i) << 16 | at(i + 1) << 8 | at(i + 2);
        for (int shift : {18, 12, 6, 0}) out += kAlphabet[(n >> shift) & 63];
    }
    if (size_t rest = bytes.size() - i) {
        uint32_t n = at(i) << 16 | (rest == 2 ? at(i + 1) << 8 : 0);
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string stringEncodedWithDataUsingBase64(std::string_view bytes) { return base64Encode(bytes); }

std::optional<std::string> base64DecodeStrict(std::string_view text) {
    static const std::array<int8_t, 256> table = decodingTable();
    if (text.size() % 4 != 0) return std::nullopt;
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (size_t i = 0; i < text.size(); i += 4) {
        bool last = i + 4 == text.size();
        int v[4];
        int padding = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text[i + k];
            if (c == '=' && last && k >= 2) {
                ++padding;
                v[k] = 0;
                continue;
            }
            if (padding) return std::nullopt;  // data after padding
            v[k] = table[static_cast<unsigned char>(c)];
            if (v[k] < 0) return std::nullopt;
        }
        uint32_t n = static_cast<uint32_t>(v[0] << 18 | v[1] << 12 | v[2] << 6 | v[3]);
        out += static_cast<char>(n >> 16);
        if (padding < 2) out += static_cast<char>((n >> 8) & 0xFF);
        if (padding < 1) out += static_cast<char>(n & 0xFF);
        // Bits under the padding must be zero in canonical base64.
        if ((padding == 1 && (n & 0xFF)) || (padding == 2 && (n & 0xFFFF))) return std::nullopt;
    }
    return out;
}

// ---- UTF-16 units of UTF-8 text -------------------------------------------------

namespace {

struct CodePoint {
    size_t bytes;  // length of the UTF-8 sequence (1 for an invalid byte)
    size_t units;  // UTF-16 units it makes
};

CodePoint decodeAt(std::string_view s, size_t i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n = c < 0x80 ? 1 : c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
    if (n == 0 || i + n > s.size()) return {1, 1};
    for (size_t k = 1; k < n; ++k)
        if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return {1, 1};
    return {n, n == 4 ? 2u : 1u};
}

} // namespace

size_t utf16Length(std::string_view utf8) {
    size_t units = 0;
    for (size_t i = 0; i < utf8.size();) {
        CodePoint cp = decodeAt(utf8, i);
        units += cp.units;
        i += cp.bytes;
    }
    return units;
}

std::string utf16Substring(std::string_view utf8, size_t location, size_t length) {
    const size_t end = location + std::min(length, SIZE_MAX - location);
    std::string out;
    size_t unit = 0;
    for (size_t i = 0; i < utf8.size() && unit < end;) {
        CodePoint cp = decodeAt(utf8, i);
        // The units [first, last) of this character, and how many of them the range keeps.
        size_t first = unit, last = unit + cp.units;
        size_t kept = std::min(last, end) > std::max(first, location) ? std::min(last, end) - std::max(first, location) : 0;
        if (kept == cp.units) out.append(utf8, i, cp.bytes);
        else if (kept == 1) out += "\xEF\xBF\xBD";  // half a surrogate pair
        unit = last;
        i += cp.bytes;
    }
    return out;
}

} // namespace veltrane
