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

// One output row of a two-pass average: the KX column sums of each output pixel from `work`, left to right,
// divided; four pixels a round, then one at a time.
template <class V, int KX>
inline void RowFromColumns(const float* work, float* out, uint32_t out_w, float rows, const float* cols) {
  constexpr int kTile = 4;
  uint32_t x = 0;
  for (; x + kTile <= out_w; x += kTile) {
    typename V::T acc[kTile];
    for (int c = 0; c < kTile; ++c) acc[c] = V::Load(work + (static_cast<size_t>(x) + c) * V::kLanes);
    for (int kx = 1; kx < KX; ++kx)
      for (int c = 0; c < kTile; ++c)
        acc[c] = V::Add(acc[c], V::Load(work + (static_cast<size_t>(x) + c + kx) * V::kLanes));
    for (int c = 0; c < kTile; ++c)
      V::Store(out + (static_cast<size_t>(x) + c) * V::kLanes, V::Div(acc[c], V::Set(rows * cols[x + c])));
  }
  for (; x < out_w; ++x) {
    typename V::T acc = V::Load(work + static_cast<size_t>(x) * V::kLanes);
    for (int kx = 1; kx < KX; ++kx)
      acc = V::Add(acc, V::Load(work + (static_cast<size_t>(x) + kx) * V::kLanes));
    V::Store(out + static_cast<size_t>(x) * V::kLanes, V::Div(acc, V::Set(rows * cols[x])));
  }
}

// Stride 1 averages in two passes, two output rows a round: the sums of the KY - 1 input rows the two share
// (top to bottom), plus the first row's top row and the second row's bottom row, give the column sums of
// both (into the two rows of `work`); then each output pixel adds its KX column sums left to right and is
// divided. About (KY + 1) / 2 + KX additions an output where the direct window takes KY x KX; the sum is
// the same in another order. A last odd output row sums its own KY rows.
template <class V, int KY, int KX>
void BlockedSeparable(const PoolArgs& a) {
  static_assert(KY >= 2, "two output rows share KY - 1 input rows");
  const size_t row = static_cast<size_t>(a.in_w) * V::kLanes;
  float* const upper = a.work;
  float* const lower = a.work + row;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * row;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w * V::kLanes;
    const size_t out_row = static_cast<size_t>(a.out_w) * V::kLanes;
    uint32_t oy = 0;
    for (; oy + 2 <= a.out_h; oy += 2) {
      const float* in = plane + static_cast<size_t>(oy) * row;
      for (size_t x = 0; x < row; x += V::kLanes) {
        typename V::T shared = V::Load(in + row + x);
        for (int ky = 2; ky < KY; ++ky) shared = V::Add(shared, V::Load(in + ky * row + x));
        V::Store(upper + x, V::Add(V::Load(in + x), shared));
        V::Store(lower + x, V::Add(shared, V::Load(in + KY * row + x)));
      }
      RowFromColumns<V, KX>(upper, out_plane + oy * out_row, a.out_w, a.row_count[oy], a.col_count);
      RowFromColumns<V, KX>(lower, out_plane + (oy + 1) * out_row, a.out_w, a.row_count[oy + 1], a.col_count);
    }
    if (oy < a.out_h) {
      const float* in = plane + static_cast<size_t>(oy) * row;
      for (size_t x = 0; x < row; x += V::kLanes) {
        typename V::T acc = V::Load(in + x);
        for (int ky = 1; ky < KY; ++ky) acc = V::Add(acc, V::Load(in + ky * row + x));
        V::Store(upper + x, acc);
      }
      RowFromColumns<V, KX>(upper, out_plane + oy * out_row, a.out_w, a.row_count[oy], a.col_count);
    }
  }
}

}  // namespace pool_tile
}  // namespace kernel
}  // namespace zelva
