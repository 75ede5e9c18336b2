// Planar cores of the pixel shuffle family (declared in family/pixelshuffle/cores.h): any factor r, one
// output row a round, each read from its r columns' planes in turn.
#include <cstddef>

#include "zelva/src/kernel/family/pixelshuffle/cores.h"

namespace zelva {
namespace kernel {

void PixelShuffleUpPlanar(const PixelShuffleArgs& a) {
  const uint32_t r = a.factor, h = a.height, w = a.width, oc = a.channels / (r * r), ow = w * r;
  const size_t plane = static_cast<size_t>(h) * w;
  float* out = a.output;
  for (uint32_t c = 0; c < oc; ++c) {
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t i = 0; i < r; ++i) {
        // Output row y * r + i: column x * r + j from plane c r^2 + i r + j, row y, column x.
        const float* src =
            a.input + (static_cast<size_t>(c) * r * r + i * r) * plane + static_cast<size_t>(y) * w;
        for (uint32_t x = 0; x < w; ++x) {
          for (uint32_t j = 0; j < r; ++j) out[x * r + j] = src[j * plane + x];
        }
        out += ow;
      }
    }
  }
}

void PixelShuffleDownPlanar(const PixelShuffleArgs& a) {
  const uint32_t r = a.factor, oh = a.height / r, ow = a.width / r;
  const size_t out_plane = static_cast<size_t>(oh) * ow;
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* in = a.input + static_cast<size_t>(c) * a.height * a.width;
    for (uint32_t y = 0; y < a.height; ++y) {
      const uint32_t i = y % r;
      for (uint32_t x = 0; x < a.width; ++x) {
        const uint32_t j = x % r;
        a.output[(static_cast<size_t>(c) * r * r + i * r + j) * out_plane + static_cast<size_t>(y / r) * ow +
                 x / r] = in[static_cast<size_t>(y) * a.width + x];
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
