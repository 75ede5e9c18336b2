// Members of the SGEMM convolution family, one line each; see conv2d_rule.h for the columns.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_rule.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"
#include "zelva/src/kernel/cpu/sgemm/conv2d/pointwise_sgemm.h"

// clang-format off
#define ZV_SGEMM_CONV2D_MEMBERS(X)                                                                               \
  X(kSGEMM, Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1, PlanarConv2d, kPointwiseConvSgemm,                      \
    1, 1, 1, 1, 1, 1, kNonZero, kNonZero, 0, 0, 0, 0)
// clang-format on

namespace zelva {
namespace kernel {
ZV_SGEMM_CONV2D_MEMBERS(ZV_DEFINE_CONV2D_MEMBER)
}  // namespace kernel
}  // namespace zelva
