// The boxing helpers.
#include "veltrane/foundation/Boxing.h"

namespace veltrane {

Value NSBoxInt(int32_t v) noexcept { return Value(Number(v)); }
Value NSBoxLong(long v) noexcept { return Value(Number(v)); }
Value NSBoxFloat(float v) noexcept { return Value(Number(v)); }
Value NSBoxDouble(double v) noexcept { return Value(Number(v)); }
Value NSBoxUnsignedLong(unsigned long v) noexcept { return Value(Number(v)); }
Value NSGuardNil(std::optional<Value> v) { return v ? std::move(*v) : Value(); }

} // namespace veltrane
