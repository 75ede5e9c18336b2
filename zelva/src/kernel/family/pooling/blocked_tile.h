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
    if constexpr (!kMax) acc[c] = V::Div(acc[c], V::Set1(rows * cols[x + c]));
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

// Stride 1 averages, window by window in two passes: per output row, the column sums of its KY input rows
// (each column top to bottom) into `work`, then per output pixel the KX column sums left to right, divided.
// KY + KX additions an output where the direct loop takes KY x KX; the sum is the same but for rounding.
template <class V, int KY, int KX>
void BlockedSeparable(const PoolArgs& a) {
  constexpr int kTile = 4;
  const size_t row = static_cast<size_t>(a.in_w) * V::kLanes;
  float* const work = a.work;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* plane = a.input + static_cast<size_t>(p) * a.in_h * row;
    float* out_plane = a.output + static_cast<size_t>(p) * a.out_h * a.out_w * V::kLanes;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* in = plane + static_cast<size_t>(oy) * row;
      for (size_t x = 0; x < row; x += V::kLanes) {
        typename V::T acc = V::Load(in + x);
        for (int ky = 1; ky < KY; ++ky) acc = V::Add(acc, V::Load(in + ky * row + x));
        V::Store(work + x, acc);
      }
      float* out = out_plane + static_cast<size_t>(oy) * a.out_w * V::kLanes;
      const float rows = a.row_count[oy];
      uint32_t x = 0;
      for (; x + kTile <= a.out_w; x += kTile) {
        typename V::T acc[kTile];
        for (int c = 0; c < kTile; ++c) acc[c] = V::Load(work + (static_cast<size_t>(x) + c) * V::kLanes);
        for (int kx = 1; kx < KX; ++kx)
          for (int c = 0; c < kTile; ++c)
            acc[c] = V::Add(acc[c], V::Load(work + (static_cast<size_t>(x) + c + kx) * V::kLanes));
        for (int c = 0; c < kTile; ++c)
          V::Store(out + (static_cast<size_t>(x) + c) * V::kLanes,
                   V::Div(acc[c], V::Set1(rows * a.col_count[x + c])));
      }
      for (; x < a.out_w; ++x) {
        typename V::T acc = V::Load(work + static_cast<size_t>(x) * V::kLanes);
        for (int kx = 1; kx < KX; ++kx)
          acc = V::Add(acc, V::Load(work + (static_cast<size_t>(x) + kx) * V::kLanes));
        V::Store(out + static_cast<size_t>(x) * V::kLanes, V::Div(acc, V::Set1(rows * a.col_count[x])));
      }
    }
  }
}

}  // namespace pool_tile
}  // namespace kernel
}  // namespace zelva
