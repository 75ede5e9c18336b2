// Members of the SSE depthwise convolution family, one line each; see conv2d_rule.h for the columns. The
// planar members want in and out channels equal to groups; the blocked ones test multiples of the block.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_rule.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"
#include "zelva/src/kernel/cpu/sse/depthwise/depthwise3x3_sse.h"

// clang-format off
#define ZV_SSE_DEPTHWISE_MEMBERS(X)                                                                              \
  X(kSSE, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, PlanarConv2d, kDepthwiseConv3x3S1Sse,                \
    3, 3, 1, 1, 1, 1, kDepthwise, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny)
// clang-format on

namespace zelva {
namespace kernel {
ZV_SSE_DEPTHWISE_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
