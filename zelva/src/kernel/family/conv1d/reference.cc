#include "zelva/src/kernel/family/conv1d/reference.h"

#include <cstddef>

namespace zelva {
namespace kernel {

void Conv1dReference(const Conv1dArgs& a) {
  const uint32_t in_per_group = a.in_channels / a.groups, out_per_group = a.out_channels / a.groups;
  for (uint32_t o = 0; o < a.out_channels; ++o) {
    const uint32_t first_in = (o / out_per_group) * in_per_group;
    const float* w = a.weight + static_cast<size_t>(o) * in_per_group * a.kernel;
    float* out = a.output + static_cast<size_t>(o) * a.out_len;
    for (uint32_t x = 0; x < a.out_len; ++x) {
      float sum = a.bias != nullptr ? a.bias[o] : 0.0f;
      for (uint32_t i = 0; i < in_per_group; ++i) {
        const float* in =
            a.input + static_cast<size_t>(first_in + i) * a.in_len + static_cast<size_t>(x) * a.stride;
        for (uint32_t k = 0; k < a.kernel; ++k) sum = sum + in[k * a.dilation] * w[i * a.kernel + k];
      }
      out[x] = sum;
    }
  }
}

}  // namespace kernel
}  // namespace zelva
