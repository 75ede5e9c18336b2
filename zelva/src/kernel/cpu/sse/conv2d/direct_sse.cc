#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

// The geometry of one call. A template argument of 0 means "read it from the record"; otherwise it is the
// member's fixed value and the loops over it unroll. Members of a fixed kernel size all have dilation 1.
struct Geometry {
  uint32_t kh, kw, sh, sw, dh, dw;
  size_t in_w, in_plane;
  uint32_t channels;  // input channels of a group
  size_t taps;        // kh * kw
};

// Four output columns at stride `sw` starting at `x`; reads x[0] .. x[3 * sw] and nothing beyond.
template <int SW>
inline __m128 LoadColumns(const float* x, uint32_t sw) {
  if (SW == 1) return _mm_loadu_ps(x);
  if (SW == 2) {
    const __m128 lo = _mm_loadu_ps(x);      // x0 x1 x2 x3
    const __m128 hi = _mm_loadu_ps(x + 3);  // x3 x4 x5 x6
    return _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(3, 1, 2, 0));
  }
  return _mm_setr_ps(x[0], x[sw], x[2 * sw], x[3 * sw]);
}

// Output channels o .. o + R - 1 (weights at `w`, starts at `start`) over P vectors of four columns from
// output column `ox` of the row whose first input row is `in_row`.
template <int KH, int KW, int SW, int R, int P>
inline void Tile(const Geometry& g, const float* in_row, const float* w, const float* start, size_t ox,
                 float* out, size_t out_plane) {
  const uint32_t kh = KH != 0 ? KH : g.kh, kw = KW != 0 ? KW : g.kw, sw = SW != 0 ? SW : g.sw;
  const uint32_t dh = KH != 0 ? 1 : g.dh, dw = KW != 0 ? 1 : g.dw;
  const size_t w_stride = g.channels * g.taps;
  __m128 acc[R][P];
  for (int r = 0; r < R; ++r) {
    for (int p = 0; p < P; ++p) acc[r][p] = _mm_set1_ps(start[r]);
  }
  const float* x0 = in_row + ox * sw;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane) {
    const float* wc = w + c * g.taps;
    for (uint32_t ky = 0; ky < kh; ++ky) {
      const float* xr = x0 + ky * dh * g.in_w;
      for (uint32_t kx = 0; kx < kw; ++kx) {
        const float* x = xr + kx * dw;
        __m128 xv[P];
        for (int p = 0; p < P; ++p) xv[p] = LoadColumns<SW>(x + p * 4 * sw, sw);
        const size_t tap = ky * kw + kx;
        for (int r = 0; r < R; ++r) {
          const __m128 wv = _mm_set1_ps(wc[r * w_stride + tap]);
          for (int p = 0; p < P; ++p) acc[r][p] = _mm_add_ps(acc[r][p], _mm_mul_ps(wv, xv[p]));
        }
      }
    }
  }
  for (int r = 0; r < R; ++r) {
    for (int p = 0; p < P; ++p) _mm_storeu_ps(out + r * out_plane + ox + p * 4, acc[r][p]);
  }
}

// One output value, in the same order as the tiles.
template <int KH, int KW, int SW>
inline float Single(const Geometry& g, const float* in_row, const float* w, float start, size_t ox) {
  const uint32_t kh = KH != 0 ? KH : g.kh, kw = KW != 0 ? KW : g.kw, sw = SW != 0 ? SW : g.sw;
  const uint32_t dh = KH != 0 ? 1 : g.dh, dw = KW != 0 ? 1 : g.dw;
  float acc = start;
  const float* x0 = in_row + ox * sw;
  for (uint32_t c = 0; c < g.channels; ++c, x0 += g.in_plane) {
    const float* wc = w + c * g.taps;
    for (uint32_t ky = 0; ky < kh; ++ky) {
      const float* xr = x0 + ky * dh * g.in_w;
      for (uint32_t kx = 0; kx < kw; ++kx) acc = acc + xr[kx * dw] * wc[ky * kw + kx];
    }
  }
  return acc;
}

// Output channels o .. o + R - 1 of one group over every output row: tiles of P vectors, then single
// vectors, then single columns.
template <int KH, int KW, int SH, int SW, int R, int P>
void Rows(const Geometry& g, const PlanarConvArgs& a, const float* in, const float* w, const float* start,
          float* out) {
  const uint32_t sh = SH != 0 ? SH : g.sh;
  const size_t out_w = a.out_w, out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  for (uint32_t oy = 0; oy < a.out_h; ++oy) {
    const float* in_row = in + static_cast<size_t>(oy) * sh * g.in_w;
    float* out_row = out + oy * out_w;
    size_t ox = 0;
    for (; ox + 4 * P <= out_w; ox += 4 * P)
      Tile<KH, KW, SW, R, P>(g, in_row, w, start, ox, out_row, out_plane);
    for (; ox + 4 <= out_w; ox += 4) Tile<KH, KW, SW, R, 1>(g, in_row, w, start, ox, out_row, out_plane);
    for (; ox < out_w; ++ox) {
      for (int r = 0; r < R; ++r)
        out_row[r * out_plane + ox] =
            Single<KH, KW, SW>(g, in_row, w + r * g.channels * g.taps, start[r], ox);
    }
  }
}

// The whole layer, group by group, R output channels at a time and the rest one by one.
template <int KH, int KW, int SH, int SW, int R, int P>
void Direct(const PlanarConvArgs& a) {
  const Conv2dParam& p = *a.param;
  Geometry g;
  g.kh = p.kernel_y;
  g.kw = p.kernel_x;
  g.sh = p.stride_y;
  g.sw = p.stride_x;
  g.dh = p.dilation_y;
  g.dw = p.dilation_x;
  g.in_w = a.in_w;
  g.in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  g.channels = p.in_channels_per_group;
  g.taps = static_cast<size_t>(g.kh) * g.kw;
  const size_t out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  const uint32_t outputs = p.out_channels_per_group;
  for (uint32_t grp = 0; grp < p.groups; ++grp) {
    const float* in = a.input + static_cast<size_t>(grp) * g.channels * g.in_plane;
    for (uint32_t o = 0; o < outputs;) {
      const uint32_t oc = grp * outputs + o;
      float start[R];
      const int n = o + R <= outputs ? R : 1;
      for (int r = 0; r < n; ++r) start[r] = a.bias != nullptr ? a.bias[oc + r] : 0.0f;
      const float* w = a.weight + static_cast<size_t>(oc) * g.channels * g.taps;
      float* out = a.output + oc * out_plane;
      if (n == R) {
        Rows<KH, KW, SH, SW, R, P>(g, a, in, w, start, out);
      } else {
        Rows<KH, KW, SH, SW, 1, P>(g, a, in, w, start, out);
      }
      o += n;
    }
  }
}

}  // namespace

void DirectConv1x1S2Sse(const PlanarConvArgs& a) {
  Direct<1, 1, 2, 2, 4, 2>(a);
}
void DirectConv1x3S1Sse(const PlanarConvArgs& a) {
  Direct<1, 3, 1, 1, 4, 2>(a);
}
void DirectConv3x1S1Sse(const PlanarConvArgs& a) {
  Direct<3, 1, 1, 1, 4, 2>(a);
}
void DirectConv3x1S1SseWide(const PlanarConvArgs& a) {
  Direct<3, 1, 1, 1, 2, 4>(a);
}
void DirectConv3x3S1Sse(const PlanarConvArgs& a) {
  Direct<3, 3, 1, 1, 4, 2>(a);
}
void DirectConv3x3S2Sse(const PlanarConvArgs& a) {
  Direct<3, 3, 2, 2, 4, 2>(a);
}

// Any geometry; stride 1 and 2 along x still load whole vectors.
void DirectConvAnySse(const PlanarConvArgs& a) {
  switch (a.param->stride_x) {
    case 1:
      Direct<0, 0, 0, 1, 4, 2>(a);
      break;
    case 2:
      Direct<0, 0, 0, 2, 4, 2>(a);
      break;
    default:
      Direct<0, 0, 0, 0, 4, 2>(a);
      break;
  }
}

}  // namespace kernel
}  // namespace zelva
