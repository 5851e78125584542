/// @file
/// The exported boxing helpers: numbers of a chosen kind, and null for nothing.
#pragma once

#include <optional>

#include "veltrane/foundation/Value.h"

namespace veltrane {

/// A number of that kind, so that it is written as that kind ("19" for the
/// long 19, "19.9" for the double).
///@{
Value NSBoxInt(int32_t v) noexcept;
Value NSBoxLong(long v) noexcept;
Value NSBoxFloat(float v) noexcept;
Value NSBoxDouble(double v) noexcept;
Value NSBoxUnsignedLong(unsigned long v) noexcept;
///@}

/// The value itself when one is given; JSON null when nothing is given.
///@{
Value NSGuardNil(std::optional<Value> v);

template <class T>
Value NSGuardNil(const std::optional<T>& v) {
    return v ? Value(*v) : Value();
}
///@}

} // namespace veltrane
