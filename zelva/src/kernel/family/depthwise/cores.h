// The cores of the depthwise convolution family and what they see. The planar (CHW) members run on the
// planar convolution frame and see its PlanarConvArgs; the blocked members (C4HW4, C8HW8) run on the blocked
// depthwise frame (blocked_frame.h) and see BlockedDepthwiseArgs. Declarations only: each core is defined in
// the folder of the instruction set it needs (cpu/sse/depthwise, cpu/avx/depthwise). Members that differ only
// in kernel size or stride share one core, a template on both.
//
// Every core computes, for each channel c and output pixel (y, x), bias[c] (or 0.0), then + input x tap for
// the taps (ky, kx) in order, on an input the frame has zero-padded: the order of the reference, with
// separate multiply and add, so results agree with it bit for bit. Tiles give each output pixel its own
// accumulator; they change which pixels are computed together, never the order of a pixel's sum.
#pragma once

#include <cstdint>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

// ---- Planar, SSE (cpu/sse/depthwise/depthwise_planar_sse.cc). The taps of a channel are broadcast once;
// an output row goes four pixels a vector (stride 2: the even lanes of two loads), then single pixels.
// Stride 1 takes one row a round, stride 2 two rows a round and an odd last row alone. Weights as they come:
// K x K taps per channel.
template <int K, int S>
void DepthwisePlanarSse(const PlanarConvArgs& args);
extern template void DepthwisePlanarSse<3, 1>(const PlanarConvArgs&);
extern template void DepthwisePlanarSse<3, 2>(const PlanarConvArgs&);
inline constexpr PlanarConvCore kDepthwise3x3S1PlanarSse{&DepthwisePlanarSse<3, 1>, true};
inline constexpr PlanarConvCore kDepthwise3x3S2PlanarSse{&DepthwisePlanarSse<3, 2>, true};

// What a blocked core sees: the zero-padded input [blocks, in_h, in_w, lanes], the output [blocks, out_h,
// out_w, lanes], the weights blocked by channel (G4NCHW4g or G8NCHW8g: [blocks, K, K, lanes], so one vector
// load gives one tap of every channel of a block) and the bias [blocks x lanes], null without bias.
struct BlockedDepthwiseArgs {
  const float* input;
  uint32_t in_h, in_w;
  float* output;
  uint32_t out_h, out_w;
  uint32_t blocks;
  const float* weight;
  const float* bias;
};

struct BlockedDepthwiseCore {
  void (*run)(const BlockedDepthwiseArgs& args);
};

// ---- Blocked. A round computes a tile of R output rows by C output columns, one vector accumulator per
// pixel, reading each tap vector once per tile; the rows left below the last full tile go one at a time, and
// so do the columns right of the last full tile (the odd last row and column of the stride 2 cores).
// C4HW4 in SSE (cpu/sse/depthwise/depthwise_blocked_sse.cc), C8HW8 in AVX (cpu/avx/depthwise/).
template <int K, int S, int R, int C>
void DepthwiseC4Sse(const BlockedDepthwiseArgs& args);
template <int K, int S, int R, int C>
void DepthwiseC8Avx(const BlockedDepthwiseArgs& args);
extern template void DepthwiseC4Sse<3, 1, 1, 4>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC4Sse<3, 2, 2, 2>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC4Sse<5, 1, 1, 4>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC4Sse<5, 1, 2, 4>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC4Sse<5, 2, 2, 2>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC8Avx<3, 1, 1, 4>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC8Avx<3, 2, 2, 2>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC8Avx<5, 1, 1, 4>(const BlockedDepthwiseArgs&);
extern template void DepthwiseC8Avx<5, 2, 2, 2>(const BlockedDepthwiseArgs&);

// Stride 1: one row of four pixels a round. 5x5 M2: two rows of four a round, each input row read once for
// both output rows. Stride 2: two rows by two columns a round.
inline constexpr BlockedDepthwiseCore kDepthwise3x3S1C4Sse{&DepthwiseC4Sse<3, 1, 1, 4>};
inline constexpr BlockedDepthwiseCore kDepthwise3x3S2C4Sse{&DepthwiseC4Sse<3, 2, 2, 2>};
inline constexpr BlockedDepthwiseCore kDepthwise5x5S1C4Sse{&DepthwiseC4Sse<5, 1, 1, 4>};
inline constexpr BlockedDepthwiseCore kDepthwise5x5S1C4SseRows2{&DepthwiseC4Sse<5, 1, 2, 4>};
inline constexpr BlockedDepthwiseCore kDepthwise5x5S2C4Sse{&DepthwiseC4Sse<5, 2, 2, 2>};
inline constexpr BlockedDepthwiseCore kDepthwise3x3S1C8Avx{&DepthwiseC8Avx<3, 1, 1, 4>};
inline constexpr BlockedDepthwiseCore kDepthwise3x3S2C8Avx{&DepthwiseC8Avx<3, 2, 2, 2>};
inline constexpr BlockedDepthwiseCore kDepthwise5x5S1C8Avx{&DepthwiseC8Avx<5, 1, 1, 4>};
inline constexpr BlockedDepthwiseCore kDepthwise5x5S2C8Avx{&DepthwiseC8Avx<5, 2, 2, 2>};

}  // namespace kernel
}  // namespace zelva
