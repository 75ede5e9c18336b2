// The members of the pixel shuffle family, every instruction set, one row per registered name:
//
//   X(group, isa, ClassName, accuracy, layout, factor, up core, down core)
//
// factor is the one the name fixes (0: any whole factor), the cores those of cores.h (nullptr for a direction
// the member does not run). Conventions in pixelshuffle.h. Values are moved, never computed: every member is
// bit-exact to the reference (reference.h).
#pragma once

#include "zelva/src/kernel/family/pixelshuffle/cores.h"
#include "zelva/src/kernel/family/pixelshuffle/pixelshuffle.h"

// clang-format off
#define ZV_PIXELSHUFFLE_MEMBERS(X)                                                                           \
  X(kFallback, kScalar, Pixelshuffle_Fallback_CHW_Float_M1, kBitExact, CHW, 0,                               \
    &::zelva::kernel::PixelShuffleUpPlanar, &::zelva::kernel::PixelShuffleDownPlanar)                                                          \
  X(kSSE, kSSE, PixelShuffle_Downscale2_SSE_C4HW4_Float_M1, kBitExact, C4HW4, 2, nullptr,                    \
    &::zelva::kernel::PixelShuffleDown2C4Sse)                                                                                 \
  X(kSSE, kSSE, PixelShuffle_Upscale2_SSE_C4HW4_Float_M1, kBitExact, C4HW4, 2, &::zelva::kernel::PixelShuffleUp2C4Sse,        \
    nullptr)                                                                                                 \
  X(kAVX, kAVX, PixelShuffle_Downscale2_AVX_C8HW8_Float_M1, kBitExact, C8HW8, 2, nullptr,                    \
    &::zelva::kernel::PixelShuffleDown2C8Avx)                                                                                 \
  X(kAVX, kAVX, PixelShuffle_Upscale2_AVX_C8HW8_Float_M1, kBitExact, C8HW8, 2, &::zelva::kernel::PixelShuffleUp2C8Avx,        \
    nullptr)
// clang-format on

namespace zelva {
namespace kernel {
ZV_PIXELSHUFFLE_MEMBERS(ZV_DEFINE_PIXELSHUFFLE_MEMBER)
}  // namespace kernel
}  // namespace zelva
