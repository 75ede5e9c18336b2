// The cores of the pixel shuffle family and what they see. Declarations only: each core is defined in the
// folder of the instruction set it needs (cpu/fallback, cpu/sse, cpu/avx under pixelshuffle/).
//
// Upscale by r: logical input channel c * r * r + i * r + j at (h, w) goes to output channel c at
// (h * r + i, w * r + j). Downscale by r is the inverse. The cores move bits and never compute.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// `channels`, `height`, `width` are the input's logical sizes; `factor` is r. Blocked cores read and write
// their layout's blocks ([channels / lanes, height, width, lanes]). Input and output do not overlap.
struct PixelShuffleArgs {
  const float* input;
  float* output;
  uint32_t channels;
  uint32_t height;
  uint32_t width;
  uint32_t factor;
};

using PixelShuffleCore = void (*)(const PixelShuffleArgs& args);

// ---- Fallback (cpu/fallback/pixelshuffle): planar, any factor, one output row at a time.
void PixelShuffleUpPlanar(const PixelShuffleArgs& args);
void PixelShuffleDownPlanar(const PixelShuffleArgs& args);

// ---- SSE (cpu/sse/pixelshuffle): C4HW4, factor 2. Up: the four input blocks 4b..4b+3 of a pixel, through a
// 4x4 transposition, give output block b at the four pixels of its 2x2 cell. Down: the four pixels of a 2x2
// cell of input block b, transposed, give output blocks 4b..4b+3 of one pixel.
void PixelShuffleUp2C4Sse(const PixelShuffleArgs& args);
void PixelShuffleDown2C4Sse(const PixelShuffleArgs& args);

// ---- AVX (cpu/avx/pixelshuffle): C8HW8, factor 2; the same transpositions on 8-lane blocks (half swaps
// across the two 128-bit lanes, then in-lane 4x4 transpositions).
void PixelShuffleUp2C8Avx(const PixelShuffleArgs& args);
void PixelShuffleDown2C8Avx(const PixelShuffleArgs& args);

}  // namespace kernel
}  // namespace zelva
