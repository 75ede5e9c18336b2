// The members of the concatenation family, one row per registered name: X(group, isa, ClassName, accuracy).
// A byte copy, so bit-exact by construction.
#pragma once

#include "zelva/src/kernel/family/concatenate/concatenate.h"
#include "zelva/src/kernel/frame/member.h"

// clang-format off
#define ZV_CONCATENATE_MEMBERS(X) \
  X(kFallback, kScalar, Concatenate_C_Fallback_CnHWn_M1, kBitExact)
// clang-format on

namespace zelva {
namespace kernel {
ZV_CONCATENATE_MEMBERS(ZV_DEFINE_CONCATENATE_MEMBER)
}  // namespace kernel
}  // namespace zelva
