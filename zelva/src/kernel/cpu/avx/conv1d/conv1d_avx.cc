// The AVX core of the one-dimensional convolution family (declared in family/conv1d/cores.h): kernel 3,
// stride 1, dilation 1, one group; separate multiply and add (no fused multiply-add), in the reference's
// order for every output value.
#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv1d/cores.h"

namespace zelva {
namespace kernel {

void Conv1dK3S1Avx(const Conv1dArgs& a) {
  const uint32_t n = a.out_len;
  for (uint32_t o = 0; o < a.out_channels; ++o) {
    const float* w = a.weight + static_cast<size_t>(o) * a.in_channels * 3;
    float* out = a.output + static_cast<size_t>(o) * n;
    const float b = a.bias != nullptr ? a.bias[o] : 0.0f;
    uint32_t x = 0;
    for (; x + 32 <= n; x += 32) {
      __m256 acc[4];
      for (int v = 0; v < 4; ++v) acc[v] = _mm256_set1_ps(b);
      for (uint32_t i = 0; i < a.in_channels; ++i) {
        const float* in = a.input + static_cast<size_t>(i) * a.in_len + x;
        for (int k = 0; k < 3; ++k) {
          const __m256 wk = _mm256_set1_ps(w[i * 3 + k]);
          for (int v = 0; v < 4; ++v)
            acc[v] = _mm256_add_ps(acc[v], _mm256_mul_ps(_mm256_loadu_ps(in + 8 * v + k), wk));
        }
      }
      for (int v = 0; v < 4; ++v) _mm256_storeu_ps(out + x + 8 * v, acc[v]);
    }
    for (; x + 8 <= n; x += 8) {
      __m256 acc = _mm256_set1_ps(b);
      for (uint32_t i = 0; i < a.in_channels; ++i) {
        const float* in = a.input + static_cast<size_t>(i) * a.in_len + x;
        for (int k = 0; k < 3; ++k)
          acc = _mm256_add_ps(acc, _mm256_mul_ps(_mm256_loadu_ps(in + k), _mm256_set1_ps(w[i * 3 + k])));
      }
      _mm256_storeu_ps(out + x, acc);
    }
    for (; x < n; ++x) {
      float sum = b;
      for (uint32_t i = 0; i < a.in_channels; ++i) {
        const float* in = a.input + static_cast<size_t>(i) * a.in_len + x;
        for (int k = 0; k < 3; ++k) sum = sum + in[k] * w[i * 3 + k];
      }
      out[x] = sum;
    }
  }
}

}  // namespace kernel
}  // namespace zelva
