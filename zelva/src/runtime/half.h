// 16-bit float storage. Widening to float is exact; narrowing truncates the mantissa (no rounding), so that a
// weight passed through a half-precision file keeps exactly its truncated value, and a second pass changes
// nothing. Never narrow through Imath's rounding constructor: use FloatToHalf.
#pragma once

#include <Imath/half.h>

#include <cstdint>

namespace zelva {
namespace runtime {

using half = Imath::half;

// Truncating float -> half (table method: base table by exponent, shift table by exponent).
half FloatToHalf(float value);
inline float HalfToFloat(half value) { return static_cast<float>(value); }

}  // namespace runtime
}  // namespace zelva
