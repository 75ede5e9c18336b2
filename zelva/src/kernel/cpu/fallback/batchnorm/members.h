// Members of the fallback batch-normalisation family: X(group, class).
#pragma once

#include "zelva/src/kernel/cpu/fallback/batchnorm/batchnorm2d_fallback.h"

// clang-format off
#define ZV_FALLBACK_BATCHNORM_MEMBERS(X) \
  X(kBase, BatchNorm2d_Fallback_Float_M1)
// clang-format on
