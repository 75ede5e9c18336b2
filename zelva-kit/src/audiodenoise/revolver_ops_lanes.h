// What the AVX2 and AVX-512 forms of the fused operators share: widening a weight (fp32 or half), the 128-bit
// reduction of four rows' sums, and the scalar tail of the 74-wide rows. Include it only from a unit compiled
// with -mavx2 -mf16c or wider: everything here is in an anonymous namespace, so each unit keeps its own copy
// under its own flags and no instruction of one reaches the other.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {
namespace {

inline __m256 Load8(const float* w) {
  return _mm256_loadu_ps(w);
}
inline __m256 Load8(const uint16_t* w) {
  return _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(w)));
}
inline float Scalar(const float* w) {
  return *w;
}
inline float Scalar(const uint16_t* w) {
  return _cvtsh_ss(*w);
}

inline __m256 MulAdd8(__m256 acc, __m256 w, __m256 x) {
  return _mm256_add_ps(acc, _mm256_mul_ps(w, x));
}

// Four rows' s vectors to ((s0 + s1) + s2) + s3 per row, one row per lane.
inline __m128 Horizontal4(__m128 s0, __m128 s1, __m128 s2, __m128 s3) {
  _MM_TRANSPOSE4_PS(s0, s1, s2, s3);
  return _mm_add_ps(_mm_add_ps(_mm_add_ps(s0, s1), s2), s3);
}

inline __m128 Bias4(const float* bias, int r) {
  return bias != nullptr ? _mm_loadu_ps(bias + r) : _mm_setzero_ps();
}

// Rows r .. r + 3 of 74-wide rows from `w` (row r): w[73] x[73] + (w[72] x[72] + b) per row, which the
// 128-bit form adds to the lane sum last.
template <typename W>
inline __m128 Tail74(const W* w, __m128 x72, __m128 x73, const float* bias, int r) {
  const __m128 w72 =
      _mm_setr_ps(Scalar(w + 72), Scalar(w + 74 + 72), Scalar(w + 148 + 72), Scalar(w + 222 + 72));
  const __m128 w73 =
      _mm_setr_ps(Scalar(w + 73), Scalar(w + 74 + 73), Scalar(w + 148 + 73), Scalar(w + 222 + 73));
  return _mm_add_ps(_mm_mul_ps(w73, x73), _mm_add_ps(_mm_mul_ps(w72, x72), Bias4(bias, r)));
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
