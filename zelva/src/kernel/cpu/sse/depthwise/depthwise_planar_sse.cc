#include "zelva/src/kernel/family/depthwise/cores.h"

#include <xmmintrin.h>

#include <cstddef>

namespace zelva {
namespace kernel {

namespace {

// Three rows of the padded input starting at column x, against the nine broadcast taps, added to `acc`.
inline __m128 NineTaps(__m128 acc, const float* r0, const float* r1, const float* r2, const __m128* t) {
  acc = _mm_add_ps(acc, _mm_mul_ps(t[0], _mm_loadu_ps(r0)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[1], _mm_loadu_ps(r0 + 1)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[2], _mm_loadu_ps(r0 + 2)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[3], _mm_loadu_ps(r1)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[4], _mm_loadu_ps(r1 + 1)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[5], _mm_loadu_ps(r1 + 2)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[6], _mm_loadu_ps(r2)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[7], _mm_loadu_ps(r2 + 1)));
  acc = _mm_add_ps(acc, _mm_mul_ps(t[8], _mm_loadu_ps(r2 + 2)));
  return acc;
}

}  // namespace

void DepthwiseConv3x3S1Sse(const PlanarConvArgs& a) {
  const uint32_t channels = a.param->out_channels;
  const size_t in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  const size_t out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  const uint32_t ow = a.out_w;
  for (uint32_t c = 0; c < channels; ++c) {
    const float* w = a.weight + static_cast<size_t>(c) * 9;
    __m128 taps[9];
    for (int k = 0; k < 9; ++k) taps[k] = _mm_set1_ps(w[k]);
    const float start = a.bias != nullptr ? a.bias[c] : 0.0f;
    const __m128 start4 = _mm_set1_ps(start);
    const float* in = a.input + c * in_plane;
    float* out = a.output + c * out_plane;
    for (uint32_t y = 0; y < a.out_h; ++y, out += ow) {
      const float* r0 = in + static_cast<size_t>(y) * a.in_w;
      const float* r1 = r0 + a.in_w;
      const float* r2 = r1 + a.in_w;
      uint32_t x = 0;
      for (; x + 8 <= ow; x += 8) {
        _mm_storeu_ps(out + x, NineTaps(start4, r0 + x, r1 + x, r2 + x, taps));
        _mm_storeu_ps(out + x + 4, NineTaps(start4, r0 + x + 4, r1 + x + 4, r2 + x + 4, taps));
      }
      for (; x + 4 <= ow; x += 4) _mm_storeu_ps(out + x, NineTaps(start4, r0 + x, r1 + x, r2 + x, taps));
      for (; x < ow; ++x) {
        float acc = start;
        acc = acc + w[0] * r0[x];
        acc = acc + w[1] * r0[x + 1];
        acc = acc + w[2] * r0[x + 2];
        acc = acc + w[3] * r1[x];
        acc = acc + w[4] * r1[x + 1];
        acc = acc + w[5] * r1[x + 2];
        acc = acc + w[6] * r2[x];
        acc = acc + w[7] * r2[x + 1];
        acc = acc + w[8] * r2[x + 2];
        out[x] = acc;
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
