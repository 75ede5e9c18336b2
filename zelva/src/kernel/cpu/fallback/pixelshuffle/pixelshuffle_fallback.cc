// Planar cores of the pixel shuffle family (declared in family/pixelshuffle/cores.h): any factor r, writing
// the output in order. Up: each output row from the r planes of its row phase; down: each output plane
// from every r-th row and column of its input plane.
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
  const uint32_t r = a.factor, w = a.width, oh = a.height / r, ow = w / r;
  float* out = a.output;
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* in = a.input + static_cast<size_t>(c) * a.height * w;
    // Output plane c r^2 + i r + j: rows i, i + r, ... and columns j, j + r, ... of input plane c.
    for (uint32_t i = 0; i < r; ++i) {
      for (uint32_t j = 0; j < r; ++j) {
        for (uint32_t y = 0; y < oh; ++y) {
          const float* src = in + static_cast<size_t>(y * r + i) * w + j;
          for (uint32_t x = 0; x < ow; ++x) *out++ = src[x * r];
        }
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
