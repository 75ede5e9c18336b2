// Planar 1x1 convolution, stride 1, through the matrix product: the unpadded input already is the matrix.
// Per group, GemmRowMajor(M = outputs, K = input channels, N = H * W, alpha 1, weights (left), input, beta 0,
// output), then the bias of each channel added over its plane. The BLAS may fuse multiply and add inside, so
// results agree with the reference within rounding, not bit for bit.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"

namespace zelva {
namespace kernel {

void PointwiseConvSgemm(const PlanarConvArgs& args);

inline constexpr PlanarConvCore kPointwiseConvSgemm{&PointwiseConvSgemm, false};

}  // namespace kernel
}  // namespace zelva
