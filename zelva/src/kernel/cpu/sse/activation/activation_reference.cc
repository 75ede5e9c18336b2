#include "zelva/src/kernel/cpu/sse/activation/activation_reference.h"

#include <cmath>

namespace zelva {
namespace kernel {

void ReluReference(const float* x, uint32_t n, float* y) {
  for (uint32_t i = 0; i < n; ++i) y[i] = x[i] < 0.0f ? 0.0f : x[i];
}

void SigmoidReference(const float* x, uint32_t n, float* y) {
  for (uint32_t i = 0; i < n; ++i) y[i] = 1.0f / (expf(0.0f - x[i]) + 1.0f);
}

void TanhReference(const float* x, uint32_t n, float* y) {
  for (uint32_t i = 0; i < n; ++i) y[i] = tanhf(x[i]);
}

}  // namespace kernel
}  // namespace zelva
