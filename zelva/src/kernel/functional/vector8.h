// 8-lane float vector helpers for the AVX cores; included only by translation units compiled with -mavx.
// Internal linkage, as in vector4.h.
#pragma once

#include <immintrin.h>
#include <stdint.h>

namespace zelva {
namespace kernel {
namespace {

struct V8 {
  using T = __m256;
  static constexpr uint32_t kLanes = 8;
  static T Load(const float* p) { return _mm256_loadu_ps(p); }
  static void Store(float* p, T v) { _mm256_storeu_ps(p, v); }
  static T Set(float v) { return _mm256_set1_ps(v); }
  static T Zero() { return _mm256_setzero_ps(); }
  static T Add(T a, T b) { return _mm256_add_ps(a, b); }
  static T Sub(T a, T b) { return _mm256_sub_ps(a, b); }
  static T Mul(T a, T b) { return _mm256_mul_ps(a, b); }
  static T Div(T a, T b) { return _mm256_div_ps(a, b); }
  static T Max(T a, T b) { return _mm256_max_ps(a, b); }
  static T Min(T a, T b) { return _mm256_min_ps(a, b); }
};

}  // namespace
}  // namespace kernel
}  // namespace zelva
