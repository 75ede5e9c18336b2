// The cores of the 16-bit integer 1x1 convolution and what they see. Declarations only; the core is defined
// in cpu/sse/conv2d_int16.
//
// Fixed point: a step size s means s fractional bits, value = integer x 2^-s. A value is quantised as
// round-half-to-even(value x 2^s), saturated to [-32768, 32767] (not a number reads as 32767). Products
// are int16 x int16 summed in pairs into int32 (the pmaddwd pattern); a layer whose sum leaves the int32
// range is outside the arithmetic (it wraps). Output o = float(acc) x 2^-(weight_step + input_step) +
// bias[o].
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// Quantises `count` floats at `step` fractional bits (SSE: cpu/sse/conv2d_int16).
void QuantizeInt16Sse(const float* in, int16_t* out, uint32_t count, int32_t step);

struct Conv2dInt16Args {
  const int16_t* input;   // [in_blocks, pixels, 8], quantised at the input step
  const int16_t* weight;  // [out_blocks, in_blocks, 4 pairs, 2 halves, 8]: for pair k and half h, outputs
                          // 4h..4h+3 of the block, each as (w[o][2k], w[o][2k + 1]) of the input block
  const float* bias;      // [out_blocks x 8], zeros without bias
  float* output;          // C8HW8 [out_blocks, pixels, 8]
  uint32_t in_blocks, out_blocks, pixels;
  float scale;  // 2^-(weight_step + input_step)
};

// One output pixel of a block at a time: each input channel pair broadcast to the four 32-bit lanes, two
// pmaddwd per pair (outputs 0-3 and 4-7).
void Conv2dInt16C8Sse(const Conv2dInt16Args& args);

}  // namespace kernel
}  // namespace zelva
