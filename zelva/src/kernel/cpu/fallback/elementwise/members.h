// Members of the fallback elementwise and broadcast family: X(group, class).
#pragma once

#include "zelva/src/kernel/cpu/fallback/elementwise/elementwise_fallback.h"

// clang-format off
#define ZV_FALLBACK_ELEMENTWISE_MEMBERS(X)            \
  X(kFallback, Elementwise_Fallback_Float_M1)         \
  X(kFallback, BroadcastOperator_Fallback_Float_M1)
// clang-format on
