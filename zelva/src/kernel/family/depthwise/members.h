// The members of the depthwise convolution family, every instruction set, one row per registered name; the
// columns are those of the convolution lists (conv2d/rule.h), and the planar rows run on the planar
// convolution frame. The planar members want in and out channels equal to groups; blocked ones test multiples
// of the block. Accuracy is against the family reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/family/depthwise/cores.h"

// clang-format off
#define ZV_DEPTHWISE_MEMBERS(X)                                                                                  \
  X(kSSE, kSSE, Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1, kBitExact, CHW,                                \
    3, 3, 1, 1, 1, 1, kDepthwise, kNonZero, kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny,                  \
    kDepthwiseConv3x3S1Sse)
// clang-format on

namespace zelva {
namespace kernel {
ZV_DEPTHWISE_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
