// The cores of the soft arg-max family and what they see. Declarations only: each core is defined in the
// folder of the instruction set it needs (cpu/fallback, cpu/sse under softargmax/).
//
// For each channel c of a planar [C, H, W] input: z = beta x value, m = the largest z of the channel,
// e = exp(z - m) at every pixel, S = the sum of e; the expected column X = sum(e x column) / S and the
// expected row Y = sum(e x row) / S, in pixel units (0 to W - 1 and 0 to H - 1). Output c is (X x scale_x,
// Y x scale_y) at [c, 0] and [c, 1].
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

struct SoftArgMaxArgs {
  const float* input;
  uint32_t channels, height, width;
  float beta;
  // The rescale of a layer with a size (width, height): (width, W) and (height, H), applied as
  // x x width / W; (1, 1) without a size.
  float size_x, width_x;
  float size_y, height_y;
  float* output;  // [channels, 2]
};

using SoftArgMaxCore = void (*)(const SoftArgMaxArgs& args);

// ---- Fallback (cpu/fallback/softargmax): scalar expf, sums in float row by row.
void SoftArgMaxScalar(const SoftArgMaxArgs& args);
// ---- SSE (cpu/sse/softargmax): four pixels a vector for the maximum, the exponential (the SSE2 variant of
// the vector exp of the activation family) and the two column sums; row sums weighted by the row after.
void SoftArgMaxSse(const SoftArgMaxArgs& args);

}  // namespace kernel
}  // namespace zelva
