// Members of the fallback convolution family, one line each; see conv2d_rule.h for the columns.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_reference.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_rule.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"

// clang-format off
#define ZV_FALLBACK_CONV2D_MEMBERS(X)                                                                            \
  X(kFallback, Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1, PlanarConv2d, kConv2dReferenceCore,               \
    kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kConvNonZero, kNonZero, kNonZero,     \
    kConvPadAny, kConvPadAny, kConvPadAny, kConvPadAny)
// clang-format on

namespace zelva {
namespace kernel {
ZV_FALLBACK_CONV2D_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
