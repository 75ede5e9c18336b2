#include <xmmintrin.h>

#include <algorithm>
#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

constexpr uint32_t kChunk = 64;  // tiles per chunk of the matrix core, a multiple of 8

// V = B^T d B of the 4 by 4 tile at `x` (rows `in_w` apart), as four row vectors, with B^T of F(2, 3) =
// [1 0 -1 0; 0 1 1 0; 0 -1 1 0; 0 1 0 -1].
inline void InputTile(const float* x, size_t in_w, __m128 v[4]) {
  const __m128 d0 = _mm_loadu_ps(x), d1 = _mm_loadu_ps(x + in_w);
  const __m128 d2 = _mm_loadu_ps(x + 2 * in_w), d3 = _mm_loadu_ps(x + 3 * in_w);
  __m128 t0 = _mm_sub_ps(d0, d2), t1 = _mm_add_ps(d1, d2), t2 = _mm_sub_ps(d2, d1), t3 = _mm_sub_ps(d1, d3);
  _MM_TRANSPOSE4_PS(t0, t1, t2, t3);  // rows of (B^T d)^T
  v[0] = _mm_sub_ps(t0, t2);
  v[1] = _mm_add_ps(t1, t2);
  v[2] = _mm_sub_ps(t2, t1);
  v[3] = _mm_sub_ps(t1, t3);
  _MM_TRANSPOSE4_PS(v[0], v[1], v[2], v[3]);  // back to rows of B^T d B
}

// Adds A^T M A (A^T = [1 1 1 0; 0 1 -1 -1]) of the row-major m[16] into the 2 by 2 output at `out`, the
// second row or column only where it lies inside the output.
inline void AddOutputTile(const float* m, float* out, size_t out_w, bool second_row, bool second_col) {
  float s0[4], s1[4];
  for (int j = 0; j < 4; ++j) {
    s0[j] = m[j] + m[4 + j] + m[8 + j];
    s1[j] = m[4 + j] - m[8 + j] - m[12 + j];
  }
  out[0] += s0[0] + s0[1] + s0[2];
  if (second_col) out[1] += s0[1] - s0[2] - s0[3];
  if (second_row) {
    out[out_w] += s1[0] + s1[1] + s1[2];
    if (second_col) out[out_w + 1] += s1[1] - s1[2] - s1[3];
  }
}

struct Tiles {
  uint32_t across, down, count;
  size_t in_w, in_plane, out_plane;
};

Tiles TilesOf(const WinogradConvArgs& a) {
  Tiles t;
  t.across = (a.out_w + 1) / 2;
  t.down = (a.out_h + 1) / 2;
  t.count = t.across * t.down;
  t.in_w = a.in_w;
  t.in_plane = static_cast<size_t>(a.in_h) * a.in_w;
  t.out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  return t;
}

inline void AddTileAt(const WinogradConvArgs& a, const Tiles& t, uint32_t tile, const float* m, float* out) {
  const uint32_t ty = tile / t.across, tx = tile % t.across;
  AddOutputTile(m, out + static_cast<size_t>(2 * ty) * a.out_w + 2 * tx, a.out_w, 2 * ty + 1 < a.out_h,
                2 * tx + 1 < a.out_w);
}

// Output channels oc .. oc + R - 1 over every tile, from the transformed tiles in `work` ([tiles, channels,
// 16]): each tile's 16 sums per channel in four registers.
template <int R>
void TileMajorOutputs(const WinogradConvArgs& a, const Tiles& t, uint32_t channels, uint32_t oc) {
  const float* u = a.transformed + static_cast<size_t>(oc) * channels * 16;
  const size_t u_step = static_cast<size_t>(channels) * 16;
  for (uint32_t tile = 0; tile < t.count; ++tile) {
    const float* v = a.work + static_cast<size_t>(tile) * channels * 16;
    __m128 acc[R][4];
    for (int q = 0; q < R; ++q) {
      for (int r = 0; r < 4; ++r) acc[q][r] = _mm_setzero_ps();
    }
    for (uint32_t c = 0; c < channels; ++c) {
      for (int r = 0; r < 4; ++r) {
        const __m128 x = _mm_loadu_ps(v + c * 16 + 4 * r);
        for (int q = 0; q < R; ++q)
          acc[q][r] = _mm_add_ps(acc[q][r], _mm_mul_ps(_mm_loadu_ps(u + q * u_step + c * 16 + 4 * r), x));
      }
    }
    for (int q = 0; q < R; ++q) {
      float m[16];
      for (int r = 0; r < 4; ++r) _mm_storeu_ps(m + 4 * r, acc[q][r]);
      AddTileAt(a, t, tile, m, a.output + (oc + q) * t.out_plane);
    }
  }
}

}  // namespace

uint32_t WinogradTilesSseWork(const Conv2dParam& p, uint32_t tiles) {
  return p.in_channels_per_group * tiles * 16;
}

// Tile-major: the transformed tiles of a group as [tiles, channels, 16]; each output value's tile sums its
// channels in four registers.
void WinogradTilesSse(const WinogradConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const Tiles t = TilesOf(a);
  const uint32_t channels = p.in_channels_per_group, outputs = p.out_channels_per_group;
  for (uint32_t grp = 0; grp < p.groups; ++grp) {
    const float* in = a.input + static_cast<size_t>(grp) * channels * t.in_plane;
    for (uint32_t c = 0; c < channels; ++c) {
      for (uint32_t tile = 0; tile < t.count; ++tile) {
        const uint32_t ty = tile / t.across, tx = tile % t.across;
        __m128 v[4];
        InputTile(in + c * t.in_plane + 2 * ty * t.in_w + 2 * tx, t.in_w, v);
        float* dst = a.work + (static_cast<size_t>(tile) * channels + c) * 16;
        for (int r = 0; r < 4; ++r) _mm_storeu_ps(dst + 4 * r, v[r]);
      }
    }
    // Two output channels a pass (one load of a transformed tile feeds both), then the odd one.
    uint32_t o = 0;
    for (; o + 2 <= outputs; o += 2) TileMajorOutputs<2>(a, t, channels, grp * outputs + o);
    if (o < outputs) TileMajorOutputs<1>(a, t, channels, grp * outputs + o);
  }
}

uint32_t WinogradMatricesSseWork(const Conv2dParam& p, uint32_t) {
  return 16 * kChunk * (p.in_channels_per_group + p.out_channels_per_group);
}

// Matrix form over chunks of tiles: V[16][channels][chunk], then M[16][outputs][chunk] = U[16] V[16] with
// four outputs by eight tiles in registers, then the output transform of each tile.
void WinogradMatricesSse(const WinogradConvArgs& a) {
  const Conv2dParam& p = *a.param;
  const Tiles t = TilesOf(a);
  const uint32_t channels = p.in_channels_per_group, outputs = p.out_channels_per_group;
  float* v_all = a.work;
  float* m_all = a.work + static_cast<size_t>(16) * kChunk * channels;
  for (uint32_t grp = 0; grp < p.groups; ++grp) {
    const float* in = a.input + static_cast<size_t>(grp) * channels * t.in_plane;
    const float* u_group = a.transformed + static_cast<size_t>(grp) * outputs * channels * 16;
    for (uint32_t first = 0; first < t.count; first += kChunk) {
      const uint32_t n = std::min(kChunk, t.count - first), n8 = (n + 7) & ~7u;
      // Four tiles at a time: transposing their rows puts one element of the four tiles in a register.
      for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t k = 0; k < n8; k += 4) {
          __m128 rows[4][4];
          for (uint32_t q = 0; q < 4; ++q) {
            const uint32_t tile = first + k + q;
            if (k + q < n) {
              const uint32_t ty = tile / t.across, tx = tile % t.across;
              InputTile(in + c * t.in_plane + 2 * ty * t.in_w + 2 * tx, t.in_w, rows[q]);
            } else {
              for (int r = 0; r < 4; ++r) rows[q][r] = _mm_setzero_ps();
            }
          }
          for (int r = 0; r < 4; ++r) {
            __m128 e0 = rows[0][r], e1 = rows[1][r], e2 = rows[2][r], e3 = rows[3][r];
            _MM_TRANSPOSE4_PS(e0, e1, e2, e3);
            float* dst = v_all + (static_cast<size_t>(4 * r) * channels + c) * kChunk + k;
            const size_t step = static_cast<size_t>(channels) * kChunk;
            _mm_storeu_ps(dst, e0);
            _mm_storeu_ps(dst + step, e1);
            _mm_storeu_ps(dst + 2 * step, e2);
            _mm_storeu_ps(dst + 3 * step, e3);
          }
        }
      }
      for (int e = 0; e < 16; ++e) {
        const float* ve = v_all + static_cast<size_t>(e) * channels * kChunk;
        float* me = m_all + static_cast<size_t>(e) * outputs * kChunk;
        uint32_t o = 0;
        for (; o + 4 <= outputs; o += 4) {
          for (uint32_t k = 0; k < n8; k += 8) {
            __m128 acc[4][2];
            for (int r = 0; r < 4; ++r) acc[r][0] = acc[r][1] = _mm_setzero_ps();
            for (uint32_t c = 0; c < channels; ++c) {
              const __m128 x0 = _mm_loadu_ps(ve + c * kChunk + k), x1 = _mm_loadu_ps(ve + c * kChunk + k + 4);
              for (int r = 0; r < 4; ++r) {
                const __m128 w = _mm_set1_ps(u_group[((o + r) * channels + c) * 16 + e]);
                acc[r][0] = _mm_add_ps(acc[r][0], _mm_mul_ps(w, x0));
                acc[r][1] = _mm_add_ps(acc[r][1], _mm_mul_ps(w, x1));
              }
            }
            for (int r = 0; r < 4; ++r) {
              _mm_storeu_ps(me + (o + r) * kChunk + k, acc[r][0]);
              _mm_storeu_ps(me + (o + r) * kChunk + k + 4, acc[r][1]);
            }
          }
        }
        for (; o < outputs; ++o) {
          for (uint32_t k = 0; k < n8; k += 4) {
            __m128 acc = _mm_setzero_ps();
            for (uint32_t c = 0; c < channels; ++c) {
              acc = _mm_add_ps(acc, _mm_mul_ps(_mm_set1_ps(u_group[(o * channels + c) * 16 + e]),
                                               _mm_loadu_ps(ve + c * kChunk + k)));
            }
            _mm_storeu_ps(me + o * kChunk + k, acc);
          }
        }
      }
      // The output transform of four tiles at a time, one register per element.
      for (uint32_t o = 0; o < outputs; ++o) {
        float* out = a.output + (grp * outputs + o) * t.out_plane;
        for (uint32_t k = 0; k < n; k += 4) {
          __m128 m[16];
          for (int e = 0; e < 16; ++e)
            m[e] = _mm_loadu_ps(m_all + (static_cast<size_t>(e) * outputs + o) * kChunk + k);
          __m128 s0[4], s1[4];
          for (int j = 0; j < 4; ++j) {
            s0[j] = _mm_add_ps(_mm_add_ps(m[j], m[4 + j]), m[8 + j]);
            s1[j] = _mm_sub_ps(_mm_sub_ps(m[4 + j], m[8 + j]), m[12 + j]);
          }
          float y[4][4];
          _mm_storeu_ps(y[0], _mm_add_ps(_mm_add_ps(s0[0], s0[1]), s0[2]));
          _mm_storeu_ps(y[1], _mm_sub_ps(_mm_sub_ps(s0[1], s0[2]), s0[3]));
          _mm_storeu_ps(y[2], _mm_add_ps(_mm_add_ps(s1[0], s1[1]), s1[2]));
          _mm_storeu_ps(y[3], _mm_sub_ps(_mm_sub_ps(s1[1], s1[2]), s1[3]));
          for (uint32_t q = 0; q < 4 && k + q < n; ++q) {
            const uint32_t tile = first + k + q, ty = tile / t.across, tx = tile % t.across;
            float* dst = out + static_cast<size_t>(2 * ty) * a.out_w + 2 * tx;
            const bool second_row = 2 * ty + 1 < a.out_h, second_col = 2 * tx + 1 < a.out_w;
            dst[0] += y[0][q];
            if (second_col) dst[1] += y[1][q];
            if (second_row) {
              dst[a.out_w] += y[2][q];
              if (second_col) dst[a.out_w + 1] += y[3][q];
            }
          }
        }
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
