// The members of the 2D convolution family, every instruction set, one row per registered name; see rule.h
// for the columns. Registration (kernel/registry), the family tester and the benchmark read this list.
// Accuracy is against the family reference (reference.h); a bound of Within(abs, rel) reads, for this
// family, abs + rel * (the sum of the absolute values of the terms of the element).
#pragma once

#include "zelva/src/kernel/family/conv2d/blocked_frame.h"
#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/reference.h"
#include "zelva/src/kernel/family/conv2d/relayout_frame.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/family/conv2d/winograd_frame.h"

// Planar and layout-changing members
// The direct planar and three-channel members sum in the reference's order and are bit-exact; the one-output
// member reduces its lanes in another order (measured within 2.4e-7 of the magnitude of the terms) and
// Winograd transforms (within 3e-7); both are held to 1e-6 and 2e-6 of it.
// clang-format off
#define ZV_CONV2D_PLANAR_MEMBERS(X)                                                                              \
  X(kSSE, kSSE, Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1, kBitExact, CHW,                                       \
    kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kNotTested, kNotTested,                          \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kDirectConvAnySse)                                       \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    3, 3, 1, 1, 1, 1, kNonZero, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                    \
    kDirectConv3x3S1Sse)                                                                                         \
  X(kSSE, kSSE, Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    3, 3, 2, 2, 1, 1, kNonZero, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                    \
    kDirectConv3x3S2Sse)                                                                                         \
  X(kSSE, kSSE, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    3, 1, 1, 1, 1, 1, kNonZero, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                    \
    kDirectConv3x1S1Sse)                                                                                         \
  X(kSSE, kSSE, Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2, kBitExact, CHW,                                       \
    3, 1, 1, 1, 1, 1, kNonZero, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                    \
    kDirectConv3x1S1SseWide)                                                                                     \
  X(kSSE, kSSE, Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    1, 3, 1, 1, 1, 1, kNonZero, kNonZero, 1, 1, 0, 0, kDirectConv1x3S1Sse)                                       \
  X(kSSE, kSSE, Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    1, 1, 2, 2, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0, kDirectConv1x1S2Sse)                                       \
  X(kAVX, kAVX, Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    3, 3, 1, 1, 1, 1, kNonZero, kNonZero, 1, 1, 1, 1, kDirectConv3x3S1Avx)                                        \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1, kBitExact, CHWToC4HW4,                  \
    3, 3, 1, 1, 1, 1, kIn3OutMult4, kNonZero, 1, 1, 1, 1, kConv3x3S1PlanarToC4Sse)                               \
  X(kAVX, kAVX, Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1, kBitExact, CHWToC8HW8,                  \
    3, 3, 1, 1, 1, 1, kIn3OutMult8, kNonZero, 1, 1, 1, 1, kConv3x3S1PlanarToC8Avx)                               \
  X(kAVX, kAVX, Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1, kBitExact, CHWToC4HW4,                  \
    3, 3, 1, 1, 1, 1, kIn3OutMult4, kNonZero, 1, 1, 1, 1, kConv3x3S1PlanarToC4Avx)                               \
  X(kAVX, kAVX, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1, Within(1e-6f, 1e-6f), C8HW8ToCHW,     \
    3, 3, 1, 1, 1, 1, kInMult8Out1, kExactlyOne, 1, 1, 1, 1, kConv3x3S1C8ToPlanar1Avx)                           \
  X(kAVX, kAVX, Conv2d_K7x7_S2x2_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1, kBitExact, CHWToC8HW8,                  \
    7, 7, 2, 2, 1, 1, kIn3OutMult8, kNonZero, 3, 3, 3, 3, kConv7x7S2PlanarToC8Avx)                               \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1, Within(2e-6f, 2e-6f), WinogradCHW,          \
    3, 3, 1, 1, 1, 1, kNonZero, kNonZero, 1, 1, 1, 1, kWinogradTilesSse)                                         \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2, Within(2e-6f, 2e-6f), WinogradCHW,          \
    3, 3, 1, 1, 1, 1, kNonZero, kNonZero, 1, 1, 1, 1, kWinogradMatricesSse)
// clang-format on

// clang-format off
#define ZV_CONV2D_MEMBERS(X)                                                                                     \
  ZV_CONV2D_BLOCKED_MEMBERS(X)                                                                                   \
  X(kFallback, kScalar, Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, kBitExact, CHW,                          \
    kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kNonZero, kNonZero,     \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConv2dReferenceCore)                                    \
  X(kSGEMM, kScalar, Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1, Within(4e-6f, 4e-6f), CHW,                     \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0, kPointwiseConvSgemm)                                       \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                       \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0, kPointwiseConvSse)                                         \
  ZV_CONV2D_PLANAR_MEMBERS(X)
// clang-format on

// Blocked members: the channel-blocked rows (blocked_frame.h), referenced at the head of the list above.
// clang-format off
#define ZV_CONV2D_BLOCKED_MEMBERS(X)                                                                              \
  X(kSSE, kSSE, Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C4HW4_Float_M1, Within(4e-6f, 4e-6f), C4HW4,                         \
    kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kNotTested, kNotTested,                           \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConvC4SseColumns)                                        \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    1, 1, 1, 1, 1, 1, kMult4, kExactlyOne, 0, 0, 0, 0, kConvC4Sse1x1S1)                                           \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, kBitExact, C4HW4,                                    \
    1, 1, 1, 1, 1, 1, kMult4, kExactlyOne, 0, 0, 0, 0, kConvC4Sse1x1S1Wide)                                       \
  X(kSSE, kSSE, Conv2d_K1x1_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    1, 1, 2, 2, 1, 1, kMult4, kExactlyOne, 0, 0, 0, 0, kConvC4Sse1x1S2)                                           \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    3, 3, 1, 1, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConvC4Sse3x3S1)      \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, kBitExact, C4HW4,                                    \
    3, 3, 1, 1, 1, 1, kMult4, kNonZero, 1, 1, 1, 1, kConvC4Sse3x3S1Wide)                                          \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3, kBitExact, C4HW4,                                    \
    3, 3, 1, 1, 1, 1, kMult4, kNonZero, 1, 1, 1, 1, kConvC4Sse3x3S1Wider)                                         \
  X(kSSE, kSSE, Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    3, 3, 2, 2, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConvC4Sse3x3S2)      \
  X(kSSE, kSSE, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    1, 3, 1, 1, 1, 1, kMult4, kNonZero, 1, 1, 0, 0, kConvC4Sse1x3S1)                                              \
  X(kSSE, kSSE, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                                    \
    3, 1, 1, 1, 1, 1, kMult4, kNonZero, 0, 0, 1, 1, kConvC4Sse3x1S1)                                              \
  X(kSSE, kSSE, Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1, Within(4e-6f, 4e-6f), C8HW8,                         \
    kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kNotTested, kNotTested,                           \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConvC8SseColumns)                                        \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 1, 1, 1, 1, 1, kMult8, kExactlyOne, 0, 0, 0, 0, kConvC8Sse1x1S1)                                           \
  X(kSSE, kSSE, Conv2d_K1x1_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 1, 2, 2, 1, 1, kMult8, kExactlyOne, 0, 0, 0, 0, kConvC8Sse1x1S2)                                           \
  X(kSSE, kSSE, Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 3, 1, 1, 1, 1, kMult8, kNonZero, 1, 1, 1, 1, kConvC8Sse3x3S1)                                              \
  X(kSSE, kSSE, Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 3, 2, 2, 1, 1, kMult8, kNonZero, 1, 1, 1, 1, kConvC8Sse3x3S2)                                              \
  X(kSSE, kSSE, Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 3, 1, 1, 1, 1, kMult8, kNonZero, 1, 1, 0, 0, kConvC8Sse1x3S1)                                              \
  X(kSSE, kSSE, Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 1, 1, 1, 1, 1, kMult8, kNonZero, 0, 0, 1, 1, kConvC8Sse3x1S1)                                              \
  X(kAVX, kAVX, Conv2D_Knxm_Snxm_Dnxm_G1_AVX_C8HW8_Float_M1, Within(4e-6f, 4e-6f), C8HW8,                         \
    kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kConvAny, kMult8, kNotTested,                               \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny, kConvC8AvxColumns)                                        \
  X(kAVX, kAVX, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 1, 1, 1, 1, 1, kMult8, kExactlyOne, 0, 0, 0, 0, kConvC8Avx1x1S1)                                           \
  X(kAVX, kAVX, Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2, kBitExact, C8HW8,                                    \
    1, 1, 1, 1, 1, 1, kMult8, kExactlyOne, 0, 0, 0, 0, kConvC8Avx1x1S1Wide)                                       \
  X(kAVX, kAVX, Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 1, 2, 2, 1, 1, kMult8, kExactlyOne, 0, 0, 0, 0, kConvC8Avx1x1S2)                                           \
  X(kAVX, kAVX, Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 3, 1, 1, 1, 1, kMult8, kNonZero, 1, 1, 1, 1, kConvC8Avx3x3S1)                                              \
  X(kAVX, kAVX, Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    5, 5, 1, 1, 1, 1, kMult8, kNonZero, 2, 2, 2, 2, kConvC8Avx5x5S1)                                              \
  X(kAVX, kAVX, Conv2d_K7x7_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    7, 7, 1, 1, 1, 1, kMult8, kNonZero, 3, 3, 3, 3, kConvC8Avx7x7S1)                                              \
  X(kAVX, kAVX, Conv2d_K7x7_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    7, 7, 2, 2, 1, 1, kMult8, kNonZero, 3, 3, 3, 3, kConvC8Avx7x7S2)                                              \
  X(kAVX, kAVX, Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 3, 2, 2, 1, 1, kMult8, kNonZero, 1, 1, 1, 1, kConvC8Avx3x3S2)                                              \
  X(kAVX, kAVX, Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    1, 3, 1, 1, 1, 1, kMult8, kNonZero, 1, 1, 0, 0, kConvC8Avx1x3S1)                                              \
  X(kAVX, kAVX, Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                                    \
    3, 1, 1, 1, 1, 1, kMult8, kNonZero, 0, 0, 1, 1, kConvC8Avx3x1S1)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONV2D_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
