// The cores of the depthwise convolution family. They see the planar convolution's PlanarConvArgs (the family
// shares the 2D convolution's rule and planar frame). Declarations only: each core is defined in the folder
// of the instruction set it needs (cpu/sse/depthwise).
#pragma once

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

// Planar depthwise 3x3 convolution, stride 1, in SSE, on a zero-padded input: channel c of the output reads
// channel c of the input alone. out[c][y][x] = bias[c] + the nine products w[c][ky][kx] * in[c][y + ky][x +
// kx] added in (ky, kx) order; separate multiply and add. Weights as they come: nine taps per channel. The
// nine taps of a channel are broadcast once; each output row goes eight pixels at a time, then four, then
// single pixels. Same order of additions as the reference, so results agree bit for bit.
void DepthwiseConv3x3S1Sse(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kDepthwiseConv3x3S1Sse{&DepthwiseConv3x3S1Sse, true};

}  // namespace kernel
}  // namespace zelva
