// The members of the warp affine family, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, core)
//
// Conventions in warpaffine.h and cores.h. The core keeps the reference's coordinate steps and order of
// additions, so it is bit-exact to it (reference.h).
#pragma once

#include "zelva/src/kernel/family/warpaffine/cores.h"
#include "zelva/src/kernel/family/warpaffine/warpaffine.h"

// clang-format off
#define ZV_WARPAFFINE_MEMBERS(X)                                                          \
  X(kSSE, kSSE, WarpAffine_SSE_Float_M1, kBitExact, &::zelva::kernel::WarpAffineSse)
// clang-format on

namespace zelva {
namespace kernel {
ZV_WARPAFFINE_MEMBERS(ZV_DEFINE_WARPAFFINE_MEMBER)
}  // namespace kernel
}  // namespace zelva
