// Every core of the fully connected family, all instruction sets: declarations only. The definitions live
// in cpu/<isa>/fullconnection/ and are compiled with their folder's flags; a core must run only where the
// processor has its instruction set (the member list's isa column).
//
// A core computes y (out_count) = w x + bias on raw pointers, w in the member's order (see FcWeight), bias
// null for none; it starts y from the bias (or zero) itself.
#pragma once

#include <cstdint>

// The SSE row core is the GEMM bridge's DenseForward, shared with the recurrent family.
#include "zelva/src/kernel/functional/gemm.h"

namespace zelva {
namespace kernel {

using DenseCore = void (*)(const float* x, int32_t in_count, int32_t out_count, const float* w,
                           const float* bias, float* y);

// ---- SSE (cpu/sse/fullconnection)

// Block product in 4s. w is [out/4, in/4, 4(i), 4(o)]; only out/4 and in/4 whole blocks take part, the
// outputs beyond keep the bias (or zero). Each output is one running sum over the inputs in order, added to
// the bias at the end; several output blocks run side by side over one broadcast input.
void DenseBlock4SSE(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                    float* y);

// ---- AVX (cpu/avx/fullconnection)

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
