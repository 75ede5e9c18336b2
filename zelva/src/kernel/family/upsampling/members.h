// The members of the upsampling family, one row per registered name: X(group, isa, ClassName, accuracy,
// layout, modes, core). No member fixes a factor; the numbers of the bilinear members name their method
// (cores.h). Every row forms each value with the reference's operations in its order and is bit-exact to it
// (reference.h).
#pragma once

#include "zelva/src/kernel/family/upsampling/cores.h"
#include "zelva/src/kernel/family/upsampling/upsampling.h"

// clang-format off
#define ZV_UPSAMPLING_MEMBERS(X)                                                                                 \
  X(kFallback, kScalar, Upsampling2D_Fallback_CHW_Float_M1, kBitExact, CHW, kAll, kUpsampleReferenceCore)        \
  X(kSSE, kSSE, Upsampling2D_Nearest_SSE_C4HW4_Float_M1, kBitExact, C4HW4, kNearest, kUpsampleNearestC4Sse)      \
  X(kSSE, kSSE, Upsampling2D_Bilinear_SSE_C4HW4_Float_M1, kBitExact, C4HW4, kBilinear,                           \
    kUpsampleBilinearC4DirectSse)                                                                                \
  X(kSSE, kSSE, Upsampling2D_Bilinear_SSE_C4HW4_Float_M2, kBitExact, C4HW4, kBilinear, kUpsampleBilinearC4RowsSse) \
  X(kSSE, kSSE, Upsampling2D_Bilinear_SSE_CHW_Float_M1, kBitExact, CHW, kBilinear,                               \
    kUpsampleBilinearPlanarDirectSse)                                                                            \
  X(kSSE, kSSE, Upsampling2D_Bilinear_SSE_CHW_Float_M2, kBitExact, CHW, kBilinear, kUpsampleBilinearPlanarRowsSse) \
  X(kSSE, kSSE, Upsampling2D_Bilinear_SSE_CHW_Float_M3, kBitExact, CHW, kBilinear,                               \
    kUpsampleBilinearPlanarPlaneSse)                                                                             \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_C8HW8_Float_M1, kBitExact, C8HW8, kBilinear,                           \
    kUpsampleBilinearC8DirectAvx)                                                                                \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_C8HW8_Float_M2, kBitExact, C8HW8, kBilinear, kUpsampleBilinearC8RowsAvx) \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_C8HW8_Float_M3, kBitExact, C8HW8, kBilinear,                           \
    kUpsampleBilinearC8PlaneAvx)                                                                                 \
  X(kAVX, kAVX, Upsampling2D_Nearest_AVX_C8HW8_Float_M1, kBitExact, C8HW8, kNearest, kUpsampleNearestC8Avx)      \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_CHW_Float_M1, kBitExact, CHW, kBilinear,                               \
    kUpsampleBilinearPlanarDirectAvx)                                                                            \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_CHW_Float_M2, kBitExact, CHW, kBilinear, kUpsampleBilinearPlanarRowsAvx) \
  X(kAVX, kAVX, Upsampling2D_Bilinear_AVX_CHW_Float_M3, kBitExact, CHW, kBilinear,                               \
    kUpsampleBilinearPlanarPlaneAvx)
// clang-format on

namespace zelva {
namespace kernel {
ZV_UPSAMPLING_MEMBERS(ZV_DEFINE_UPSAMPLING_MEMBER)
}  // namespace kernel
}  // namespace zelva
