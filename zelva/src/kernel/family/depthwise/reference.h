// The reference of the depthwise convolution family: each output channel is the plain 2D convolution of the
// input channel of the same index with that channel's kernel, any kernel size, stride, dilation and padding.
// A plain loop, independent of the cores and of the 2D convolution reference; the family tester holds every
// member against it and holds it against the depthwise cases of torch.nn.Conv2d
// (tests/data/conv2d_fixture.txt) within 4e-6 * (1 + the sum of the absolute values of the terms).
#pragma once

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

// out[c][oy][ox] = bias[c] (or 0.0), then + in[c][y][x] * w[c][ky][kx] for ky, then kx, in order, where
// y = oy * stride_y + ky * dilation_y - pad_t and x likewise; 0.0 outside the input. Channels are
// param->out_channels, which a depthwise layer has equal to its input channels and groups.
void DepthwiseReference(const PlanarConvArgs& args);

}  // namespace kernel
}  // namespace zelva
