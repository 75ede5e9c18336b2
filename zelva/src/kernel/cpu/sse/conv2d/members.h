// Members of the SSE convolution family, one line each; see conv2d_rule.h for the columns.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_rule.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"
#include "zelva/src/kernel/cpu/sse/conv2d/pointwise_sse.h"

// clang-format off
#define ZV_SSE_CONV2D_MEMBERS(X)                                                                                 \
  X(kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1, PlanarConv2d, kPointwiseConvSse,                            \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0)
// clang-format on

namespace zelva {
namespace kernel {
ZV_SSE_CONV2D_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
