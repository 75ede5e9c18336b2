#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Rows {
  size_t in_w, in_plane;
  uint32_t channels;  // input channels of the group
};

// Eight output channels, N pixels from output column `ox` (weights at `w`: [channels, K, K, 8]).
template <int K, int S, int N>
inline void Pixels8(const Rows& g, const float* row, const float* w, __m256 start, size_t ox, float* out) {
  __m256 acc[N];
  for (int n = 0; n < N; ++n) acc[n] = start;
  const float* x0 = row + ox * S;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane, w += K * K * 8) {
    for (int ky = 0; ky < K; ++ky) {
      for (int kx = 0; kx < K; ++kx) {
        const __m256 wv = _mm256_loadu_ps(w + (ky * K + kx) * 8);
        const float* x = x0 + ky * g.in_w + kx;
        for (int n = 0; n < N; ++n)
          acc[n] = _mm256_add_ps(acc[n], _mm256_mul_ps(_mm256_set1_ps(x[n * S]), wv));
      }
    }
  }
  for (int n = 0; n < N; ++n) _mm256_storeu_ps(out + (ox + n) * 8, acc[n]);
}

// Four output channels, 2 * N pixels from `ox`: one register holds two neighbouring pixels (weights at `w`:
// [channels, K, K, 4], each vector loaded into both halves).
template <int K, int S, int N>
inline void PixelPairs4(const Rows& g, const float* row, const float* w, __m256 start, size_t ox,
                        float* out) {
  __m256 acc[N];
  for (int n = 0; n < N; ++n) acc[n] = start;
  const float* x0 = row + ox * S;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane, w += K * K * 4) {
    for (int ky = 0; ky < K; ++ky) {
      for (int kx = 0; kx < K; ++kx) {
        const __m128 w4 = _mm_loadu_ps(w + (ky * K + kx) * 4);
        const __m256 wv = _mm256_insertf128_ps(_mm256_castps128_ps256(w4), w4, 1);
        const float* x = x0 + ky * g.in_w + kx;
        for (int n = 0; n < N; ++n) {
          const __m256 xv = _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_set1_ps(x[2 * n * S])),
                                                 _mm_set1_ps(x[(2 * n + 1) * S]), 1);
          acc[n] = _mm256_add_ps(acc[n], _mm256_mul_ps(xv, wv));
        }
      }
    }
  }
  for (int n = 0; n < N; ++n) _mm256_storeu_ps(out + (ox + 2 * n) * 4, acc[n]);
}

// The last pixel of an odd row, in 128 bits.
template <int K, int S>
inline void Pixel4(const Rows& g, const float* row, const float* w, __m128 start, size_t ox, float* out) {
  __m128 acc = start;
  const float* x0 = row + ox * S;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane, w += K * K * 4) {
    for (int ky = 0; ky < K; ++ky) {
      for (int kx = 0; kx < K; ++kx) {
        acc = _mm_add_ps(acc,
                         _mm_mul_ps(_mm_set1_ps(x0[ky * g.in_w + kx]), _mm_loadu_ps(w + (ky * K + kx) * 4)));
      }
    }
  }
  _mm_storeu_ps(out + ox * 4, acc);
}

template <int K, int S, int B>
void PlanarToBlocked(const RelayoutConvArgs& a) {
  const Conv2dParam& p = *a.param;
  Rows g;
  g.in_w = a.in_w;
  g.in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  g.channels = p.in_channels_per_group;
  const uint32_t per_group = p.out_channels_per_group / B;
  const size_t out_w = a.out_w;
  for (uint32_t b = 0; b < p.out_channels / B; ++b) {
    const float* in = a.input + static_cast<size_t>(b / per_group) * g.channels * g.in_plane;
    const float* w = a.weight + static_cast<size_t>(b) * g.channels * K * K * B;
    float* out = a.output + static_cast<size_t>(b) * a.out_h * out_w * B;
    __m128 start4 = _mm_setzero_ps();
    __m256 start;
    if (B == 4) {
      if (a.bias != nullptr) start4 = _mm_loadu_ps(a.bias + b * B);
      start = _mm256_insertf128_ps(_mm256_castps128_ps256(start4), start4, 1);
    } else {
      start = a.bias != nullptr ? _mm256_loadu_ps(a.bias + b * B) : _mm256_setzero_ps();
    }
    for (uint32_t oy = 0; oy < a.out_h; ++oy, out += out_w * B) {
      const float* row = in + static_cast<size_t>(oy) * S * g.in_w;
      size_t ox = 0;
      if constexpr (B == 8) {
        for (; ox + 4 <= out_w; ox += 4) Pixels8<K, S, 4>(g, row, w, start, ox, out);
        for (; ox < out_w; ++ox) Pixels8<K, S, 1>(g, row, w, start, ox, out);
      } else {
        for (; ox + 8 <= out_w; ox += 8) PixelPairs4<K, S, 4>(g, row, w, start, ox, out);
        for (; ox + 2 <= out_w; ox += 2) PixelPairs4<K, S, 1>(g, row, w, start, ox, out);
        if (ox < out_w) Pixel4<K, S>(g, row, w, start4, ox, out);
      }
    }
  }
}

// One output channel from 8-blocked input, N pixels from `ox` (weights at `w`: [blocks, K, K, 8]).
template <int K, int N>
inline void PixelsToOne(const RelayoutConvArgs& a, const float* row, uint32_t blocks, float start, size_t ox,
                        float* out) {
  const size_t in_w = a.in_w, plane = static_cast<size_t>(a.in_h) * a.in_w * 8;
  __m256 acc[N];
  for (int n = 0; n < N; ++n) acc[n] = _mm256_setzero_ps();
  const float* w = a.weight;
  const float* x0 = row + ox * 8;
  for (uint32_t ib = 0; ib < blocks; ++ib, x0 += plane, w += K * K * 8) {
    for (int ky = 0; ky < K; ++ky) {
      for (int kx = 0; kx < K; ++kx) {
        const __m256 wv = _mm256_loadu_ps(w + (ky * K + kx) * 8);
        const float* x = x0 + (ky * in_w + kx) * 8;
        for (int n = 0; n < N; ++n)
          acc[n] = _mm256_add_ps(acc[n], _mm256_mul_ps(_mm256_loadu_ps(x + n * 8), wv));
      }
    }
  }
  for (int n = 0; n < N; ++n) {
    __m128 s = _mm_add_ps(_mm256_castps256_ps128(acc[n]), _mm256_extractf128_ps(acc[n], 1));
    s = _mm_add_ps(s, _mm_movehl_ps(s, s));
    s = _mm_add_ss(s, _mm_shuffle_ps(s, s, 1));
    out[ox + n] = start + _mm_cvtss_f32(s);
  }
}

}  // namespace

void Conv3x3S1PlanarToC4Avx(const RelayoutConvArgs& a) {
  PlanarToBlocked<3, 1, 4>(a);
}
void Conv3x3S1PlanarToC8Avx(const RelayoutConvArgs& a) {
  PlanarToBlocked<3, 1, 8>(a);
}
void Conv7x7S2PlanarToC8Avx(const RelayoutConvArgs& a) {
  PlanarToBlocked<7, 2, 8>(a);
}

void Conv3x3S1C8ToPlanar1Avx(const RelayoutConvArgs& a) {
  const uint32_t blocks = a.param->in_channels / 8;
  const float start = a.bias != nullptr ? a.bias[0] : 0.0f;
  const size_t out_w = a.out_w;
  for (uint32_t oy = 0; oy < a.out_h; ++oy) {
    const float* row = a.input + static_cast<size_t>(oy) * a.in_w * 8;
    float* out = a.output + oy * out_w;
    size_t ox = 0;
    for (; ox + 4 <= out_w; ox += 4) PixelsToOne<3, 4>(a, row, blocks, start, ox, out);
    for (; ox < out_w; ++ox) PixelsToOne<3, 1>(a, row, blocks, start, ox, out);
  }
}

}  // namespace kernel
}  // namespace zelva
