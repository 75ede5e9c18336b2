// 4-lane float vector helpers shared by the SSE cores of every family (and by the rests of the AVX cores,
// which fall back to 4-lane groups). Everything here has internal linkage: a translation unit compiled with
// -mavx gets its own copy, so no VEX-encoded body can stand in for the SSE one at link time.
#pragma once

#include <emmintrin.h>
#include <stdint.h>
#include <string.h>

namespace zelva {
namespace kernel {
namespace {

// A float from its IEEE bit pattern.
inline float FloatFromBits(uint32_t bits) {
  float value;
  memcpy(&value, &bits, sizeof(value));
  return value;
}

// The operations the pointwise cores need, over 4 lanes. Max and Min keep the operand order of the
// instructions: the second operand comes back when either lane is not a number.
struct V4 {
  using T = __m128;
  static constexpr uint32_t kLanes = 4;
  static T Load(const float* p) { return _mm_loadu_ps(p); }
  static void Store(float* p, T v) { _mm_storeu_ps(p, v); }
  static T Set(float v) { return _mm_set1_ps(v); }
  static T Zero() { return _mm_setzero_ps(); }
  static T Add(T a, T b) { return _mm_add_ps(a, b); }
  static T Sub(T a, T b) { return _mm_sub_ps(a, b); }
  static T Mul(T a, T b) { return _mm_mul_ps(a, b); }
  static T Div(T a, T b) { return _mm_div_ps(a, b); }
  static T Max(T a, T b) { return _mm_max_ps(a, b); }
  static T Min(T a, T b) { return _mm_min_ps(a, b); }
};

// Piecewise-linear exponential by the bit trick: the rounded integer of t * 1512775 + 1072632448 becomes the
// high word of a double (low word zero), which is then narrowed to float. A few percent of relative error;
// the clamp at +-512 only keeps the integer within 32 bits (large results overflow to infinity, small ones
// underflow to zero in the narrowing).
inline __m128 FastExp4(__m128 t) {
  const __m128 lo = _mm_set1_ps(FloatFromBits(0xC4000000u));     // -512
  const __m128 hi = _mm_set1_ps(FloatFromBits(0x44000000u));     // 512
  const __m128 scale = _mm_set1_ps(FloatFromBits(0x49B8AA38u));  // 1512775
  const __m128 bias = _mm_set1_ps(FloatFromBits(0x4E7FBC4Au));   // 1072632448
  t = _mm_min_ps(hi, _mm_max_ps(lo, t));
  const __m128 v = _mm_add_ps(_mm_mul_ps(t, scale), bias);
  const __m128i k = _mm_cvtps_epi32(v);
  const __m128i zero = _mm_setzero_si128();
  const __m128d d01 = _mm_castsi128_pd(_mm_unpacklo_epi32(zero, k));
  const __m128d d23 = _mm_castsi128_pd(_mm_unpackhi_epi32(zero, k));
  return _mm_movelh_ps(_mm_cvtpd_ps(d01), _mm_cvtpd_ps(d23));
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
