// The members of the batch-normalisation family, one row per registered name: X(group, isa, ClassName,
// accuracy). Registration and the family tester read this list. Accuracy is against the family reference
// (reference.h).
#pragma once

#include "zelva/src/kernel/family/batchnorm/batchnorm.h"

// clang-format off
#define ZV_BATCHNORM_MEMBERS(X) \
  X(kBase, kScalar, BatchNorm2d_Fallback_Float_M1, kBitExact)
// clang-format on

namespace zelva {
namespace kernel {
ZV_BATCHNORM_MEMBERS(ZV_DEFINE_BATCHNORM_MEMBER)
}  // namespace kernel
}  // namespace zelva
