#include "zelva/src/kernel/family/fullconnection/cores.h"

#include <immintrin.h>

#include <cstddef>
#include <cstring>

namespace zelva {
namespace kernel {

namespace {

void StartFromBias(const float* bias, int32_t out_count, float* y) {
  const size_t bytes = sizeof(float) * static_cast<size_t>(out_count);
  if (bias != nullptr) {
    std::memcpy(y, bias, bytes);
  } else {
    std::memset(y, 0, bytes);
  }
}

// Sum of four lanes: pairs, then the last two.
inline float ReduceLanes(__m128 s) {
  s = _mm_add_ps(s, _mm_movehl_ps(s, s));
  s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 0x55));
  return _mm_cvtss_f32(s);
}

// Sum of eight lanes: halves first.
inline float ReduceLanes(__m256 v) {
  return ReduceLanes(_mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1)));
}

// kRows rows of w against x: per row four partial sums over 32 inputs a round, one over 8, then the tail.
template <int kRows>
inline void DotRows(const float* x, int32_t in_count, const float* w, float* y) {
  const float* row[kRows];
  for (int r = 0; r < kRows; ++r) row[r] = w + static_cast<size_t>(r) * in_count;
  __m256 a0[kRows], a1[kRows], a2[kRows], a3[kRows];
  for (int r = 0; r < kRows; ++r) a0[r] = a1[r] = a2[r] = a3[r] = _mm256_setzero_ps();
  int32_t i = 0;
  for (; i + 32 <= in_count; i += 32) {
    const __m256 x0 = _mm256_loadu_ps(x + i), x1 = _mm256_loadu_ps(x + i + 8);
    const __m256 x2 = _mm256_loadu_ps(x + i + 16), x3 = _mm256_loadu_ps(x + i + 24);
    for (int r = 0; r < kRows; ++r) {
      a0[r] = _mm256_add_ps(a0[r], _mm256_mul_ps(_mm256_loadu_ps(row[r] + i), x0));
      a1[r] = _mm256_add_ps(a1[r], _mm256_mul_ps(_mm256_loadu_ps(row[r] + i + 8), x1));
      a2[r] = _mm256_add_ps(a2[r], _mm256_mul_ps(_mm256_loadu_ps(row[r] + i + 16), x2));
      a3[r] = _mm256_add_ps(a3[r], _mm256_mul_ps(_mm256_loadu_ps(row[r] + i + 24), x3));
    }
  }
  for (; i + 8 <= in_count; i += 8) {
    const __m256 x0 = _mm256_loadu_ps(x + i);
    for (int r = 0; r < kRows; ++r)
      a0[r] = _mm256_add_ps(a0[r], _mm256_mul_ps(_mm256_loadu_ps(row[r] + i), x0));
  }
  for (int r = 0; r < kRows; ++r) {
    float tail = 0.0f;
    for (int32_t k = i; k < in_count; ++k) tail += row[r][k] * x[k];
    const __m256 s = _mm256_add_ps(_mm256_add_ps(a0[r], a1[r]), _mm256_add_ps(a2[r], a3[r]));
    y[r] += ReduceLanes(s) + tail;
  }
}

// kTile output blocks of 8 over all input blocks; `block_stride` floats from one output block to the next.
template <int kTile>
inline void Block8Tile(const float* x, int32_t inputs, const float* w, size_t block_stride, float* y) {
  __m256 acc[kTile];
  for (int t = 0; t < kTile; ++t) acc[t] = _mm256_setzero_ps();
  for (int32_t i = 0; i < inputs; ++i) {
    const __m256 xi = _mm256_broadcast_ss(x + i);
    const float* wi = w + static_cast<size_t>(i) * 8;
    for (int t = 0; t < kTile; ++t)
      acc[t] = _mm256_add_ps(acc[t], _mm256_mul_ps(xi, _mm256_loadu_ps(wi + t * block_stride)));
  }
  for (int t = 0; t < kTile; ++t)
    _mm256_storeu_ps(y + t * 8, _mm256_add_ps(_mm256_loadu_ps(y + t * 8), acc[t]));
}

template <int kTile>
void Block8(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
            float* y) {
  StartFromBias(bias, out_count, y);
  const int32_t output_blocks = out_count / 8;
  const int32_t inputs = in_count / 8 * 8;
  if (output_blocks == 0 || inputs == 0) return;
  const size_t block_stride = static_cast<size_t>(inputs) * 8;
  int32_t ob = 0;
  for (; ob + kTile <= output_blocks; ob += kTile)
    Block8Tile<kTile>(x, inputs, w + ob * block_stride, block_stride, y + ob * 8);
  for (; ob < output_blocks; ++ob) Block8Tile<1>(x, inputs, w + ob * block_stride, block_stride, y + ob * 8);
}

}  // namespace

void DenseRowsAVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y) {
  StartFromBias(bias, out_count, y);
  int32_t r = 0;
  for (; r + 2 <= out_count; r += 2) DotRows<2>(x, in_count, w + static_cast<size_t>(r) * in_count, y + r);
  if (r < out_count) DotRows<1>(x, in_count, w + static_cast<size_t>(r) * in_count, y + r);
}

void DenseRows841AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                     float* y) {
  StartFromBias(bias, out_count, y);
  const int32_t body = in_count / 8 * 8;
  const int32_t quads = body + (in_count - body) / 4 * 4;
  for (int32_t r = 0; r < out_count; ++r) {
    const float* row = w + static_cast<size_t>(r) * in_count;
    __m256 acc = _mm256_setzero_ps();
    for (int32_t i = 0; i < body; i += 8)
      acc = _mm256_add_ps(acc, _mm256_mul_ps(_mm256_loadu_ps(row + i), _mm256_loadu_ps(x + i)));
    __m128 rest = _mm_setzero_ps();
    for (int32_t i = body; i < quads; i += 4)
      rest = _mm_add_ps(rest, _mm_mul_ps(_mm_loadu_ps(row + i), _mm_loadu_ps(x + i)));
    float single = 0.0f;
    for (int32_t i = quads; i < in_count; ++i) single += row[i] * x[i];
    const __m128 halves = _mm_add_ps(_mm256_castps256_ps128(acc), _mm256_extractf128_ps(acc, 1));
    y[r] += ReduceLanes(_mm_add_ps(halves, rest)) + single;
  }
}

void DenseBlock8AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                    float* y) {
  Block8<4>(x, in_count, out_count, w, bias, y);
}

void DenseOutRows8AVX(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                      float* y) {
  Block8<2>(x, in_count, out_count, w, bias, y);
}

}  // namespace kernel
}  // namespace zelva
