/// @file
/// A JSON number that remembers the kind it was made from (32-bit, word-sized,
/// unsigned word-sized, float or double), and every numeric reading of it.
///
/// Conversion rules, the same everywhere in the library:
///  - integer to a narrower integer wraps modulo 2^n (two's complement);
///  - floating to integer truncates toward zero; NaN gives 0 and values beyond
///    the 64-bit range clamp to its limits, after which the wrap rule narrows;
///  - integer to floating rounds to nearest.
/// No reading can invoke undefined behaviour.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

namespace veltrane {

/// A number of a kind, read in any of the kinds by the rules above.
class Number {
public:
    /// The kind a number was made from.
    enum class Kind : uint8_t { Int32, Long, UnsignedLong, Float, Double };

    /// A number of the kind of v.
    ///@{
    explicit Number(int32_t v) noexcept : kind_(Kind::Int32), i_(v) {}
    explicit Number(long v) noexcept : kind_(Kind::Long), i_(v) {}
    explicit Number(unsigned long v) noexcept : kind_(Kind::UnsignedLong), u_(v) {}
    explicit Number(float v) noexcept : kind_(Kind::Float), f_(v) {}
    explicit Number(double v) noexcept : kind_(Kind::Double), d_(v) {}
    ///@}

    /// The kind it was made from.
    Kind kind() const noexcept { return kind_; }
    /// Whether it is a float or a double.
    bool isFloating() const noexcept { return kind_ == Kind::Float || kind_ == Kind::Double; }

    /// Its value in that kind, by the conversion rules above; boolValue() is
    /// whether it is not zero (NaN is true).
    ///@{
    int32_t intValue() const noexcept;
    long longValue() const noexcept;
    unsigned long unsignedLongValue() const noexcept;
    float floatValue() const noexcept;
    double doubleValue() const noexcept;
    bool boolValue() const noexcept;
    ///@}

    /// The shortest decimal text that reads back to the same value in the
    /// number's own precision ("0.1" for the float 0.1f, "nan"/"inf" as such).
    std::string text() const;

    /// Numeric equality across kinds: 1 (Int32) equals 1.0 (Double); the float
    /// 0.1f does not equal the double 0.1, because their values differ.
    friend bool operator==(const Number& a, const Number& b) noexcept;

private:
    Kind kind_;
    union {
        int64_t i_;
        uint64_t u_;
        float f_;
        double d_;
    };
};

/// Floating to integer by the rule above: truncation toward zero, NaN is 0,
/// out-of-range values clamp to the 64-bit limits.
///@{
int64_t truncateToLong(double v) noexcept;
uint64_t truncateToUnsignedLong(double v) noexcept;
///@}

// The readings most records make, inline: a record reads numbers by the dozen.
inline long Number::longValue() const noexcept {
    switch (kind_) {
    case Kind::Int32:
    case Kind::Long: return i_;
    case Kind::UnsignedLong: return static_cast<long>(u_);
    case Kind::Float: return truncateToLong(f_);
    case Kind::Double: return truncateToLong(d_);
    }
    return 0;
}

inline int32_t Number::intValue() const noexcept { return static_cast<int32_t>(longValue()); }

inline double Number::doubleValue() const noexcept {
    switch (kind_) {
    case Kind::Int32:
    case Kind::Long: return static_cast<double>(i_);
    case Kind::UnsignedLong: return static_cast<double>(u_);
    case Kind::Float: return f_;
    case Kind::Double: return d_;
    }
    return 0;
}

inline float Number::floatValue() const noexcept {
    switch (kind_) {
    case Kind::Int32:
    case Kind::Long: return static_cast<float>(i_);
    case Kind::UnsignedLong: return static_cast<float>(u_);
    case Kind::Float: return f_;
    case Kind::Double: {
        // Doubles beyond the float range become infinities, not undefined casts.
        if (std::fabs(d_) > std::numeric_limits<float>::max() && std::isfinite(d_))
            return d_ > 0 ? std::numeric_limits<float>::infinity() : -std::numeric_limits<float>::infinity();
        return static_cast<float>(d_);
    }
    }
    return 0;
}

/// Leading numeric readings of text, as the platform reads "12abc" as 12:
/// leading blanks are skipped, the longest prefix that reads as a number is
/// taken, and no prefix gives 0. Integer readings saturate at the 64-bit limits.
///@{
int64_t leadingInteger(std::string_view text) noexcept;
double leadingDouble(std::string_view text) noexcept;
///@}

} // namespace veltrane
