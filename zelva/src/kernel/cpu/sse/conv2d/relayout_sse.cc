#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

// N pixels from output column `ox` of the row whose first input row is `row`, for one block of four output
// channels (weights at `w`: [channels, K, K, 4]).
template <int K, int S, int N>
inline void Pixels(const float* row, size_t in_w, size_t in_plane, uint32_t channels, const float* w,
                   __m128 start, size_t ox, float* out) {
  __m128 acc[N];
  for (int n = 0; n < N; ++n) acc[n] = start;
  const float* x0 = row + ox * S;
  for (uint32_t c = 0; c < channels; ++c, x0 += in_plane, w += K * K * 4) {
    for (int ky = 0; ky < K; ++ky) {
      for (int kx = 0; kx < K; ++kx) {
        const __m128 wv = _mm_loadu_ps(w + (ky * K + kx) * 4);
        const float* x = x0 + ky * in_w + kx;
        for (int n = 0; n < N; ++n) acc[n] = _mm_add_ps(acc[n], _mm_mul_ps(_mm_set1_ps(x[n * S]), wv));
      }
    }
  }
  for (int n = 0; n < N; ++n) _mm_storeu_ps(out + (ox + n) * 4, acc[n]);
}

template <int K, int S>
void PlanarToC4(const RelayoutConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const uint32_t channels = p.in_channels_per_group, per_group = p.out_channels_per_group / 4;
  const size_t in_w = a.in_w, in_plane = static_cast<size_t>(a.in_h) * a.in_w, out_w = a.out_w;
  for (uint32_t b = 0; b < p.out_channels / 4; ++b) {
    const float* in = a.input + static_cast<size_t>(b / per_group) * channels * in_plane;
    const float* w = a.weight + static_cast<size_t>(b) * channels * K * K * 4;
    const __m128 start = a.bias != nullptr ? _mm_loadu_ps(a.bias + b * 4) : _mm_setzero_ps();
    float* out = a.output + static_cast<size_t>(b) * a.out_h * out_w * 4;
    for (uint32_t oy = 0; oy < a.out_h; ++oy, out += out_w * 4) {
      const float* row = in + static_cast<size_t>(oy) * S * in_w;
      size_t ox = 0;
      for (; ox + 4 <= out_w; ox += 4) Pixels<K, S, 4>(row, in_w, in_plane, channels, w, start, ox, out);
      for (; ox < out_w; ++ox) Pixels<K, S, 1>(row, in_w, in_plane, channels, w, start, ox, out);
    }
  }
}

}  // namespace

void Conv3x3S1PlanarToC4Sse(const RelayoutConvArgs& a) {
  PlanarToC4<3, 1>(a);
}

}  // namespace kernel
}  // namespace zelva
