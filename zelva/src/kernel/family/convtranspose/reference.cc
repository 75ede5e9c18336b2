#include "zelva/src/kernel/family/convtranspose/reference.h"

#include <cstddef>

namespace zelva {
namespace kernel {

void ConvTransposeReference(const ConvTransposeArgs& a) {
  const uint32_t n_per_group = a.in_channels / a.groups, c_per_group = a.out_channels / a.groups;
  const size_t plane = static_cast<size_t>(a.in_h) * a.in_w,
               taps = static_cast<size_t>(a.kernel_y) * a.kernel_x;
  for (uint32_t o = 0; o < a.out_channels; ++o) {
    const uint32_t g = o / c_per_group, c = o % c_per_group;
    float* out = a.output + static_cast<size_t>(o) * a.out_h * a.out_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      for (uint32_t ox = 0; ox < a.out_w; ++ox) {
        float sum = 0.0f;
        for (uint32_t n = 0; n < n_per_group; ++n) {
          const float* in = a.input + (static_cast<size_t>(g) * n_per_group + n) * plane;
          const float* w = a.weight + ((static_cast<size_t>(g) * n_per_group + n) * c_per_group + c) * taps;
          for (uint32_t ky = 0; ky < a.kernel_y; ++ky) {
            uint32_t iy;
            if (!TapLands(static_cast<int32_t>(oy), a.padding_t, ky, a.dilation_y, a.stride_y, a.in_h, &iy))
              continue;
            for (uint32_t kx = 0; kx < a.kernel_x; ++kx) {
              uint32_t ix;
              if (!TapLands(static_cast<int32_t>(ox), a.padding_l, kx, a.dilation_x, a.stride_x, a.in_w, &ix))
                continue;
              sum = sum + in[static_cast<size_t>(iy) * a.in_w + ix] * w[ky * a.kernel_x + kx];
            }
          }
        }
        out[static_cast<size_t>(oy) * a.out_w + ox] = a.bias != nullptr ? sum + a.bias[o] : sum;
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
