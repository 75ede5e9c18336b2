// Plain scalar forms of three activations, one loop each, for code that needs exact results independent of
// an element's place (the recurrent cells). The output may be the input.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// max(x, 0) as x < 0 ? 0 : x (a NaN passes through).
void ReluReference(const float* x, uint32_t n, float* y);
// 1 / (expf(0 - x) + 1), in float.
void SigmoidReference(const float* x, uint32_t n, float* y);
// tanhf(x)
void TanhReference(const float* x, uint32_t n, float* y);

}  // namespace kernel
}  // namespace zelva
