// AVX-512F forms of the fused network's matrix-vector products, fp32 or half weights. Compiled with
// -mavx512f -mf16c and never -mfma: every sum keeps the order of the 128-bit form.
#include <immintrin.h>

// GCC 12's AVX-512 headers seed every 512-bit extract (castps512_ps128 included) with a self-initialised
// "undefined" register, which -Wmaybe-uninitialized (or -Wuninitialized, where the inlining makes it certain)
// reports wherever one is inlined.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#include "zelva-kit/src/audiodenoise/revolver_ops_lanes.h"
#include "zelva-kit/src/audiodenoise/revolver_ops_wide.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

namespace {

// Everything here has internal linkage: the same helpers exist in other units under other flags.

inline __m512 Load16(const float* w) {
  return _mm512_loadu_ps(w);
}
inline __m512 Load16(const uint16_t* w) {
  return _mm512_cvtph_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(w)));
}

inline __m512 MulAdd16(__m512 acc, __m512 w, __m512 x) {
  return _mm512_add_ps(acc, _mm512_mul_ps(w, x));
}

// Quarter q of a 512-bit register.
template <int q>
inline __m128 Quarter(__m512 a) {
  return _mm512_extractf32x4_ps(a, q);
}

// s = (a3 + a2) + (a1 + a0) of one row held as [a0 | a1 | a2 | a3].
inline __m128 RowSum(__m512 a) {
  const __m128 a32 = _mm_add_ps(Quarter<3>(a), Quarter<2>(a));
  const __m128 a10 = _mm_add_ps(Quarter<1>(a), _mm512_castps512_ps128(a));
  return _mm_add_ps(a32, a10);
}

// The same with a0 and a1 replaced by the low half `a01`.
inline __m128 RowSum(__m512 a, __m256 a01) {
  const __m128 a32 = _mm_add_ps(Quarter<3>(a), Quarter<2>(a));
  const __m128 a10 = _mm_add_ps(_mm256_extractf128_ps(a01, 1), _mm256_castps256_ps128(a01));
  return _mm_add_ps(a32, a10);
}

template <typename W>
void Rows256(const W* weight, const float* x, const float* bias, float* y, int rows) {
  for (int r = 0; r < rows; r += 8) {
    const W* w = weight + static_cast<size_t>(r) * 256;
    __m512 acc[8];
    for (int i = 0; i < 8; ++i) acc[i] = _mm512_setzero_ps();
    // The next group of rows starts a new page, where the hardware prefetcher stops: fetch it along.
    const char* next = reinterpret_cast<const char*>(w + 8 * 256);
    for (int k = 0; k < 256; k += 16) {
      for (size_t line = 0; line < 8 * 16 * sizeof(W); line += 64) {
        _mm_prefetch(next + static_cast<size_t>(k) * 8 * sizeof(W) + line, _MM_HINT_T0);
      }
      const __m512 xv = _mm512_loadu_ps(x + k);
      for (int i = 0; i < 8; ++i) acc[i] = MulAdd16(acc[i], Load16(w + i * 256 + k), xv);
    }
    for (int g = 0; g < 8; g += 4) {
      const __m128 h =
          Horizontal4(RowSum(acc[g]), RowSum(acc[g + 1]), RowSum(acc[g + 2]), RowSum(acc[g + 3]));
      _mm_storeu_ps(y + r + g, _mm_add_ps(h, Bias4(bias, r + g)));
    }
  }
}

template <typename W>
void Rows74(const W* weight, const float* x, const float* bias, float* y, int rows) {
  const __m128 x72 = _mm_set1_ps(x[72]);
  const __m128 x73 = _mm_set1_ps(x[73]);
  const __m256 x6471 = _mm256_loadu_ps(x + 64);
  for (int r = 0; r < rows; r += 8) {
    const W* w = weight + static_cast<size_t>(r) * 74;
    __m512 acc[8];
    for (int i = 0; i < 8; ++i) acc[i] = _mm512_setzero_ps();
    for (int k = 0; k < 64; k += 16) {
      const __m512 xv = _mm512_loadu_ps(x + k);
      for (int i = 0; i < 8; ++i) acc[i] = MulAdd16(acc[i], Load16(w + i * 74 + k), xv);
    }
    // a0 += elements 64..67, a1 += 68..71.
    __m256 a01[8];
    for (int i = 0; i < 8; ++i) {
      a01[i] = MulAdd8(_mm512_castps512_ps256(acc[i]), Load8(w + i * 74 + 64), x6471);
    }
    for (int g = 0; g < 8; g += 4) {
      const __m128 h = Horizontal4(RowSum(acc[g], a01[g]), RowSum(acc[g + 1], a01[g + 1]),
                                   RowSum(acc[g + 2], a01[g + 2]), RowSum(acc[g + 3], a01[g + 3]));
      _mm_storeu_ps(y + r + g, _mm_add_ps(h, Tail74(w + g * 74, x72, x73, bias, r + g)));
    }
  }
}

// Four rows by NB streams: each weight vector is loaded (and widened) once and used for every stream; each
// (row, stream) accumulator takes exactly Rows256's products in Rows256's order.
template <typename W, int NB>
void Rows256Streams(const W* w, const float* const* x, const float* bias, float* const* y, int r) {
  __m512 acc[4][NB];
  for (int i = 0; i < 4; ++i) {
    for (int b = 0; b < NB; ++b) acc[i][b] = _mm512_setzero_ps();
  }
  for (int k = 0; k < 256; k += 16) {
    __m512 xv[NB];
    for (int b = 0; b < NB; ++b) xv[b] = _mm512_loadu_ps(x[b] + k);
    for (int i = 0; i < 4; ++i) {
      const __m512 wv = Load16(w + i * 256 + k);
      for (int b = 0; b < NB; ++b) acc[i][b] = MulAdd16(acc[i][b], wv, xv[b]);
    }
  }
  for (int b = 0; b < NB; ++b) {
    const __m128 h = Horizontal4(RowSum(acc[0][b]), RowSum(acc[1][b]), RowSum(acc[2][b]), RowSum(acc[3][b]));
    _mm_storeu_ps(y[b] + r, _mm_add_ps(h, Bias4(bias, r)));
  }
}

template <typename W>
void Rows256Batch(const W* weight, const float* const* x, const float* bias, float* const* y, int rows,
                  size_t count) {
  for (int r = 0; r < rows; r += 4) {
    const W* w = weight + static_cast<size_t>(r) * 256;
    size_t b = 0;
    for (; b + 4 <= count; b += 4) Rows256Streams<W, 4>(w, x + b, bias, y + b, r);
    switch (count - b) {
      case 3:
        Rows256Streams<W, 3>(w, x + b, bias, y + b, r);
        break;
      case 2:
        Rows256Streams<W, 2>(w, x + b, bias, y + b, r);
        break;
      case 1:
        Rows256Streams<W, 1>(w, x + b, bias, y + b, r);
        break;
      default:
        break;
    }
  }
}

}  // namespace

void MatVecRows256BatchAvx512(const float* weight, const float* const* x, const float* bias, float* const* y,
                              int rows, size_t count) {
  Rows256Batch(weight, x, bias, y, rows, count);
}
void MatVecRows256HalfBatchAvx512(const uint16_t* weight, const float* const* x, const float* bias,
                                  float* const* y, int rows, size_t count) {
  Rows256Batch(weight, x, bias, y, rows, count);
}

void MatVecRows256Avx512(const float* weight, const float* x, const float* bias, float* y, int rows) {
  Rows256(weight, x, bias, y, rows);
}
void MatVecRows256HalfAvx512(const uint16_t* weight, const float* x, const float* bias, float* y, int rows) {
  Rows256(weight, x, bias, y, rows);
}
void MatVecRows74Avx512(const float* weight, const float* x, const float* bias, float* y, int rows) {
  Rows74(weight, x, bias, y, rows);
}
void MatVecRows74HalfAvx512(const uint16_t* weight, const float* x, const float* bias, float* y, int rows) {
  Rows74(weight, x, bias, y, rows);
}

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
