#include "zelva/src/kernel/family/activation/cores.h"

#include "zelva/src/kernel/functional/pointwise_ops.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

// 1 / (1 + exp(0 - x)) over 8 lanes, exp by range reduction to r = t - k ln2 (ln2 split in two parts), a
// polynomial in r and the power 2^k made in the exponent field.
inline __m256 PolySigmoid8(__m256 x) {
  const __m256 one = _mm256_set1_ps(1.0f);
  __m256 t = _mm256_sub_ps(_mm256_setzero_ps(), x);
  t = _mm256_min_ps(t, _mm256_set1_ps(FloatFromBits(0x42B0C0A5u)));  // 88.376259
  t = _mm256_max_ps(t, _mm256_set1_ps(FloatFromBits(0xC2B0C0A5u)));  // -88.376259
  const __m256 k = _mm256_floor_ps(
      _mm256_add_ps(_mm256_mul_ps(t, _mm256_set1_ps(FloatFromBits(0x3FB8AA3Bu))), _mm256_set1_ps(0.5f)));
  __m256 r = _mm256_sub_ps(t, _mm256_mul_ps(k, _mm256_set1_ps(0.693359375f)));
  r = _mm256_sub_ps(r, _mm256_mul_ps(k, _mm256_set1_ps(-0.00021219444f)));
  static const uint32_t kPoly[6] = {0x39506967u, 0x3AB743CEu, 0x3C088908u,
                                    0x3D2AA9C1u, 0x3E2AAAAAu, 0x3F000000u};
  __m256 p = _mm256_set1_ps(FloatFromBits(kPoly[0]));
  for (int c = 1; c < 6; ++c) p = _mm256_add_ps(_mm256_mul_ps(p, r), _mm256_set1_ps(FloatFromBits(kPoly[c])));
  __m256 e = _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(_mm256_mul_ps(p, r), r), r), one);
  // 2^k: k + 127 into the exponent field, in two 4-lane halves (no 256-bit integer arithmetic in AVX).
  const __m256i ki = _mm256_cvttps_epi32(k);
  const __m128i bias = _mm_set1_epi32(127);
  const __m128i lo = _mm_slli_epi32(_mm_add_epi32(_mm256_castsi256_si128(ki), bias), 23);
  const __m128i hi = _mm_slli_epi32(_mm_add_epi32(_mm256_extractf128_si256(ki, 1), bias), 23);
  const __m256 pow2k = _mm256_castsi256_ps(_mm256_insertf128_si256(_mm256_castsi128_si256(lo), hi, 1));
  e = _mm256_mul_ps(e, pow2k);
  return _mm256_div_ps(one, _mm256_add_ps(one, e));
}

}  // namespace

void ReluAVX(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<ReluOp, V8>(x, n, y, alpha, beta);
}

void Relu6AVX(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<Relu6Op, V8>(x, n, y, alpha, beta);
}

void LeakyAVX(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<LeakyOp, V8>(x, n, y, alpha, beta);
}

void HSwishAVX(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<HSwishOp, V8>(x, n, y, alpha, beta);
}

void SigmoidAVX(const float* x, uint32_t n, float* y, float, float) {
  uint32_t i = 0;
  for (; i + 8 <= n; i += 8) _mm256_storeu_ps(y + i, PolySigmoid8(_mm256_loadu_ps(x + i)));
  SigmoidRestSSE(x + i, n - i, y + i);
}

}  // namespace kernel
}  // namespace zelva
