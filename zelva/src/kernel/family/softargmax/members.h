// The members of the soft arg-max family, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, core)
//
// core from cores.h, conventions in softargmax.h. The bounds are against the double-precision reference
// (reference.h): over 400 random maps of up to 24 x 31, beta 1, 7.5, -3 and 0, the worst errors measured were
// 4.8e-6 (Fallback) and 3.8e-6 (SSE) at coordinates near 25 and 5.8e-7 relative, both in float sums.
#pragma once

#include "zelva/src/kernel/family/softargmax/cores.h"
#include "zelva/src/kernel/family/softargmax/softargmax.h"

// clang-format off
#define ZV_SOFTARGMAX_MEMBERS(X)                                                                             \
  X(kFallback, kScalar, SoftArgMax_Fallback_Float_M1, Within(1e-6f, 1e-6f), &::zelva::kernel::SoftArgMaxScalar) \
  X(kSSE, kSSE, SoftArgMax_SSE_CHW_Float_M1, Within(1e-6f, 1e-6f), &::zelva::kernel::SoftArgMaxSse)
// clang-format on

namespace zelva {
namespace kernel {
ZV_SOFTARGMAX_MEMBERS(ZV_DEFINE_SOFTARGMAX_MEMBER)
}  // namespace kernel
}  // namespace zelva
