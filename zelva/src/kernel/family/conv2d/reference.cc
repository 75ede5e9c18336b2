#include "zelva/src/kernel/family/conv2d/reference.h"

#include <cstddef>
#include <cstdint>

namespace zelva {
namespace kernel {

// Aligned to a cache line: its short inner loops (one tap for a 1x1 kernel) run measurably slower or faster
// with where the linker happens to place them; pinned, the timing no longer moves with unrelated code.
__attribute__((aligned(64))) void Conv2dReference(const PlanarConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const int64_t in_h = a.in_h, in_w = a.in_w;
  const size_t out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  for (uint32_t g = 0; g < p.groups; ++g) {
    for (uint32_t n = 0; n < p.out_channels_per_group; ++n) {
      const uint32_t oc = g * p.out_channels_per_group + n;
      float* out = a.output + oc * out_plane;
      const float start = a.bias != nullptr ? a.bias[oc] : 0.0f;
      for (size_t k = 0; k < out_plane; ++k) out[k] = start;
      for (uint32_t c = 0; c < p.in_channels_per_group; ++c) {
        const uint32_t ic = g * p.in_channels_per_group + c;
        const float* in = a.input + static_cast<size_t>(ic) * a.in_h * a.in_w;
        const float* w =
            a.weight + (static_cast<size_t>(oc) * p.in_channels_per_group + c) * p.kernel_y * p.kernel_x;
        for (uint32_t oy = 0; oy < a.out_h; ++oy) {
          for (uint32_t ox = 0; ox < a.out_w; ++ox) {
            float& acc = out[static_cast<size_t>(oy) * a.out_w + ox];
            for (uint32_t ky = 0; ky < p.kernel_y; ++ky) {
              const int64_t y =
                  static_cast<int64_t>(oy) * p.stride_y + static_cast<int64_t>(ky) * p.dilation_y - a.pad_t;
              for (uint32_t kx = 0; kx < p.kernel_x; ++kx) {
                const int64_t x =
                    static_cast<int64_t>(ox) * p.stride_x + static_cast<int64_t>(kx) * p.dilation_x - a.pad_l;
                const float v = (y >= 0 && y < in_h && x >= 0 && x < in_w) ? in[y * in_w + x] : 0.0f;
                acc = acc + v * w[ky * p.kernel_x + kx];
              }
            }
          }
        }
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
