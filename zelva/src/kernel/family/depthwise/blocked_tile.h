// The loop nest of the blocked depthwise cores, written once over a vector type and instantiated by each
// instruction set's core file (cpu/sse/depthwise, cpu/avx/depthwise) with its own vector operations; this
// header holds no instruction. V provides kLanes, the vector type T and static Load, Store, Add, Mul and
// Zero.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/depthwise/cores.h"

namespace zelva {
namespace kernel {
namespace depthwise_tile {

// The RR x CC output pixels from (y, x) of one block: each accumulator starts from the bias and adds the
// K x K taps in (ky, kx) order.
template <class V, int K, int S, int RR, int CC>
inline void Tile(const float* in, size_t row, const float* w, typename V::T start, float* out, size_t out_row,
                 uint32_t y, uint32_t x) {
  typename V::T acc[RR][CC];
  for (int r = 0; r < RR; ++r)
    for (int c = 0; c < CC; ++c) acc[r][c] = start;
  for (int ky = 0; ky < K; ++ky) {
    for (int kx = 0; kx < K; ++kx) {
      const typename V::T tap = V::Load(w + (ky * K + kx) * V::kLanes);
      for (int r = 0; r < RR; ++r) {
        const float* src =
            in + (static_cast<size_t>(y + r) * S + ky) * row + (static_cast<size_t>(x) * S + kx) * V::kLanes;
        for (int c = 0; c < CC; ++c)
          acc[r][c] = V::Add(acc[r][c], V::Mul(V::Load(src + c * S * V::kLanes), tap));
      }
    }
  }
  for (int r = 0; r < RR; ++r)
    for (int c = 0; c < CC; ++c)
      V::Store(out + static_cast<size_t>(y + r) * out_row + (static_cast<size_t>(x) + c) * V::kLanes,
               acc[r][c]);
}

// RR output rows from y: tiles of C columns, then single columns.
template <class V, int K, int S, int RR, int C>
inline void Rows(const float* in, size_t row, const float* w, typename V::T start, float* out, size_t out_row,
                 uint32_t out_w, uint32_t y) {
  uint32_t x = 0;
  for (; x + C <= out_w; x += C) Tile<V, K, S, RR, C>(in, row, w, start, out, out_row, y, x);
  for (; x < out_w; ++x) Tile<V, K, S, RR, 1>(in, row, w, start, out, out_row, y, x);
}

template <class V, int K, int S, int R, int C>
void Blocked(const BlockedDepthwiseArgs& a) {
  const size_t row = static_cast<size_t>(a.in_w) * V::kLanes,
               out_row = static_cast<size_t>(a.out_w) * V::kLanes;
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* in = a.input + static_cast<size_t>(b) * a.in_h * row;
    float* out = a.output + static_cast<size_t>(b) * a.out_h * out_row;
    const float* w = a.weight + static_cast<size_t>(b) * K * K * V::kLanes;
    const typename V::T start =
        a.bias != nullptr ? V::Load(a.bias + static_cast<size_t>(b) * V::kLanes) : V::Zero();
    uint32_t y = 0;
    for (; y + R <= a.out_h; y += R) Rows<V, K, S, R, C>(in, row, w, start, out, out_row, a.out_w, y);
    for (; y < a.out_h; ++y) Rows<V, K, S, 1, C>(in, row, w, start, out, out_row, a.out_w, y);
  }
}

}  // namespace depthwise_tile
}  // namespace kernel
}  // namespace zelva
