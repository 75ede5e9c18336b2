// The reference of the 2D convolution family: the plain convolution, any kernel, stride, dilation, padding
// and group count, one element at a time. It is also the core of the Fallback member (a scalar core that is
// the reference itself lives here, not under cpu/fallback). The family tester holds every member against it
// and holds it against torch.nn.Conv2d (tests/data/conv2d_fixture.txt, tools/gen_conv_fixture.py) within 4e-6
// * (1 + the sum of the absolute values of the terms) at every element.
#pragma once

#include "zelva/src/kernel/family/conv2d/cores.h"

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
