// Members of the Fallback activation family: X(group, class, activation code, core, placement), as in the
// SSE and AVX lists. The list also declares the classes.
#pragma once

#include "zelva/src/kernel/cpu/fallback/activation/linear_fallback.h"
#include "zelva/src/kernel/cpu/sse/activation/activation_kernel.h"

// clang-format off
#define ZV_FALLBACK_ACTIVATION_MEMBERS(X)                                              \
  X(kFallback, Linear_Fallback_Float_M1, kActLinear, LinearFallback, kOutOfPlace)
// clang-format on

ZV_FALLBACK_ACTIVATION_MEMBERS(ZV_DECLARE_ACTIVATION_MEMBER)
