#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Plane {
  size_t in_w, in_plane, out_plane;
  uint32_t channels;  // input channels of a group
};

// The two vector widths the rows use: 256 bits, and 128 bits for a row's last four columns.
template <int V>
struct Ops;
template <>
struct Ops<8> {
  using Vec = __m256;
  static Vec Set1(float v) { return _mm256_set1_ps(v); }
  static Vec Load(const float* x) { return _mm256_loadu_ps(x); }
  static void Store(float* x, Vec v) { _mm256_storeu_ps(x, v); }
  static Vec MulAdd(Vec acc, Vec a, Vec b) { return _mm256_add_ps(acc, _mm256_mul_ps(a, b)); }
};
template <>
struct Ops<4> {
  using Vec = __m128;
  static Vec Set1(float v) { return _mm_set1_ps(v); }
  static Vec Load(const float* x) { return _mm_loadu_ps(x); }
  static void Store(float* x, Vec v) { _mm_storeu_ps(x, v); }
  static Vec MulAdd(Vec acc, Vec a, Vec b) { return _mm_add_ps(acc, _mm_mul_ps(a, b)); }
};

// Output channels o .. o + R - 1 (weights at `w`, starts at `start`) over P vectors of V columns from output
// column `ox`, 3x3 taps at stride 1.
template <int R, int P, int V>
inline void Tile(const Plane& g, const float* in_row, const float* w, const float* start, size_t ox,
                 float* out) {
  using O = Ops<V>;
  using Vec = typename O::Vec;
  const size_t w_stride = static_cast<size_t>(g.channels) * 9;
  Vec acc[R][P];
  for (int r = 0; r < R; ++r) {
    for (int p = 0; p < P; ++p) acc[r][p] = O::Set1(start[r]);
  }
  const float* x0 = in_row + ox;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane) {
    const float* wc = w + c * 9;
    for (int ky = 0; ky < 3; ++ky) {
      for (int kx = 0; kx < 3; ++kx) {
        const float* x = x0 + ky * g.in_w + kx;
        Vec xv[P];
        for (int p = 0; p < P; ++p) xv[p] = O::Load(x + p * V);
        for (int r = 0; r < R; ++r) {
          const Vec wv = O::Set1(wc[r * w_stride + ky * 3 + kx]);
          for (int p = 0; p < P; ++p) acc[r][p] = O::MulAdd(acc[r][p], wv, xv[p]);
        }
      }
    }
  }
  for (int r = 0; r < R; ++r) {
    for (int p = 0; p < P; ++p) O::Store(out + r * g.out_plane + ox + p * V, acc[r][p]);
  }
}

template <int R>
void Rows(const Plane& g, const PlanarConvArgs& a, const float* in, const float* w, const float* start,
          float* out) {
  const size_t out_w = a.out_w;
  for (uint32_t oy = 0; oy < a.out_h; ++oy) {
    const float* in_row = in + oy * g.in_w;
    float* out_row = out + oy * out_w;
    size_t ox = 0;
    for (; ox + 16 <= out_w; ox += 16) Tile<R, 2, 8>(g, in_row, w, start, ox, out_row);
    for (; ox + 8 <= out_w; ox += 8) Tile<R, 1, 8>(g, in_row, w, start, ox, out_row);
    for (; ox + 4 <= out_w; ox += 4) Tile<R, 1, 4>(g, in_row, w, start, ox, out_row);
    for (; ox < out_w; ++ox) {
      for (int r = 0; r < R; ++r) {
        float acc = start[r];
        const float* x0 = in_row + ox;
        const float* wr = w + r * g.channels * 9;
        for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane, wr += 9) {
          for (int ky = 0; ky < 3; ++ky) {
            for (int kx = 0; kx < 3; ++kx) acc = acc + x0[ky * g.in_w + kx] * wr[ky * 3 + kx];
          }
        }
        out_row[r * g.out_plane + ox] = acc;
      }
    }
  }
}

}  // namespace

void DirectConv3x3S1Avx(const PlanarConvArgs& a) {
  constexpr int R = 4;
  const Conv2dParam& p = *a.param;
  Plane g;
  g.in_w = a.in_w;
  g.in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  g.out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  g.channels = p.in_channels_per_group;
  const uint32_t outputs = p.out_channels_per_group;
  for (uint32_t grp = 0; grp < p.groups; ++grp) {
    const float* in = a.input + static_cast<size_t>(grp) * g.channels * g.in_plane;
    for (uint32_t o = 0; o < outputs;) {
      const uint32_t oc = grp * outputs + o;
      const int n = o + R <= outputs ? R : 1;
      float start[R];
      for (int r = 0; r < n; ++r) start[r] = a.bias != nullptr ? a.bias[oc + r] : 0.0f;
      const float* w = a.weight + static_cast<size_t>(oc) * g.channels * 9;
      float* out = a.output + oc * g.out_plane;
      if (n == R) {
        Rows<R>(g, a, in, w, start, out);
      } else {
        Rows<1>(g, a, in, w, start, out);
      }
      o += n;
    }
  }
}

}  // namespace kernel
}  // namespace zelva
