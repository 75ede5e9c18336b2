// Members of the fallback transform (reshape) family: X(group, class, entries), where `entries` is the entry
// count of new_shape that the member accepts (0: any count).
#pragma once

#include "zelva/src/kernel/cpu/fallback/transform/reshape_fallback.h"
#include "zelva/src/kernel/cpu/fallback/transform/transform_reshape_fallback.h"

// clang-format off
#define ZV_FALLBACK_TRANSFORM_MEMBERS(X)                     \
  X(kBase, Transform_MainMemory_Reshape_Fallback, 0)         \
  X(kFallback, Reshape_Fallback_CnHWn_To_C_M1, 2)            \
  X(kFallback, Reshape_Fallback_CnHWn_To_CL_M1, 3)           \
  X(kFallback, Reshape_Fallback_CL_To_CHW_M1, 4)             \
  X(kFallback, Reshape_Fallback_Any_M1, 0)                   \
  X(kFallback, Reshape_Fallback_To_CHW_M1, 0)                \
  X(kFallback, Reshape_Fallback_To_SC_M1, 0)                 \
  X(kFallback, Reshape_Fallback_To_C_M1, 0)
// clang-format on
