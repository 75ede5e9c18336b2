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
    for (uint32_t o = 0; o < outputs; ++o) {
      const uint32_t oc = grp * outputs + o;
      const float* u = a.transformed + static_cast<size_t>(oc) * channels * 16;
      float* out = a.output + oc * t.out_plane;
      for (uint32_t tile = 0; tile < t.count; ++tile) {
        const float* v = a.work + static_cast<size_t>(tile) * channels * 16;
        __m128 acc[4] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
        for (uint32_t c = 0; c < channels; ++c) {
          for (int r = 0; r < 4; ++r) {
            acc[r] = _mm_add_ps(
                acc[r], _mm_mul_ps(_mm_loadu_ps(u + c * 16 + 4 * r), _mm_loadu_ps(v + c * 16 + 4 * r)));
          }
        }
        float m[16];
        for (int r = 0; r < 4; ++r) _mm_storeu_ps(m + 4 * r, acc[r]);
        AddTileAt(a, t, tile, m, out);
      }
    }
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
      for (uint32_t c = 0; c < channels; ++c) {
        for (uint32_t k = 0; k < n8; ++k) {
          alignas(16) float v[16] = {};
          if (k < n) {
            const uint32_t tile = first + k, ty = tile / t.across, tx = tile % t.across;
            __m128 rows[4];
            InputTile(in + c * t.in_plane + 2 * ty * t.in_w + 2 * tx, t.in_w, rows);
            for (int r = 0; r < 4; ++r) _mm_store_ps(v + 4 * r, rows[r]);
          }
          for (int e = 0; e < 16; ++e) v_all[(static_cast<size_t>(e) * channels + c) * kChunk + k] = v[e];
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
      for (uint32_t o = 0; o < outputs; ++o) {
        float* out = a.output + (grp * outputs + o) * t.out_plane;
        for (uint32_t k = 0; k < n; ++k) {
          float m[16];
          for (int e = 0; e < 16; ++e) m[e] = m_all[(static_cast<size_t>(e) * outputs + o) * kChunk + k];
          AddTileAt(a, t, first + k, m, out);
        }
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
