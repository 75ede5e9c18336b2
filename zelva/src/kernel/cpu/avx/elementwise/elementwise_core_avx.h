// AVX cores of the elementwise family. Declarations only: this header is read by code compiled without AVX.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// out[i] = a[i] op b[i] for i < count; `out` may equal `a` or `b`. Rounds of 32 floats in four 8-lane
// groups, one round of 16 if that much remains, then the rest of up to 15 floats as in the SSE cores.
void ElementwiseAddAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseSubAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMulAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseDivAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMaxAVX(const float* a, const float* b, const uint32_t& count, float* out);
void ElementwiseMinAVX(const float* a, const float* b, const uint32_t& count, float* out);

// Channel-blocked multiplication with broadcast over H and W. `a_dims` and `b_dims` are {blocks, H, W,
// lanes} of two tensors of one block count and 4 (C4HW4) or 8 (C8HW8) lanes; in H and in W the two sizes are
// equal or one of them is 1. `out` is {blocks, max H, max W, lanes}. A `b` of one value per channel
// ({blocks, 1, 1, lanes}) takes the gate path: its lanes are loaded once per block and every pixel of `a` is
// multiplied by them.
using ChannelMulCore = void (*)(const float* a, const uint32_t* a_dims, const float* b,
                                const uint32_t* b_dims, float* out);
void BroadcastMulC4HW4AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out);
void BroadcastMulC8HW8AVX(const float* a, const uint32_t* a_dims, const float* b, const uint32_t* b_dims,
                          float* out);

}  // namespace kernel
}  // namespace zelva
