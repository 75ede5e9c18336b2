// The members of the layout-transform family, every instruction set, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, from, to, core)
//
// from and to are the layouts, core the routine of cores.h. Registration, the family tester and the benchmark
// read this list. A converter copies bits, so every member is bit-exact to the reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/layout/cores.h"
#include "zelva/src/kernel/family/layout/layout.h"

// clang-format off
#define ZV_LAYOUT_MEMBERS(X)                                                                                   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1, kBitExact, C4HW4, CHW, C4ToPlanarSse1)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1, kBitExact, CHW, C4HW4, PlanarToC4Sse1)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2, kBitExact, CHW, C4HW4, PlanarToC4Sse2)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1, kBitExact, CHW, C8HW8, PlanarToC8Sse1)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1, kBitExact, C8HW8, CHW, C8ToPlanarSse1)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2, kBitExact, C8HW8, CHW, C8ToPlanarSse2)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C8HW8_Float_To_C_SSE_M1, kBitExact, C8HW8, C, C8ToPlanarSse1)       \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1, kBitExact, C8HW8, C4HW4, C8ToC4Sse1)   \
  X(kSSE, kSSE, LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1, kBitExact, C4HW4, C8HW8, C4ToC8Sse1)   \
  X(kAVX, kAVX, LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1, kBitExact, CHW, C8HW8, PlanarToC8Avx1)   \
  X(kAVX, kAVX, LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2, kBitExact, CHW, C8HW8, PlanarToC8Avx2)   \
  X(kAVX, kAVX, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1, kBitExact, C8HW8, CHW, C8ToPlanarAvx1)   \
  X(kAVX, kAVX, LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2, kBitExact, C8HW8, CHW, C8ToPlanarAvx2)
// clang-format on

namespace zelva {
namespace kernel {
ZV_LAYOUT_MEMBERS(ZV_DEFINE_LAYOUT_MEMBER)
}  // namespace kernel
}  // namespace zelva
