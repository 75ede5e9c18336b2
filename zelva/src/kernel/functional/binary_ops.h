// The six binary operations over a vector type (V4, or V8 in the AVX cores) and the one loop that runs
// them; the single-float forms are functional::ApplyOp. Internal linkage, for the reason given in vector4.h.
#pragma once

#include <stdint.h>

#include "zelva/src/kernel/functional/lanes.h"
#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {
namespace {

// The operation of code kCode (0 add, 1 subtract, 2 multiply, 3 divide, 4 maximum, 5 minimum) on a vector
// type V, and on one float.
template <int kCode>
struct BinaryOp {
  template <class V>
  static typename V::T Apply(typename V::T a, typename V::T b) {
    if constexpr (kCode == 0) return V::Add(a, b);
    if constexpr (kCode == 1) return V::Sub(a, b);
    if constexpr (kCode == 2) return V::Mul(a, b);
    if constexpr (kCode == 3) return V::Div(a, b);
    if constexpr (kCode == 4) return V::Max(a, b);
    if constexpr (kCode == 5) return V::Min(a, b);
  }
  static float One(float a, float b) { return functional::ApplyOp(kCode, a, b); }
};
using AddOp = BinaryOp<0>;
using SubOp = BinaryOp<1>;
using MulOp = BinaryOp<2>;
using DivOp = BinaryOp<3>;
using MaxOp = BinaryOp<4>;
using MinOp = BinaryOp<5>;

// Whether [p, p + n) and [q, q + n) share an element.
inline bool RangesOverlap(const float* p, const float* q, uint32_t n) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(p), b = reinterpret_cast<uintptr_t>(q);
  const uintptr_t bytes = static_cast<uintptr_t>(n) * sizeof(float);
  return a < b + bytes && b < a + bytes;
}

// From `i` on: groups of 4 where the output overlaps neither operand, then single floats.
template <class Op>
void BinaryRest(const float* a, const float* b, uint32_t i, uint32_t n, float* out) {
  const uint32_t rest = n - i;
  if (!RangesOverlap(out + i, a + i, rest) && !RangesOverlap(out + i, b + i, rest)) {
    for (; i + 4 <= n; i += 4) V4::Store(out + i, Op::template Apply<V4>(V4::Load(a + i), V4::Load(b + i)));
  }
  for (; i < n; ++i) out[i] = Op::One(a[i], b[i]);
}

// Four groups of V lanes from `i` on while a full round remains; returns the index after the last round.
template <class Op, class V>
uint32_t BinaryRounds(const float* a, const float* b, uint32_t i, uint32_t n, float* out) {
  constexpr uint32_t kStep = V::kLanes;
  for (; i + 4 * kStep <= n; i += 4 * kStep) {
    const typename V::T a0 = V::Load(a + i), a1 = V::Load(a + i + kStep);
    const typename V::T a2 = V::Load(a + i + 2 * kStep), a3 = V::Load(a + i + 3 * kStep);
    const typename V::T b0 = V::Load(b + i), b1 = V::Load(b + i + kStep);
    const typename V::T b2 = V::Load(b + i + 2 * kStep), b3 = V::Load(b + i + 3 * kStep);
    V::Store(out + i, Op::template Apply<V>(a0, b0));
    V::Store(out + i + kStep, Op::template Apply<V>(a1, b1));
    V::Store(out + i + 2 * kStep, Op::template Apply<V>(a2, b2));
    V::Store(out + i + 3 * kStep, Op::template Apply<V>(a3, b3));
  }
  return i;
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
