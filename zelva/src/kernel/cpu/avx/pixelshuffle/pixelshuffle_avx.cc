// AVX cores of the pixel shuffle family (declared in family/pixelshuffle/cores.h): C8HW8, factor 2. Four
// 8-lane vectors are one 8 x 4 (or 4 x 8) matrix of channels by cell positions; half swaps across the two
// 128-bit lanes and in-lane 4x4 transpositions turn it over. Moves bits unchanged.
#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/pixelshuffle/cores.h"

namespace zelva {
namespace kernel {

namespace {

// The 4x4 transposition inside each 128-bit lane.
inline void TransposeInLanes(__m256& x0, __m256& x1, __m256& x2, __m256& x3) {
  const __m256 t0 = _mm256_unpacklo_ps(x0, x1), t1 = _mm256_unpackhi_ps(x0, x1);
  const __m256 t2 = _mm256_unpacklo_ps(x2, x3), t3 = _mm256_unpackhi_ps(x2, x3);
  x0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
  x1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
  x2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
  x3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
}

}  // namespace

void PixelShuffleUp2C8Avx(const PixelShuffleArgs& a) {
  // Output block b, lane l (channel 8b + l) reads input block 4b + l / 2 at lane 4 (l % 2) + k for the cell
  // position k = 2i + j. With v_m = (lo_m, hi_m) the input blocks' vectors of a pixel, output position k is
  // (lo0[k], hi0[k], lo1[k], hi1[k] | lo2[k], hi2[k], lo3[k], hi3[k]).
  const uint32_t h = a.height, w = a.width, out_blocks = a.channels / 32;
  const size_t in_block = static_cast<size_t>(h) * w * 8, out_row = static_cast<size_t>(w) * 16;
  for (uint32_t b = 0; b < out_blocks; ++b) {
    const float* in = a.input + static_cast<size_t>(b) * 4 * in_block;
    float* out = a.output + static_cast<size_t>(b) * in_block * 4;
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < w; ++x) {
        const size_t p = (static_cast<size_t>(y) * w + x) * 8;
        const __m256 v0 = _mm256_loadu_ps(in + p), v1 = _mm256_loadu_ps(in + in_block + p);
        const __m256 v2 = _mm256_loadu_ps(in + 2 * in_block + p), v3 = _mm256_loadu_ps(in + 3 * in_block + p);
        __m256 x0 = _mm256_permute2f128_ps(v0, v2, 0x20), x1 = _mm256_permute2f128_ps(v0, v2, 0x31);
        __m256 x2 = _mm256_permute2f128_ps(v1, v3, 0x20), x3 = _mm256_permute2f128_ps(v1, v3, 0x31);
        TransposeInLanes(x0, x1, x2, x3);
        float* o = out + 2 * y * out_row + static_cast<size_t>(x) * 16;
        _mm256_storeu_ps(o, x0);
        _mm256_storeu_ps(o + 8, x1);
        _mm256_storeu_ps(o + out_row, x2);
        _mm256_storeu_ps(o + out_row + 8, x3);
      }
    }
  }
}

void PixelShuffleDown2C8Avx(const PixelShuffleArgs& a) {
  // Input block b, lane l at cell position k goes to output block 4b + l / 2, lane 4 (l % 2) + k. The in-lane
  // transposition of the cell's four vectors gives y_q = (z_q | z_q+4) with z_l = the four positions of lane
  // l; output block 4b + m is (z_2m | z_2m+1).
  const uint32_t oh = a.height / 2, ow = a.width / 2, blocks = a.channels / 8;
  const size_t in_row = static_cast<size_t>(a.width) * 8, in_block = in_row * a.height,
               out_block = static_cast<size_t>(oh) * ow * 8;
  for (uint32_t b = 0; b < blocks; ++b) {
    const float* in = a.input + b * in_block;
    float* out = a.output + static_cast<size_t>(b) * 4 * out_block;
    for (uint32_t y = 0; y < oh; ++y) {
      for (uint32_t x = 0; x < ow; ++x) {
        const float* cell = in + 2 * y * in_row + static_cast<size_t>(x) * 16;
        __m256 y0 = _mm256_loadu_ps(cell), y1 = _mm256_loadu_ps(cell + 8);
        __m256 y2 = _mm256_loadu_ps(cell + in_row), y3 = _mm256_loadu_ps(cell + in_row + 8);
        TransposeInLanes(y0, y1, y2, y3);
        const size_t q = (static_cast<size_t>(y) * ow + x) * 8;
        _mm256_storeu_ps(out + q, _mm256_permute2f128_ps(y0, y1, 0x20));
        _mm256_storeu_ps(out + out_block + q, _mm256_permute2f128_ps(y2, y3, 0x20));
        _mm256_storeu_ps(out + 2 * out_block + q, _mm256_permute2f128_ps(y0, y1, 0x31));
        _mm256_storeu_ps(out + 3 * out_block + q, _mm256_permute2f128_ps(y2, y3, 0x31));
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
