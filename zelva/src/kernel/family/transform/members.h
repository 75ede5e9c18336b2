// The members of the transform (reshape) family, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, form, entries)
//
// form and entries as in reshape.h. Registration, the family tester and the benchmark read this list. Every
// member moves values without arithmetic, so every one is bit-exact to the family reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/transform/reshape.h"

// clang-format off
#define ZV_TRANSFORM_MEMBERS(X)                                                                   \
  X(kBase, kScalar, Transform_MainMemory_Reshape_Fallback, kBitExact, kGeneral, 0)                \
  X(kFallback, kScalar, Reshape_Fallback_CnHWn_To_C_M1, kBitExact, kCnHWnToC, 2)                  \
  X(kFallback, kScalar, Reshape_Fallback_CnHWn_To_CL_M1, kBitExact, kCnHWnToCL, 3)                \
  X(kFallback, kScalar, Reshape_Fallback_CL_To_CHW_M1, kBitExact, kCLToCHW, 4)                    \
  X(kFallback, kScalar, Reshape_Fallback_Any_M1, kBitExact, kAny, 0)                              \
  X(kFallback, kScalar, Reshape_Fallback_To_CHW_M1, kBitExact, kToCHW, 0)                         \
  X(kFallback, kScalar, Reshape_Fallback_To_SC_M1, kBitExact, kToSC, 0)                           \
  X(kFallback, kScalar, Reshape_Fallback_To_C_M1, kBitExact, kToC, 0)
// clang-format on

namespace zelva {
namespace kernel {
ZV_TRANSFORM_MEMBERS(ZV_DEFINE_TRANSFORM_MEMBER)
}  // namespace kernel
}  // namespace zelva
