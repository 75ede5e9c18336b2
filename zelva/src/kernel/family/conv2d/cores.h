// The cores of the 2D convolution family and what they see. A core is a free function on raw pointers; the
// planar frame (planar_frame.h) hands it a PlanarConvArgs. Declarations only: each core is defined in the
// folder of the instruction set it needs (cpu/sse/conv2d, cpu/sgemm/conv2d); the Fallback member's core is
// the family reference (reference.h).
#pragma once

#include <cstdint>

#include "zelva/inc/zelva/kernel/kernel_param.h"

namespace zelva {
namespace kernel {

// What a planar core sees. The input is [in_channels, in_h, in_w]; pad_* is the padding the core still has to
// apply itself (zero when the frame has padded the copy it passes). The output is [out_channels, out_h,
// out_w]. The weight is in GNCHW order; bias is null for a layer without bias.
struct PlanarConvArgs {
  const float* input;
  uint32_t in_h, in_w;
  uint32_t pad_l, pad_r, pad_t, pad_b;
  float* output;
  uint32_t out_h, out_w;
  const float* weight;
  const float* bias;
  const Conv2dParam* param;
};

// A planar core and how the frame feeds it.
struct PlanarConvCore {
  void (*run)(const PlanarConvArgs& args);
  bool pads_input;  // the frame hands the core a zero-padded copy; otherwise the core handles borders
};

// Planar 1x1 convolution, stride 1, in SSE (cpu/sse/conv2d/pointwise_sse.cc): per group, out[o][p] = bias[o]
// + the sum over the group's input channels i, in order, of w[o][i] * in[i][p]; separate multiply and add.
// Tiles of four output channels by eight pixels (one input load feeds four outputs), then four pixels, then
// single pixels; output channels beyond a multiple of four one at a time. Each value sums in the same order
// as the reference, so results agree bit for bit.
void PointwiseConvSse(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kPointwiseConvSse{&PointwiseConvSse, false};

// Planar 1x1 convolution, stride 1, through the matrix product (cpu/sgemm/conv2d/pointwise_sgemm.cc): the
// unpadded input already is the matrix. Per group, GemmRowMajor(M = outputs, K = input channels, N = H * W,
// alpha 1, weights (left), input, beta 0, output), then the bias of each channel added over its plane. The
// BLAS may fuse multiply and add inside, so results agree with the reference within rounding, not bit for
// bit.
void PointwiseConvSgemm(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kPointwiseConvSgemm{&PointwiseConvSgemm, false};

}  // namespace kernel
}  // namespace zelva
