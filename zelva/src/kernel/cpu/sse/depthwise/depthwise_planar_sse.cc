// The planar depthwise cores in SSE (declared in family/depthwise/cores.h), one template on kernel size and
// stride.
#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/depthwise/cores.h"

namespace zelva {
namespace kernel {

namespace {

// Four inputs S apart from p: stride 1 one load; stride 2 the even lanes of p[0..3] and p[3..6], so that no
// load reaches past the last input the four outputs read.
template <int S>
inline __m128 Load4(const float* p) {
  if constexpr (S == 1) {
    return _mm_loadu_ps(p);
  } else {
    return _mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p + 3), _MM_SHUFFLE(3, 1, 2, 0));
  }
}

// RR output rows of one channel from row y: four pixels a vector, then single pixels.
template <int K, int S, int RR>
inline void Rows(const float* in, size_t in_w, const __m128* taps, const float* w, float start, float* out,
                 size_t out_w, uint32_t y) {
  const __m128 start4 = _mm_set1_ps(start);
  size_t x = 0;
  for (; x + 4 <= out_w; x += 4) {
    for (int r = 0; r < RR; ++r) {
      __m128 acc = start4;
      for (int ky = 0; ky < K; ++ky) {
        const float* src = in + ((static_cast<size_t>(y) + r) * S + ky) * in_w + x * S;
        for (int kx = 0; kx < K; ++kx)
          acc = _mm_add_ps(acc, _mm_mul_ps(Load4<S>(src + kx), taps[ky * K + kx]));
      }
      _mm_storeu_ps(out + (static_cast<size_t>(y) + r) * out_w + x, acc);
    }
  }
  for (; x < out_w; ++x) {
    for (int r = 0; r < RR; ++r) {
      float acc = start;
      for (int ky = 0; ky < K; ++ky) {
        const float* src = in + ((static_cast<size_t>(y) + r) * S + ky) * in_w + x * S;
        for (int kx = 0; kx < K; ++kx) acc = acc + src[kx] * w[ky * K + kx];
      }
      out[(static_cast<size_t>(y) + r) * out_w + x] = acc;
    }
  }
}

}  // namespace

template <int K, int S>
void DepthwisePlanarSse(const PlanarConvArgs& a) {
  constexpr int R = S == 2 ? 2 : 1;  // stride 2: two output rows a round, an odd last row alone
  const size_t in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  const size_t out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  for (uint32_t c = 0; c < a.param->out_channels; ++c) {
    const float* w = a.weight + static_cast<size_t>(c) * K * K;
    __m128 taps[K * K];
    for (int k = 0; k < K * K; ++k) taps[k] = _mm_set1_ps(w[k]);
    const float start = a.bias != nullptr ? a.bias[c] : 0.0f;
    const float* in = a.input + c * in_plane;
    float* out = a.output + c * out_plane;
    uint32_t y = 0;
    for (; y + R <= a.out_h; y += R) Rows<K, S, R>(in, a.in_w, taps, w, start, out, a.out_w, y);
    for (; y < a.out_h; ++y) Rows<K, S, 1>(in, a.in_w, taps, w, start, out, a.out_w, y);
  }
}

template void DepthwisePlanarSse<3, 1>(const PlanarConvArgs&);
template void DepthwisePlanarSse<3, 2>(const PlanarConvArgs&);

}  // namespace kernel
}  // namespace zelva
