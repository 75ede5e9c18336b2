// The static table of binary element operations by operator code, read by the scalar broadcast kernel.
#pragma once

#include <cstdint>
#include <functional>
#include <unordered_map>

#include "zelva/src/kernel/functional/lanes.h"

namespace zelva {
namespace kernel {
namespace functional {

using ElementwiseFunction = std::function<float(const float&, const float&)>;

// 0 add, 1 subtract, 2 multiply, 3 divide (the order of "Add", "Sub", "Mul", "Div"), 4 maximum, 5 minimum.
// Maximum and minimum follow the operand order of the vector max/min instructions: a > b ? a : b and
// a < b ? a : b, so the second operand comes back whenever either is not a number.
const std::unordered_map<uint16_t, ElementwiseFunction>& ElementwiseFunctionTable();

// Scalar forms of the two vector instructions, for cores that need the same NaN behaviour.
inline float VectorMax(float a, float b) {
  return ApplyOp(4, a, b);
}
inline float VectorMin(float a, float b) {
  return ApplyOp(5, a, b);
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
