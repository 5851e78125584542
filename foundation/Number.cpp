// Numeric readings of Number and of text, by the conversion rules of Number.h.
#include "veltrane/foundation/Number.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string_view>

namespace veltrane {

int64_t truncateToLong(double v) noexcept {
    if (std::isnan(v)) return 0;
    if (v >= 0x1p63) return std::numeric_limits<int64_t>::max();
    if (v < -0x1p63) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(v);
}

uint64_t truncateToUnsignedLong(double v) noexcept {
    if (v >= 0x1p63) return v >= 0x1p64 ? std::numeric_limits<uint64_t>::max() : static_cast<uint64_t>(v);
    return static_cast<uint64_t>(truncateToLong(v));
}



unsigned long Number::unsignedLongValue() const noexcept {
    switch (kind_) {
    case Kind::Float: return truncateToUnsignedLong(f_);
    case Kind::Double: return truncateToUnsignedLong(d_);
    case Kind::UnsignedLong: return u_;
    default: return static_cast<unsigned long>(i_);
    }
}



bool Number::boolValue() const noexcept {
    switch (kind_) {
    case Kind::Float: return f_ != 0;
    case Kind::Double: return d_ != 0;
    case Kind::UnsignedLong: return u_ != 0;
    default: return i_ != 0;
    }
}

std::string Number::text() const {
    std::array<char, 64> buf{};
    std::to_chars_result r{};
    switch (kind_) {
    case Kind::Int32:
    case Kind::Long: r = std::to_chars(buf.begin(), buf.end(), i_); break;
    case Kind::UnsignedLong: r = std::to_chars(buf.begin(), buf.end(), u_); break;
    case Kind::Float: r = std::to_chars(buf.begin(), buf.end(), f_); break;
    case Kind::Double: r = std::to_chars(buf.begin(), buf.end(), d_); break;
    }
    return std::string(buf.data(), r.ptr);
}

bool operator==(const Number& a, const Number& b) noexcept {
    if (a.isFloating() || b.isFloating()) {
        if (!a.isFloating() || !b.isFloating()) {
            // An integer equals a floating value only when that value is integral
            // and the integer is exactly it.
            const Number& whole = a.isFloating() ? b : a;
            double f = a.isFloating() ? a.doubleValue() : b.doubleValue();
            if (f != std::trunc(f) || f < -0x1p63 || f >= 0x1p64) return false;
            if (whole.kind() == Number::Kind::UnsignedLong) return f >= 0 && truncateToUnsignedLong(f) == whole.u_;
            return f < 0x1p63 && truncateToLong(f) == whole.i_;
        }
        return a.doubleValue() == b.doubleValue();
    }
    bool au = a.kind_ == Number::Kind::UnsignedLong, bu = b.kind_ == Number::Kind::UnsignedLong;
    if (au == bu) return au ? a.u_ == b.u_ : a.i_ == b.i_;
    const Number& u = au ? a : b;
    const Number& s = au ? b : a;
    return s.i_ >= 0 && static_cast<uint64_t>(s.i_) == u.u_;
}

namespace {
std::string_view skipBlanks(std::string_view t) noexcept {
    size_t i = 0;
    while (i < t.size() && (t[i] == ' ' || t[i] == '\t' || t[i] == '\n' || t[i] == '\r' || t[i] == '\f' || t[i] == '\v'))
        ++i;
    return t.substr(i);
}
} // namespace

int64_t leadingInteger(std::string_view text) noexcept {
    text = skipBlanks(text);
    bool negative = false;
    size_t i = 0;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    uint64_t magnitude = 0;
    bool overflow = false;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        uint64_t digit = static_cast<uint64_t>(text[i] - '0');
        if (magnitude > (std::numeric_limits<uint64_t>::max() - digit) / 10) overflow = true;
        else magnitude = magnitude * 10 + digit;
    }
    constexpr uint64_t limit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (negative) {
        if (overflow || magnitude > limit + 1) return std::numeric_limits<int64_t>::min();
        return magnitude == limit + 1 ? std::numeric_limits<int64_t>::min() : -static_cast<int64_t>(magnitude);
    }
    return overflow || magnitude > limit ? std::numeric_limits<int64_t>::max() : static_cast<int64_t>(magnitude);
}

double leadingDouble(std::string_view text) noexcept {
    text = skipBlanks(text);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    // Whole numbers, the most common numeric text, need no float parsing:
    // up to 19 digits are exact in 64 bits, and one rounding to a double
    // gives what the parse would.
    bool negative = !text.empty() && text.front() == '-';
    const size_t start = negative ? 1 : 0;
    size_t end = start;
    uint64_t whole = 0;
    auto digit = [&](size_t i) { return i < text.size() && text[i] >= '0' && text[i] <= '9'; };
    for (; end - start < 19 && digit(end); ++end) whole = whole * 10 + static_cast<uint64_t>(text[end] - '0');
    if (end > start && !digit(end) && (end == text.size() || (text[end] != '.' && text[end] != 'e' && text[end] != 'E')))
        return negative ? -static_cast<double>(whole) : static_cast<double>(whole);
    double v = 0;
    // from_chars reads the longest decimal prefix and never consults the locale.
    auto r = std::from_chars(text.data(), text.data() + text.size(), v, std::chars_format::general);
    if (r.ec == std::errc::result_out_of_range) {
        // Keep the sign and magnitude class of what was written: huge → ±inf, tiny → 0.
        std::string copy(text.data(), static_cast<size_t>(r.ptr - text.data()));
        return std::strtod(copy.c_str(), nullptr);
    }
    return r.ec == std::errc() ? v : 0.0;
}

} // namespace veltrane
