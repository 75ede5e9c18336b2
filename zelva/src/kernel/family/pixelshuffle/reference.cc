#include "zelva/src/kernel/family/pixelshuffle/reference.h"

#include <cstddef>

namespace zelva {
namespace kernel {

void PixelShuffleReference(const float* input, uint32_t channels, uint32_t height, uint32_t width, uint32_t r,
                           bool up, float* output) {
  // Walk the large side (channels c, rows y, columns x at the fine resolution) and pair it with the small
  // side: channel c * r * r + (y % r) * r + x % r at (y / r, x / r).
  const uint32_t fine_c = up ? channels / (r * r) : channels;
  const uint32_t fine_h = up ? height * r : height, fine_w = up ? width * r : width;
  const uint32_t coarse_h = fine_h / r, coarse_w = fine_w / r;
  for (uint32_t c = 0; c < fine_c; ++c) {
    for (uint32_t y = 0; y < fine_h; ++y) {
      for (uint32_t x = 0; x < fine_w; ++x) {
        const size_t fine = (static_cast<size_t>(c) * fine_h + y) * fine_w + x;
        const size_t coarse =
            ((static_cast<size_t>(c) * r * r + (y % r) * r + x % r) * coarse_h + y / r) * coarse_w + x / r;
        if (up) {
          output[fine] = input[coarse];
        } else {
          output[coarse] = input[fine];
        }
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
