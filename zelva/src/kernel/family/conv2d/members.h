// The members of the 2D convolution family, every instruction set, one row per registered name; see rule.h
// for the columns. Registration (kernel/registry), the family tester and the benchmark read this list.
// Accuracy is against the family reference (reference.h); a bound of Within(abs, rel) reads, for this
// family, abs + rel * (the sum of the absolute values of the terms of the element).
#pragma once

#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/reference.h"
#include "zelva/src/kernel/family/conv2d/rule.h"

// clang-format off
#define ZV_CONV2D_MEMBERS(X)                                                                                     \
  X(kFallback, kScalar, Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, kBitExact, CHW,                          \
    kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kNonZero, kNonZero,     \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConv2dReferenceCore)                                    \
  X(kSGEMM, kScalar, Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1, Within(4e-6f, 4e-6f), CHW,                     \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0, kPointwiseConvSgemm)                                       \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0, kPointwiseConvSse)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONV2D_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
