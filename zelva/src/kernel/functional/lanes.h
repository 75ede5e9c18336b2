// Exact lane-wise binary operations on float runs: out[i] = a[i] op b[i]. Lane by lane the result does not
// depend on the blocking, so the elementwise kernels, the recurrent step and the fused denoise operators all
// use these (compiled once, with SSE). `out` may be `a` or `b`; other overlaps of `out` with an operand are
// handled one float at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace zelva {
namespace kernel {
namespace functional {

void AddLanes(const float* a, const float* b, size_t n, float* out);
void SubLanes(const float* a, const float* b, size_t n, float* out);
void MulLanes(const float* a, const float* b, size_t n, float* out);
void DivLanes(const float* a, const float* b, size_t n, float* out);
// The vector maximum and minimum: the second operand comes back when either is not a number.
void MaxLanes(const float* a, const float* b, size_t n, float* out);
void MinLanes(const float* a, const float* b, size_t n, float* out);

// The scalar operation of an operator code (0 add, 1 subtract, 2 multiply, 3 divide, 4 maximum, 5 minimum):
// the one definition of each operation, used by the vector loops' single floats, the scalar kernels and the
// elementwise function table. A NaN for another code.
inline float ApplyOp(uint32_t code, float a, float b) {
  switch (code) {
    case 0:
      return a + b;
    case 1:
      return a - b;
    case 2:
      return a * b;
    case 3:
      return a / b;
    case 4:
      return a > b ? a : b;
    case 5:
      return a < b ? a : b;
  }
  return std::numeric_limits<float>::quiet_NaN();
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
