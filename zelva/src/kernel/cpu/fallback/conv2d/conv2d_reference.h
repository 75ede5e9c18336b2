// The plain convolution: any kernel, stride, dilation, padding and group count, one element at a time. It is
// the core of the fallback member and the reference every planar convolution is held against.
#pragma once

#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"

namespace zelva {
namespace kernel {

// For each group, output channel, input channel of the group, output row and column, kernel row and column:
// out += x * w, where x is the input at (oy * stride_y + ky * dilation_y - pad_t, ox * stride_x + kx *
// dilation_x - pad_l), 0.0 outside the input. Each output value starts from its bias, or 0.0. So every output
// value is bias + the products in the order (input channel, kernel row, kernel column).
void Conv2dReference(const PlanarConvArgs& args);

inline constexpr PlanarConvCore kConv2dReferenceCore{&Conv2dReference, false};

}  // namespace kernel
}  // namespace zelva
