#include "zelva/src/kernel/family/depthwise/reference.h"

#include <cstddef>
#include <cstdint>

namespace zelva {
namespace kernel {

void DepthwiseReference(const PlanarConvArgs& a) {
  const Conv2dParam& p = *a.param;
  for (uint32_t c = 0; c < p.out_channels; ++c) {
    const float* in = a.input + static_cast<size_t>(c) * a.in_h * a.in_w;
    const float* w = a.weight + static_cast<size_t>(c) * p.kernel_y * p.kernel_x;
    float* out = a.output + static_cast<size_t>(c) * a.out_h * a.out_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      for (uint32_t ox = 0; ox < a.out_w; ++ox) {
        float acc = a.bias != nullptr ? a.bias[c] : 0.0f;
        for (uint32_t ky = 0; ky < p.kernel_y; ++ky) {
          for (uint32_t kx = 0; kx < p.kernel_x; ++kx) {
            const int64_t y = int64_t{oy} * p.stride_y + int64_t{ky} * p.dilation_y - a.pad_t;
            const int64_t x = int64_t{ox} * p.stride_x + int64_t{kx} * p.dilation_x - a.pad_l;
            const bool inside = y >= 0 && y < a.in_h && x >= 0 && x < a.in_w;
            acc = acc + (inside ? in[y * a.in_w + x] : 0.0f) * w[ky * p.kernel_x + kx];
          }
        }
        out[static_cast<size_t>(oy) * a.out_w + ox] = acc;
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
