// The exact pointwise activations as operations over a vector type (V4 here, V8 in the AVX cores), and the
// one loop that runs them: a body of four vector groups a round, then 4-lane groups, then single floats.
// Internal linkage throughout, for the reason given in vector4.h.
#pragma once

#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {
namespace {

constexpr uint32_t kBitsThree = 0x40400000u;  // 3.0
constexpr uint32_t kBitsSix = 0x40C00000u;    // 6.0
constexpr uint32_t kBitsSixth = 0x3E2AAAABu;  // 0.16666667

// A single float through the 4-lane form of an operation: the rests keep the vector NaN behaviour.
template <class Op>
float ThroughLane(const Op& op, float x) {
  return _mm_cvtss_f32(op.template Apply<V4>(_mm_set_ss(x)));
}

// max(x, 0). The vector form turns a NaN into 0; the single-float rest keeps it.
struct ReluOp {
  ReluOp(float, float) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    return V::Max(x, V::Zero());
  }
  float One(float x) const { return x < 0.0f ? 0.0f : x; }
};

// min(max(x, 0), 6)
struct Relu6Op {
  Relu6Op(float, float) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    return V::Min(V::Max(x, V::Zero()), V::Set(FloatFromBits(kBitsSix)));
  }
  float One(float x) const { return ThroughLane(*this, x); }
};

// min(x, 0) * slope + max(x, 0); Leaky and PReLU alike, the slope being alpha.
struct LeakyOp {
  LeakyOp(float alpha, float) : slope(alpha) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    return V::Add(V::Mul(V::Min(x, V::Zero()), V::Set(slope)), V::Max(x, V::Zero()));
  }
  float One(float x) const { return ThroughLane(*this, x); }
  float slope;
};

// min(max(x + 3, 0), 6) * 0.16666667
struct HSigmoidOp {
  HSigmoidOp(float, float) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    const typename V::T clipped = V::Min(V::Max(V::Add(x, V::Set(FloatFromBits(kBitsThree))), V::Zero()),
                                         V::Set(FloatFromBits(kBitsSix)));
    return V::Mul(clipped, V::Set(FloatFromBits(kBitsSixth)));
  }
  float One(float x) const { return ThroughLane(*this, x); }
};

// min(max(x + 3, 0), 6) * 0.16666667 * x
struct HSwishOp {
  HSwishOp(float, float) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    return V::Mul(HSigmoidOp(0.0f, 0.0f).Apply<V>(x), x);
  }
  float One(float x) const { return ThroughLane(*this, x); }
};

// x * alpha + beta
struct LinearOp {
  LinearOp(float alpha, float beta) : alpha(alpha), beta(beta) {}
  template <class V>
  typename V::T Apply(typename V::T x) const {
    return V::Add(V::Mul(x, V::Set(alpha)), V::Set(beta));
  }
  float One(float x) const { return ThroughLane(*this, x); }
  float alpha;
  float beta;
};

// Body of four groups of VB lanes a round, then groups of 4, then single floats. `y` may equal `x`.
template <class Op, class VB>
void PointwiseCore(const float* x, uint32_t n, float* y, float alpha, float beta) {
  const Op op(alpha, beta);
  constexpr uint32_t kStep = VB::kLanes;
  uint32_t i = 0;
  for (; i + 4 * kStep <= n; i += 4 * kStep) {
    const typename VB::T x0 = VB::Load(x + i);
    const typename VB::T x1 = VB::Load(x + i + kStep);
    const typename VB::T x2 = VB::Load(x + i + 2 * kStep);
    const typename VB::T x3 = VB::Load(x + i + 3 * kStep);
    VB::Store(y + i, op.template Apply<VB>(x0));
    VB::Store(y + i + kStep, op.template Apply<VB>(x1));
    VB::Store(y + i + 2 * kStep, op.template Apply<VB>(x2));
    VB::Store(y + i + 3 * kStep, op.template Apply<VB>(x3));
  }
  for (; i + 4 <= n; i += 4) V4::Store(y + i, op.template Apply<V4>(V4::Load(x + i)));
  for (; i < n; ++i) y[i] = op.One(x[i]);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
