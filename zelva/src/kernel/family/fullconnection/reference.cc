#include "zelva/src/kernel/family/fullconnection/reference.h"

#include <cstddef>

namespace zelva {
namespace kernel {

void DenseReference(const float* x, uint32_t in_count, uint32_t out_count, const float* w, const float* bias,
                    float* y) {
  for (uint32_t o = 0; o < out_count; ++o) {
    const float* row = w + static_cast<size_t>(o) * in_count;
    float sum = 0.0f;
    for (uint32_t i = 0; i < in_count; ++i) sum += row[i] * x[i];
    const float start = bias != nullptr ? bias[o] : 0.0f;
    y[o] = start + sum;
  }
}

}  // namespace kernel
}  // namespace zelva
