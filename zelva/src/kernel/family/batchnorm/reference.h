// The reference of the batch-normalisation family, plain loops on raw pointers. It is also the core of the
// one member (a scalar core that is the reference itself lives here, not under cpu/fallback). The family
// tester holds the member against it bit for bit and holds it against the eval-mode layer of torch
// (tests/data/batchnorm2d_fixture.txt, tools/gen_batchnorm_fixture.py) within 1e-5 * (1 + |expected|).
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// For each channel c: a = scale[c] / sqrtf(variance[c] + eps); folded_scale[c] = a;
// folded_shift[c] = shift[c] - a * mean[c].
void FoldBatchNorm(const float* scale, const float* shift, const float* mean, const float* variance,
                   float eps, uint32_t channels, float* folded_scale, float* folded_shift);

// Planar forward: y = x * folded_scale[c] + folded_shift[c] over `plane` values per channel. Channel c starts
// at c * src_stride in `src` and at c * dst_stride in `dst`.
void BatchNormPlanar(const float* src, uint32_t src_stride, float* dst, uint32_t dst_stride,
                     uint32_t channels, uint32_t plane, const float* folded_scale, const float* folded_shift);

}  // namespace kernel
}  // namespace zelva
