#include "zelva/src/kernel/family/conv2d/cores.h"

#include <xmmintrin.h>

#include <cstddef>

namespace zelva {
namespace kernel {

namespace {

// Output channels o .. o + R - 1 of one group over `pixels` pixels. `w` points at row o of the group's
// [outputs, channels] weight matrix, `bias` at its bias or is null.
template <int R>
void PointwiseRows(const float* in, uint32_t channels, size_t pixels, const float* w, const float* bias,
                   float* out) {
  float start[R];
  for (int r = 0; r < R; ++r) start[r] = bias != nullptr ? bias[r] : 0.0f;
  size_t p = 0;
  for (; p + 8 <= pixels; p += 8) {
    __m128 acc0[R], acc1[R];
    for (int r = 0; r < R; ++r) acc0[r] = acc1[r] = _mm_set1_ps(start[r]);
    const float* x = in + p;
    for (uint32_t i = 0; i < channels; ++i, x += pixels) {
      const __m128 x0 = _mm_loadu_ps(x);
      const __m128 x1 = _mm_loadu_ps(x + 4);
      for (int r = 0; r < R; ++r) {
        const __m128 wv = _mm_set1_ps(w[r * channels + i]);
        acc0[r] = _mm_add_ps(acc0[r], _mm_mul_ps(wv, x0));
        acc1[r] = _mm_add_ps(acc1[r], _mm_mul_ps(wv, x1));
      }
    }
    for (int r = 0; r < R; ++r) {
      _mm_storeu_ps(out + r * pixels + p, acc0[r]);
      _mm_storeu_ps(out + r * pixels + p + 4, acc1[r]);
    }
  }
  for (; p + 4 <= pixels; p += 4) {
    __m128 acc[R];
    for (int r = 0; r < R; ++r) acc[r] = _mm_set1_ps(start[r]);
    const float* x = in + p;
    for (uint32_t i = 0; i < channels; ++i, x += pixels) {
      const __m128 x0 = _mm_loadu_ps(x);
      for (int r = 0; r < R; ++r)
        acc[r] = _mm_add_ps(acc[r], _mm_mul_ps(_mm_set1_ps(w[r * channels + i]), x0));
    }
    for (int r = 0; r < R; ++r) _mm_storeu_ps(out + r * pixels + p, acc[r]);
  }
  for (; p < pixels; ++p) {
    for (int r = 0; r < R; ++r) {
      float acc = start[r];
      for (uint32_t i = 0; i < channels; ++i) acc = acc + w[r * channels + i] * in[i * pixels + p];
      out[r * pixels + p] = acc;
    }
  }
}

}  // namespace

void PointwiseConvSse(const PlanarConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const size_t pixels = static_cast<size_t>(a.out_h) * a.out_w;
  const uint32_t channels = p.in_channels_per_group;
  const uint32_t outputs = p.out_channels_per_group;
  for (uint32_t g = 0; g < p.groups; ++g) {
    const float* in = a.input + static_cast<size_t>(g) * channels * pixels;
    const float* w = a.weight + static_cast<size_t>(g) * outputs * channels;
    const float* bias = a.bias != nullptr ? a.bias + static_cast<size_t>(g) * outputs : nullptr;
    float* out = a.output + static_cast<size_t>(g) * outputs * pixels;
    uint32_t o = 0;
    for (; o + 4 <= outputs; o += 4) {
      PointwiseRows<4>(in, channels, pixels, w + static_cast<size_t>(o) * channels,
                       bias != nullptr ? bias + o : nullptr, out + o * pixels);
    }
    for (; o < outputs; ++o) {
      PointwiseRows<1>(in, channels, pixels, w + static_cast<size_t>(o) * channels,
                       bias != nullptr ? bias + o : nullptr, out + o * pixels);
    }
  }
}

}  // namespace kernel
}  // namespace zelva
