// 128-bit cores of the fully connected members, on raw pointers. The row form is DenseForward of the GEMM
// bridge (zelva/src/kernel/functional/gemm.h).
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// Block product in 4s. w is [out/4, in/4, 4(i), 4(o)]; only out/4 and in/4 whole blocks take part, the
// outputs beyond keep the bias (or zero). Each output is one running sum over the inputs in order, added to
// the bias at the end; several output blocks run side by side over one broadcast input.
void DenseBlock4SSE(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                    float* y);

}  // namespace kernel
}  // namespace zelva
