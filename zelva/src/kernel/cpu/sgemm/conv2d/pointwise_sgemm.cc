#include "zelva/src/kernel/family/conv2d/cores.h"

#include <cstddef>

#include "zelva/src/kernel/functional/gemm.h"

namespace zelva {
namespace kernel {

void PointwiseConvSgemm(const PlanarConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const size_t pixels = static_cast<size_t>(a.out_h) * a.out_w;
  const uint32_t channels = p.in_channels_per_group;
  const uint32_t outputs = p.out_channels_per_group;
  for (uint32_t g = 0; g < p.groups; ++g) {
    functional::GemmRowMajor(static_cast<int32_t>(outputs), static_cast<int32_t>(channels),
                             static_cast<int32_t>(pixels), 1.0f,
                             a.weight + static_cast<size_t>(g) * outputs * channels,
                             a.input + static_cast<size_t>(g) * channels * pixels, 0.0f,
                             a.output + static_cast<size_t>(g) * outputs * pixels);
  }
  if (a.bias == nullptr) return;
  for (uint32_t o = 0; o < p.out_channels; ++o) {
    float* plane = a.output + static_cast<size_t>(o) * pixels;
    const float b = a.bias[o];
    for (size_t k = 0; k < pixels; ++k) plane[k] += b;
  }
}

}  // namespace kernel
}  // namespace zelva
