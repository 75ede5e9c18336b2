// Members of the input family: X(group, class). The input kernel stands in two groups; the second
// registration of its name is a no-op.
#pragma once

#include "zelva/src/kernel/cpu/fallback/input/input_fallback.h"

// clang-format off
#define ZV_FALLBACK_INPUT_MEMBERS(X) \
  X(kBase, Input_Fallback_M1)        \
  X(kFallback, Input_Fallback_M1)
// clang-format on
