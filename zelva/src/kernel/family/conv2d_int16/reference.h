// The reference of the 16-bit integer 1x1 convolution: planar, one output at a time, the values quantised
// by the rule of cores.h in scalar code, the sum of the dequantised products in double (exact, as every
// product and partial sum of these fixed-point values fits in 53 bits), rounded to float once, plus bias.
// The tester holds it against a PyTorch fixture (tests/data/conv2d_int16_fixture.txt,
// tools/gen_conv2d_int16_fixture.py) and the member against it, bit for bit.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

int16_t QuantizeInt16(float value, int32_t step);

// input [in_channels, pixels], weight [out_channels, in_channels], bias [out_channels] or null; output
// [out_channels, pixels].
void Conv2dInt16Reference(const float* input, uint32_t in_channels, uint32_t pixels, const float* weight,
                          const float* bias, uint32_t out_channels, int32_t weight_step, int32_t input_step,
                          float* output);

}  // namespace kernel
}  // namespace zelva
