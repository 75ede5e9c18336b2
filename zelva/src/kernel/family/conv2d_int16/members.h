// The 16-bit integer 1x1 convolution, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, core)
//
// Conventions in conv2d_int16.h and cores.h. The integer sum is exact and is rounded to float once, as the
// reference's double sum is, so the member is bit-exact to it (reference.h).
#pragma once

#include "zelva/src/kernel/family/conv2d_int16/conv2d_int16.h"
#include "zelva/src/kernel/family/conv2d_int16/cores.h"

// clang-format off
#define ZV_CONV2D_INT16_MEMBERS(X)                                                                    \
  X(kSSE, kSSE, Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1, kBitExact, &::zelva::kernel::Conv2dInt16C8Sse)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONV2D_INT16_MEMBERS(ZV_DEFINE_CONV2D_INT16_MEMBER)
}  // namespace kernel
}  // namespace zelva
