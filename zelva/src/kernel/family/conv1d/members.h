// The members of the one-dimensional convolution family, one row per registered name:
// X(group, isa, ClassName, accuracy, kernel, stride, dilation, groups, core), with kConv1dNonZero for "any
// but 0". Both rows keep the reference's order of additions and are bit-exact to it (reference.h).
#pragma once

#include "zelva/src/kernel/family/conv1d/conv1d.h"
#include "zelva/src/kernel/family/conv1d/cores.h"
#include "zelva/src/kernel/family/conv1d/reference.h"

// clang-format off
#define ZV_CONV1D_MEMBERS(X)                                                                                     \
  X(kFallback, kScalar, Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1, kBitExact,                                      \
    kConv1dNonZero, kConv1dNonZero, kConv1dNonZero, kConv1dNonZero, kConv1dReferenceCore)                        \
  X(kAVX, kAVX, Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1, kBitExact, 3, 1, 1, 1, kConv1dK3S1Avx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONV1D_MEMBERS(ZV_DEFINE_CONV1D_MEMBER)
}  // namespace kernel
}  // namespace zelva
