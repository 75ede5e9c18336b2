#include "zelva/src/kernel/family/batchnorm/reference.h"

#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {

void FoldBatchNorm(const float* scale, const float* shift, const float* mean, const float* variance,
                   float eps, uint32_t channels, float* folded_scale, float* folded_shift) {
  for (uint32_t c = 0; c < channels; ++c) {
    const float a = scale[c] / sqrtf(variance[c] + eps);
    folded_scale[c] = a;
    folded_shift[c] = shift[c] - a * mean[c];
  }
}

void BatchNormPlanar(const float* src, uint32_t src_stride, float* dst, uint32_t dst_stride,
                     uint32_t channels, uint32_t plane, const float* folded_scale,
                     const float* folded_shift) {
  for (uint32_t c = 0; c < channels; ++c) {
    const float* x = src + static_cast<size_t>(c) * src_stride;
    float* y = dst + static_cast<size_t>(c) * dst_stride;
    const float a = folded_scale[c];
    const float b = folded_shift[c];
    for (uint32_t k = 0; k < plane; ++k) y[k] = x[k] * a + b;
  }
}

}  // namespace kernel
}  // namespace zelva
