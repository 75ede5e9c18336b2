// The members of the transposed convolution family, one row per registered name:
// X(group, isa, ClassName, accuracy, layout, kernel, dilation, groups, core), kConvTransposeNonZero for "any
// but 0"; no member fixes the stride. Every row keeps the reference's order of additions and is bit-exact to
// it (reference.h).
#pragma once

#include "zelva/src/kernel/family/convtranspose/convtranspose.h"
#include "zelva/src/kernel/family/convtranspose/cores.h"
#include "zelva/src/kernel/family/convtranspose/reference.h"

// clang-format off
#define ZV_CONVTRANSPOSE_MEMBERS(X)                                                                              \
  X(kFallback, kScalar, ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, kBitExact, CHW,                 \
    kConvTransposeNonZero, kConvTransposeNonZero, kConvTransposeNonZero, kConvTransposeReferenceCore)            \
  X(kSSE, kSSE, ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW, 3, 1, 1,                          \
    kConvTranspose3x3PlanarSse)                                                                                  \
  X(kSSE, kSSE, ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4, 3, 1, 1,                      \
    kConvTranspose3x3C4Sse)                                                                                      \
  X(kAVX, kAVX, ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8, 3, 1, 1,                      \
    kConvTranspose3x3C8Avx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONVTRANSPOSE_MEMBERS(ZV_DEFINE_CONVTRANSPOSE_MEMBER)
}  // namespace kernel
}  // namespace zelva
