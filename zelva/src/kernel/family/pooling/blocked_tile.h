// The loop nest of the blocked pooling cores (one pixel of a channel block a vector), written once over a
// vector type and instantiated by each instruction set's core file (cpu/sse/pooling, cpu/avx/pooling) with
// its own operations; this header holds no instruction. V provides kLanes, the vector type T and static
// Load, Store, Add, Max, Div, Set1 and Zero.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/pooling/cores.h"

namespace zelva {
namespace kernel {
namespace pool_tile {

// CC output pixels from column x of one output row: one accumulator each, the taps in (ky, kx) order.
template <class V, int KY, int KX, int SY, int SX, int CC, bool kMax>
inline void Tile(const float* in, size_t row, float* out, uint32_t x, float rows, const float* cols) {
  typename V::T acc[CC];
  for (int c = 0; c < CC; ++c) {
    if constexpr (kMax) {
      acc[c] = V::Load(in + (static_cast<size_t>(x) + c) * SX * V::kLanes);
    } else {
      acc[c] = V::Zero();
    }
  }
  for (int ky = 0; ky < KY; ++ky) {
    const float* src = in + ky * row + static_cast<size_t>(x) * SX * V::kLanes;
    for (int kx = 0; kx < KX; ++kx) {
      for (int c = 0; c < CC; ++c) {
        if constexpr (kMax) {
          if (ky != 0 || kx != 0) acc[c] = V::Max(V::Load(src + (c * SX + kx) * V::kLanes), acc[c]);
        } else {
          acc[c] = V::Add(acc[c], V::Load(src + (c * SX + kx) * V::kLanes));
        }
      }
    }
  }
  for (int c = 0; c < CC; ++c) {
    if constexpr (!kMax) acc[c] = V::Div(acc[c], V::Set(rows * cols[x + c]));
    V::Store(out + (static_cast<size_t>(x) + c) * V::kLanes, acc[c]);
  }
}

template <class V, int KY, int KX, int SY, int SX, bool kMax>
void Blocked(const PoolArgs& a) {
  constexpr int kTile = 4;
  const size_t row = static_cast<size_t>(a.in_w) * V::kLanes;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * row;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w * V::kLanes;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* in = plane + static_cast<size_t>(oy) * SY * row;
      float* out = out_plane + static_cast<size_t>(oy) * a.out_w * V::kLanes;
      const float rows = kMax ? 0.0f : a.row_count[oy];
      uint32_t x = 0;
      for (; x + kTile <= a.out_w; x += kTile)
        Tile<V, KY, KX, SY, SX, kTile, kMax>(in, row, out, x, rows, a.col_count);
      for (; x < a.out_w; ++x) Tile<V, KY, KX, SY, SX, 1, kMax>(in, row, out, x, rows, a.col_count);
    }
  }
}

// The reciprocals of the divisors of every output, [out_h, out_w]: the two-pass averages multiply by them
// (one division per output position and call instead of one per output and plane).
inline void Reciprocals(const PoolArgs& a, float* recip) {
  for (uint32_t oy = 0; oy < a.out_h; ++oy)
    for (uint32_t ox = 0; ox < a.out_w; ++ox)
      recip[static_cast<size_t>(oy) * a.out_w + ox] = 1.0f / (a.row_count[oy] * a.col_count[ox]);
}

// The column sums of a band of n <= KY consecutive output rows of a stride 1 window, over `count` floats
// (a whole number of V's lanes) of rows `row` floats apart, into rows 0 .. n - 1 of `sums` (`sums_row` floats
// apart).
// The band's windows all hold input row KY - 1: the suffix sums S_i of input rows i .. KY - 1 (added from the
// bottom up) and the prefix sums P_i of rows KY .. KY + i - 1 (added from the top down) give output row i as
// S_i + P_i. About three additions a row whatever KY, each sum exact but for KY - 1 roundings. kFull: n is KY
// (the loops unroll whole).
template <class V, int KY, bool kFull>
inline void ColumnSums(const float* in, size_t row, size_t count, uint32_t n, float* sums, size_t sums_row) {
  for (size_t x = 0; x < count; x += V::kLanes) {
    typename V::T s[KY];
    s[KY - 1] = V::Load(in + (KY - 1) * row + x);
    for (int i = KY - 2; i >= 0; --i) s[i] = V::Add(V::Load(in + i * row + x), s[i + 1]);
    V::Store(sums + x, s[0]);
    typename V::T p = V::Zero();
    for (int i = 1; i < KY; ++i) {
      if (!kFull && static_cast<uint32_t>(i) >= n) break;
      const typename V::T next = V::Load(in + (KY + i - 1) * row + x);
      p = i == 1 ? next : V::Add(p, next);
      V::Store(sums + i * sums_row + x, V::Add(s[i], p));
    }
  }
}

// The outputs x0 .. x0 + n - 1 (n <= KX) of a row of a blocked two-pass average from its column sums (one
// vector a pixel): the same split along the row, then the product with the reciprocal of each divisor.
template <class V, int KX, bool kFull>
inline void BlockedBlock(const float* c, float* o, uint32_t n, const float* recip) {
  constexpr size_t kL = V::kLanes;
  typename V::T s[KX];
  s[KX - 1] = V::Load(c + (KX - 1) * kL);
  for (int i = KX - 2; i >= 0; --i) s[i] = V::Add(V::Load(c + i * kL), s[i + 1]);
  V::Store(o, V::Mul(s[0], V::Set(recip[0])));
  typename V::T p = V::Zero();
  for (int i = 1; i < KX; ++i) {
    if (!kFull && static_cast<uint32_t>(i) >= n) break;
    const typename V::T next = V::Load(c + (KX + i - 1) * kL);
    p = i == 1 ? next : V::Add(p, next);
    V::Store(o + i * kL, V::Mul(V::Add(s[i], p), V::Set(recip[i])));
  }
}

// Outputs from .. to - 1 of a row of a blocked two-pass average, in blocks of KX outputs from `from`.
template <class V, int KX>
inline void BlockedRow(const float* sums, float* out, uint32_t from, uint32_t to, const float* recip) {
  constexpr size_t kL = V::kLanes;
  uint32_t x0 = from;
  for (; x0 + KX <= to; x0 += KX) BlockedBlock<V, KX, true>(sums + x0 * kL, out + x0 * kL, KX, recip + x0);
  if (x0 < to) BlockedBlock<V, KX, false>(sums + x0 * kL, out + x0 * kL, to - x0, recip + x0);
}

// Stride 1 averages in two passes, in strips of output columns, each from the top down in bands of KY
// output rows: the column sums of the band's part of the strip (ColumnSums, with the KX - 1 columns past the
// strip that its last windows reach), then each row along the same split (BlockedRow). A strip is the whole
// row where a band (its 2 KY - 1 input rows and KY rows of sums) fits 40 KiB (most of a 48 KiB first level
// data cache), else 32 outputs wide, so that the rows two bands share are still there for the second.
// About five additions and one multiplication an output where the direct window takes KY x KX additions and a
// division; the sum is the same in another order, and the product with the rounded reciprocal rounds once
// more than the division.
template <class V, int KY, int KX>
void BlockedSeparable(const PoolArgs& a) {
  static_assert(KY >= 2 && KX >= 2, "windows of two rows and two columns at least");
  constexpr size_t kL = V::kLanes;
  constexpr size_t kCached = 40 * 1024 / sizeof(float);
  const size_t row = static_cast<size_t>(a.in_w) * kL;
  const uint32_t strip = (3 * KY - 1) * row <= kCached || a.out_w < 32 ? a.out_w : 32;
  const size_t sums_row = (static_cast<size_t>(strip) + KX - 1) * kL;
  float* const sums = a.work;
  float* const recip = a.work + KY * row;
  Reciprocals(a, recip);
  const size_t out_row = static_cast<size_t>(a.out_w) * kL;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * row;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * out_row;
    for (uint32_t x0 = 0; x0 < a.out_w; x0 += strip) {
      const uint32_t w = a.out_w - x0 < strip ? a.out_w - x0 : strip;
      const size_t count = (static_cast<size_t>(w) + KX - 1) * kL;
      for (uint32_t oy = 0; oy < a.out_h; oy += KY) {
        const uint32_t n = a.out_h - oy < static_cast<uint32_t>(KY) ? a.out_h - oy : KY;
        const float* in = plane + static_cast<size_t>(oy) * row + x0 * kL;
        if (n == KY) {
          ColumnSums<V, KY, true>(in, row, count, n, sums, sums_row);
        } else {
          ColumnSums<V, KY, false>(in, row, count, n, sums, sums_row);
        }
        for (uint32_t i = 0; i < n; ++i)
          BlockedRow<V, KX>(sums + i * sums_row, out_plane + (oy + i) * out_row + x0 * kL, 0, w,
                            recip + static_cast<size_t>(oy + i) * a.out_w + x0);
      }
    }
  }
}

}  // namespace pool_tile
}  // namespace kernel
}  // namespace zelva
