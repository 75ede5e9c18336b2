// The members of the depthwise convolution family, every instruction set, one row per registered name; the
// columns are those of the convolution lists (conv2d/rule.h). Planar rows run on the planar convolution
// frame and want in and out channels equal to groups; blocked rows run on the blocked depthwise frame
// (blocked_frame.h) and test multiples of the block alone. Every core keeps the reference's order of
// additions, so every row is bit-exact to the family reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/family/depthwise/blocked_frame.h"
#include "zelva/src/kernel/family/depthwise/cores.h"

// clang-format off
#define ZV_DEPTHWISE_MEMBERS(X)                                                                                  \
  X(kSSE, kSSE, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                \
    3, 3, 1, 1, 1, 1, kDepthwise, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                  \
    kDepthwise3x3S1PlanarSse)                                                                                    \
  X(kSSE, kSSE, Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                \
    3, 3, 2, 2, 1, 1, kDepthwise, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                  \
    kDepthwise3x3S2PlanarSse)                                                                                    \
  X(kSSE, kSSE, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                            \
    3, 3, 1, 1, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise3x3S1C4Sse)                                                                                        \
  X(kSSE, kSSE, Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                            \
    3, 3, 2, 2, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise3x3S2C4Sse)                                                                                        \
  X(kSSE, kSSE, Depthwise_Conv2D_K5x5_S2x2_D1x1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                            \
    5, 5, 2, 2, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise5x5S2C4Sse)                                                                                        \
  X(kSSE, kSSE, Depthwise_Conv2D_K5x5_S1x1_D1x1_SSE_C4HW4_FLOAT_M2, kBitExact, C4HW4,                            \
    5, 5, 1, 1, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise5x5S1C4SseRows2)                                                                                   \
  X(kSSE, kSSE, Depthwise_Conv2D_K5x5_S1x1_D1x1_SSE_C4HW4_FLOAT_M1, kBitExact, C4HW4,                            \
    5, 5, 1, 1, 1, 1, kMult4, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise5x5S1C4Sse)                                                                                        \
  X(kAVX, kAVX, Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                            \
    3, 3, 1, 1, 1, 1, kMult8, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise3x3S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                            \
    3, 3, 2, 2, 1, 1, kMult8, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise3x3S2C8Avx)                                                                                        \
  X(kAVX, kAVX, Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                            \
    5, 5, 1, 1, 1, 1, kMult8, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise5x5S1C8Avx)                                                                                        \
  X(kAVX, kAVX, Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1, kBitExact, C8HW8,                            \
    5, 5, 2, 2, 1, 1, kMult8, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                      \
    kDepthwise5x5S2C8Avx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_DEPTHWISE_MEMBERS(ZV_DEFINE_DEPTHWISE_MEMBER)
}  // namespace kernel
}  // namespace zelva
