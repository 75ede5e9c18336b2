// AVX2 (+ F16C for half weights) forms of the fused network's matrix-vector products and packed
// convolutions. Compiled with -mavx2 -mf16c and never -mfma: every sum keeps the order of the 128-bit form.
#include <immintrin.h>

#include <cstring>

#include "zelva-kit/src/audiodenoise/revolver_ops_lanes.h"
#include "zelva-kit/src/audiodenoise/revolver_ops_wide.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

namespace {

// Everything here has internal linkage: the same helpers exist in other units under other flags.

// s = (a3 + a2) + (a1 + a0) of one row held as [a0 | a1] and [a2 | a3].
inline __m128 RowSum(__m256 a01, __m256 a23) {
  const __m128 a32 = _mm_add_ps(_mm256_extractf128_ps(a23, 1), _mm256_castps256_ps128(a23));
  const __m128 a10 = _mm_add_ps(_mm256_extractf128_ps(a01, 1), _mm256_castps256_ps128(a01));
  return _mm_add_ps(a32, a10);
}

template <typename W>
void Rows256(const W* weight, const float* x, const float* bias, float* y, int rows) {
  for (int r = 0; r < rows; r += 4) {
    const W* w = weight + static_cast<size_t>(r) * 256;
    __m256 lo[4], hi[4];
    for (int i = 0; i < 4; ++i) lo[i] = hi[i] = _mm256_setzero_ps();
    // The next group of rows starts a new page, where the hardware prefetcher stops: fetch it along.
    const char* next = reinterpret_cast<const char*>(w + 4 * 256);
    for (int k = 0; k < 256; k += 16) {
      for (size_t line = 0; line < 4 * 16 * sizeof(W); line += 64) {
        _mm_prefetch(next + static_cast<size_t>(k) * 4 * sizeof(W) + line, _MM_HINT_T0);
      }
      const __m256 x01 = _mm256_loadu_ps(x + k);
      const __m256 x23 = _mm256_loadu_ps(x + k + 8);
      for (int i = 0; i < 4; ++i) {
        lo[i] = MulAdd8(lo[i], Load8(w + i * 256 + k), x01);
        hi[i] = MulAdd8(hi[i], Load8(w + i * 256 + k + 8), x23);
      }
    }
    const __m128 h =
        Horizontal4(RowSum(lo[0], hi[0]), RowSum(lo[1], hi[1]), RowSum(lo[2], hi[2]), RowSum(lo[3], hi[3]));
    _mm_storeu_ps(y + r, _mm_add_ps(h, Bias4(bias, r)));
  }
}

template <typename W>
void Rows74(const W* weight, const float* x, const float* bias, float* y, int rows) {
  const __m128 x72 = _mm_set1_ps(x[72]);
  const __m128 x73 = _mm_set1_ps(x[73]);
  for (int r = 0; r < rows; r += 4) {
    const W* w = weight + static_cast<size_t>(r) * 74;
    __m256 lo[4], hi[4];
    for (int i = 0; i < 4; ++i) lo[i] = hi[i] = _mm256_setzero_ps();
    for (int k = 0; k < 64; k += 16) {
      const __m256 x01 = _mm256_loadu_ps(x + k);
      const __m256 x23 = _mm256_loadu_ps(x + k + 8);
      for (int i = 0; i < 4; ++i) {
        lo[i] = MulAdd8(lo[i], Load8(w + i * 74 + k), x01);
        hi[i] = MulAdd8(hi[i], Load8(w + i * 74 + k + 8), x23);
      }
    }
    // a0 += elements 64..67, a1 += 68..71.
    const __m256 x6471 = _mm256_loadu_ps(x + 64);
    for (int i = 0; i < 4; ++i) lo[i] = MulAdd8(lo[i], Load8(w + i * 74 + 64), x6471);
    const __m128 h =
        Horizontal4(RowSum(lo[0], hi[0]), RowSum(lo[1], hi[1]), RowSum(lo[2], hi[2]), RowSum(lo[3], hi[3]));
    _mm_storeu_ps(y + r, _mm_add_ps(h, Tail74(w, x72, x73, bias, r)));
  }
}

// Rows 2j and 2j + 1 of `w` against NB streams: each weight vector widened once for every stream; each
// (row, stream) pair of accumulators takes exactly Rows256's products in Rows256's order. s[i][b] is the
// row sum s = (a3 + a2) + (a1 + a0) of row i for stream b.
template <typename W, int NB>
void RowPairSums(const W* w, const float* const* x, __m128 (*s)[NB]) {
  __m256 lo[2][NB], hi[2][NB];
  for (int i = 0; i < 2; ++i) {
    for (int b = 0; b < NB; ++b) lo[i][b] = hi[i][b] = _mm256_setzero_ps();
  }
  for (int k = 0; k < 256; k += 16) {
    __m256 x01[NB], x23[NB];
    for (int b = 0; b < NB; ++b) {
      x01[b] = _mm256_loadu_ps(x[b] + k);
      x23[b] = _mm256_loadu_ps(x[b] + k + 8);
    }
    for (int i = 0; i < 2; ++i) {
      const __m256 w01 = Load8(w + i * 256 + k);
      const __m256 w23 = Load8(w + i * 256 + k + 8);
      for (int b = 0; b < NB; ++b) {
        lo[i][b] = MulAdd8(lo[i][b], w01, x01[b]);
        hi[i][b] = MulAdd8(hi[i][b], w23, x23[b]);
      }
    }
  }
  for (int i = 0; i < 2; ++i) {
    for (int b = 0; b < NB; ++b) s[i][b] = RowSum(lo[i][b], hi[i][b]);
  }
}

template <typename W, int NB>
void Rows256Streams(const W* w, const float* const* x, const float* bias, float* const* y, int r) {
  __m128 s01[2][NB], s23[2][NB];
  RowPairSums<W, NB>(w, x, s01);
  RowPairSums<W, NB>(w + 2 * 256, x, s23);
  for (int b = 0; b < NB; ++b) {
    const __m128 h = Horizontal4(s01[0][b], s01[1][b], s23[0][b], s23[1][b]);
    _mm_storeu_ps(y[b] + r, _mm_add_ps(h, Bias4(bias, r)));
  }
}

template <typename W>
void Rows256Batch(const W* weight, const float* const* x, const float* bias, float* const* y, int rows,
                  size_t count) {
  for (int r = 0; r < rows; r += 4) {
    const W* w = weight + static_cast<size_t>(r) * 256;
    size_t b = 0;
    for (; b + 2 <= count; b += 2) Rows256Streams<W, 2>(w, x + b, bias, y + b, r);
    if (b < count) Rows256Streams<W, 1>(w, x + b, bias, y + b, r);
  }
}

}  // namespace

void MatVecRows256BatchAvx2(const float* weight, const float* const* x, const float* bias, float* const* y,
                            int rows, size_t count) {
  Rows256Batch(weight, x, bias, y, rows, count);
}
void MatVecRows256HalfBatchAvx2(const uint16_t* weight, const float* const* x, const float* bias,
                                float* const* y, int rows, size_t count) {
  Rows256Batch(weight, x, bias, y, rows, count);
}

void MatVecRows256Avx2(const float* weight, const float* x, const float* bias, float* y, int rows) {
  Rows256(weight, x, bias, y, rows);
}
void MatVecRows256HalfAvx2(const uint16_t* weight, const float* x, const float* bias, float* y, int rows) {
  Rows256(weight, x, bias, y, rows);
}
void MatVecRows74Avx2(const float* weight, const float* x, const float* bias, float* y, int rows) {
  Rows74(weight, x, bias, y, rows);
}
void MatVecRows74HalfAvx2(const uint16_t* weight, const float* x, const float* bias, float* y, int rows) {
  Rows74(weight, x, bias, y, rows);
}

// ---- Packed convolutions: a pixel's 8 channels are one 256-bit register
// ----------------------------------------------------------------------------------------------------------

void DepthwiseConv3x3Packed8Avx2(const float* weight, const float* bias, const float* input,
                                 ShapeRecord in_shape, float* output, ShapeRecord out_shape) {
  const uint32_t blocks = out_shape[0];
  const uint32_t out_h = out_shape[1];
  const uint32_t out_w = out_shape[2];
  const size_t in_row = static_cast<size_t>(in_shape[2]) * 8;
  const size_t out_row = static_cast<size_t>(out_w) * 8;
  const size_t in_block = static_cast<size_t>(in_shape[1]) * in_row;
  const size_t out_block = static_cast<size_t>(out_h) * out_row;

  for (uint32_t b = 0; b < blocks; ++b) {
    __m256 w[9];
    for (int t = 0; t < 9; ++t) w[t] = _mm256_loadu_ps(weight + b * 72 + t * 8);
    const __m256 bv = _mm256_loadu_ps(bias + 8 * b);
    const float* in = input + b * in_block;
    float* out = output + b * out_block;
    for (uint32_t y = 0; y < out_h; ++y) {
      uint32_t x = 0;
      // Four pixels of a row at a time; each sum is bias + t0 + ... + t8 in tap order.
      for (; x + 4 <= out_w; x += 4) {
        __m256 acc[4] = {bv, bv, bv, bv};
        for (int ky = 0; ky < 3; ++ky) {
          const float* src = in + (y + ky) * in_row + x * 8;
          __m256 p[6];
          for (int j = 0; j < 6; ++j) p[j] = _mm256_loadu_ps(src + j * 8);
          for (int kx = 0; kx < 3; ++kx) {
            for (int k = 0; k < 4; ++k) acc[k] = MulAdd8(acc[k], w[ky * 3 + kx], p[k + kx]);
          }
        }
        for (int k = 0; k < 4; ++k) _mm256_storeu_ps(out + y * out_row + (x + k) * 8, acc[k]);
      }
      for (; x < out_w; ++x) {
        __m256 acc = bv;
        for (int ky = 0; ky < 3; ++ky) {
          const float* src = in + (y + ky) * in_row + x * 8;
          for (int kx = 0; kx < 3; ++kx) acc = MulAdd8(acc, w[ky * 3 + kx], _mm256_loadu_ps(src + kx * 8));
        }
        _mm256_storeu_ps(out + y * out_row + x * 8, acc);
      }
    }
  }
}

void PointwiseConvPacked8Avx2(const float* weight, const float* bias, const float* input,
                              ShapeRecord in_shape, float* output, ShapeRecord out_shape) {
  const uint32_t in_blocks = in_shape[0];
  const uint32_t out_blocks = out_shape[0];
  const size_t pixels = static_cast<size_t>(out_shape[1]) * out_shape[2];
  const size_t block = pixels * 8;

  for (uint32_t ob = 0; ob < out_blocks; ++ob) {
    const __m256 bv = _mm256_loadu_ps(bias + 8 * ob);
    const float* wo = weight + static_cast<size_t>(ob) * in_blocks * 64;
    float* out = output + ob * block;
    size_t p = 0;
    // Four pixels at a time: per pixel, bias, then ascending input block and input lane.
    for (; p + 4 <= pixels; p += 4) {
      __m256 acc[4] = {bv, bv, bv, bv};
      for (uint32_t ib = 0; ib < in_blocks; ++ib) {
        const float* wb = wo + ib * 64;
        const float* src = input + ib * block + p * 8;
        for (int l = 0; l < 8; ++l) {
          const __m256 wl = _mm256_loadu_ps(wb + l * 8);
          for (int k = 0; k < 4; ++k) acc[k] = MulAdd8(acc[k], wl, _mm256_broadcast_ss(src + k * 8 + l));
        }
      }
      for (int k = 0; k < 4; ++k) _mm256_storeu_ps(out + (p + k) * 8, acc[k]);
    }
    for (; p < pixels; ++p) {
      __m256 acc = bv;
      for (uint32_t ib = 0; ib < in_blocks; ++ib) {
        const float* wb = wo + ib * 64;
        const float* src = input + ib * block + p * 8;
        for (int l = 0; l < 8; ++l)
          acc = MulAdd8(acc, _mm256_loadu_ps(wb + l * 8), _mm256_broadcast_ss(src + l));
      }
      _mm256_storeu_ps(out + p * 8, acc);
    }
  }
}

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
