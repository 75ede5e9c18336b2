// Members of the fallback transform (reshape) family: X(group, class).
#pragma once

#include "zelva/src/kernel/cpu/fallback/transform/transform_reshape_fallback.h"

// clang-format off
#define ZV_FALLBACK_TRANSFORM_MEMBERS(X) \
  X(kBase, Transform_MainMemory_Reshape_Fallback)
// clang-format on
