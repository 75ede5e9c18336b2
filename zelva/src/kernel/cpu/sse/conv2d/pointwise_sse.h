// Planar 1x1 convolution, stride 1, in SSE: per group, out[o][p] = bias[o] + sum over the group's input
// channels i, in order, of w[o][i] * in[i][p]; separate multiply and add. Weights as they come (GNCHW).
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"

namespace zelva {
namespace kernel {

// Tiles of four output channels by eight pixels (one input load feeds four outputs), then four pixels, then
// single pixels; output channels beyond a multiple of four one at a time. Each value sums in the same order
// as the reference, so results agree bit for bit.
void PointwiseConvSse(const PlanarConvArgs& args);

inline constexpr PlanarConvCore kPointwiseConvSse{&PointwiseConvSse, false};

}  // namespace kernel
}  // namespace zelva
