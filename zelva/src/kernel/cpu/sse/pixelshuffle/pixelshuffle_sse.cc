// SSE cores of the pixel shuffle family (declared in family/pixelshuffle/cores.h): C4HW4, factor 2, one 4x4
// transposition per input pixel (up) or per 2x2 cell (down). Moves bits unchanged.
#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/pixelshuffle/cores.h"

namespace zelva {
namespace kernel {

void PixelShuffleUp2C4Sse(const PixelShuffleArgs& a) {
  // Output block b, lane l is channel 4b + l, which reads input block 4b + l at lane 2i + j for the pixel
  // (2y + i, 2x + j): the transposition of the four input blocks' vectors of (y, x).
  const uint32_t h = a.height, w = a.width, out_blocks = a.channels / 16;
  const size_t in_block = static_cast<size_t>(h) * w * 4, out_row = static_cast<size_t>(w) * 8;
  for (uint32_t b = 0; b < out_blocks; ++b) {
    const float* in = a.input + static_cast<size_t>(b) * 4 * in_block;
    float* out = a.output + static_cast<size_t>(b) * in_block * 4;
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < w; ++x) {
        const size_t p = (static_cast<size_t>(y) * w + x) * 4;
        __m128 v0 = _mm_loadu_ps(in + p), v1 = _mm_loadu_ps(in + in_block + p);
        __m128 v2 = _mm_loadu_ps(in + 2 * in_block + p), v3 = _mm_loadu_ps(in + 3 * in_block + p);
        _MM_TRANSPOSE4_PS(v0, v1, v2, v3);
        float* o = out + 2 * y * out_row + static_cast<size_t>(x) * 8;
        _mm_storeu_ps(o, v0);
        _mm_storeu_ps(o + 4, v1);
        _mm_storeu_ps(o + out_row, v2);
        _mm_storeu_ps(o + out_row + 4, v3);
      }
    }
  }
}

void PixelShuffleDown2C4Sse(const PixelShuffleArgs& a) {
  // Output block 4b + l, lane 2i + j is input channel 4b + l at (2y + i, 2x + j): the transposition of the
  // four vectors of the 2x2 cell of input block b.
  const uint32_t oh = a.height / 2, ow = a.width / 2, blocks = a.channels / 4;
  const size_t in_row = static_cast<size_t>(a.width) * 4, in_block = in_row * a.height,
               out_block = static_cast<size_t>(oh) * ow * 4;
  for (uint32_t b = 0; b < blocks; ++b) {
    const float* in = a.input + b * in_block;
    float* out = a.output + static_cast<size_t>(b) * 4 * out_block;
    for (uint32_t y = 0; y < oh; ++y) {
      for (uint32_t x = 0; x < ow; ++x) {
        const float* cell = in + 2 * y * in_row + static_cast<size_t>(x) * 8;
        __m128 p0 = _mm_loadu_ps(cell), p1 = _mm_loadu_ps(cell + 4);
        __m128 p2 = _mm_loadu_ps(cell + in_row), p3 = _mm_loadu_ps(cell + in_row + 4);
        _MM_TRANSPOSE4_PS(p0, p1, p2, p3);
        const size_t q = (static_cast<size_t>(y) * ow + x) * 4;
        _mm_storeu_ps(out + q, p0);
        _mm_storeu_ps(out + out_block + q, p1);
        _mm_storeu_ps(out + 2 * out_block + q, p2);
        _mm_storeu_ps(out + 3 * out_block + q, p3);
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
