// The members of the expand family, every instruction set, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, layout, core)
//
// core from cores.h. Conventions in expand.h. Values are moved, never computed: every member is bit-exact to
// the reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/expand/cores.h"
#include "zelva/src/kernel/family/expand/expand.h"

// clang-format off
#define ZV_EXPAND_MEMBERS(X)                                                                     \
  X(kFallback, kScalar, Expand_Fallback_CHW_Float_M1, kBitExact, CHW, &::zelva::kernel::ExpandScalar) \
  X(kSSE, kSSE, Expand_SSE_CHW_Float_M1, kBitExact, CHW, &::zelva::kernel::ExpandSse)                 \
  X(kSSE, kSSE, Expand_SSE_C4HW4_Float_M1, kBitExact, C4HW4, &::zelva::kernel::ExpandSse)             \
  X(kAVX, kAVX, Expand_AVX_CHW_Float_M1, kBitExact, CHW, &::zelva::kernel::ExpandAvx)                 \
  X(kAVX, kAVX, Expand_AVX_C8HW8_Float_M1, kBitExact, C8HW8, &::zelva::kernel::ExpandAvx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_EXPAND_MEMBERS(ZV_DEFINE_EXPAND_MEMBER)
}  // namespace kernel
}  // namespace zelva
