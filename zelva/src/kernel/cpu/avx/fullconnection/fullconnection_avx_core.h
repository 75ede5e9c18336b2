// 256-bit cores of the fully connected members, on raw pointers. Declarations only: the definitions are
// compiled with AVX enabled and must run only where the processor has it.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// w is [out, in] as in the model file. Two rows at a time share the input loads; per row four 8-lane partial
// sums over 32 inputs a round, then 8 a round, then single floats; the parts summed and added to the bias.
void DenseRowsAVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y);

// w is [out, in]. Per output one dot product: an 8-float body, then groups of 4, then single floats, reduced
// across lanes and added to the bias. Any size.
void DenseRows841AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                     float* y);

// Block product in 8s. w is [out/8, in/8, 8(i), 8(o)], the same bytes as [out/8, in, 8(o)]; only out/8 and
// in/8 whole blocks take part, the outputs beyond keep the bias (or zero). Each output is one running sum
// over the inputs in order, added to the bias at the end. Four output blocks run side by side over one
// broadcast input.
void DenseBlock8AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                    float* y);

// The same product walked by output blocks: for each block of 8 outputs (two blocks side by side), for each
// input, broadcast it against that input's row of 8 outputs. Same sums in the same order as DenseBlock8AVX.
void DenseOutRows8AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                      float* y);

}  // namespace kernel
}  // namespace zelva
