// The loop nest of the 3x3 transposed convolution cores (cores.h), over a vector type V of the instruction
// set that includes it (V::kLanes floats; Load, Store, Add, Mul, Set1, Zero). Output channels go in blocks of
// kLanes, one accumulator per block and output pixel; the taps that land on a pixel are found once per row
// and once per column, and each is added in the reference's order (input channel, then row, then column), the
// bias last; an input value is broadcast once for up to four blocks. The weights are [blocks, in, 3, 3,
// kLanes], the bias padded to whole blocks.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/convtranspose/cores.h"
#include "zelva/src/kernel/family/convtranspose/reference.h"

namespace zelva {
namespace kernel {
namespace convtranspose_tile {

struct Taps {
  uint32_t count = 0;
  uint32_t k[3], i[3];
};

inline Taps Landing(uint32_t o, int32_t pad, uint32_t stride, uint32_t size) {
  Taps t;
  for (uint32_t k = 0; k < 3; ++k) {
    uint32_t i;
    if (TapLands(static_cast<int32_t>(o), pad, k, 1, stride, size, &i)) {
      t.k[t.count] = k;
      t.i[t.count] = i;
      ++t.count;
    }
  }
  return t;
}

// One output pixel's blocks b .. b + NB - 1: NB accumulators, each input value broadcast once for all of
// them.
template <class V, bool kBlockedIn, bool kBlockedOut, uint32_t NB>
void Pixel(const ConvTransposeArgs& a, const Taps& rows, const Taps& cols, uint32_t oy, uint32_t ox,
           uint32_t b) {
  constexpr uint32_t L = V::kLanes;
  const size_t in_plane = static_cast<size_t>(a.in_h) * a.in_w,
               out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  const size_t block_weights = static_cast<size_t>(a.in_channels) * 9 * L;
  const float* wb = a.weight + b * block_weights;
  typename V::T acc[NB];
  for (uint32_t j = 0; j < NB; ++j) acc[j] = V::Zero();
  for (uint32_t c = 0; c < a.in_channels; ++c) {
    const float* in = kBlockedIn ? a.input + (c / L) * in_plane * L + c % L : a.input + c * in_plane;
    for (uint32_t r = 0; r < rows.count; ++r) {
      for (uint32_t q = 0; q < cols.count; ++q) {
        const size_t at = static_cast<size_t>(rows.i[r]) * a.in_w + cols.i[q];
        const typename V::T x = V::Set(in[kBlockedIn ? at * L : at]);
        const float* w = wb + ((c * 3 + rows.k[r]) * 3 + cols.k[q]) * L;
        for (uint32_t j = 0; j < NB; ++j) acc[j] = V::Add(acc[j], V::Mul(x, V::Load(w + j * block_weights)));
      }
    }
  }
  const size_t pixel = static_cast<size_t>(oy) * a.out_w + ox;
  for (uint32_t j = 0; j < NB; ++j) {
    if (a.bias != nullptr) acc[j] = V::Add(acc[j], V::Load(a.bias + (b + j) * L));
    if (kBlockedOut) {
      V::Store(a.output + ((b + j) * out_plane + pixel) * L, acc[j]);
    } else {
      float lanes[L];
      V::Store(lanes, acc[j]);
      const uint32_t first = (b + j) * L, valid = std::min(L, a.out_channels - first);
      for (uint32_t l = 0; l < valid; ++l) a.output[(first + l) * out_plane + pixel] = lanes[l];
    }
  }
}

// kBlockedIn: the input is [in / kLanes, H, W, kLanes], else [in, H, W]; kBlockedOut likewise for the output.
// Blocks go four at a time, the rest one at a time.
template <class V, bool kBlockedIn, bool kBlockedOut>
void Gather3x3(const ConvTransposeArgs& a) {
  constexpr uint32_t L = V::kLanes;
  const uint32_t blocks = (a.out_channels + L - 1) / L;
  for (uint32_t oy = 0; oy < a.out_h; ++oy) {
    const Taps rows = Landing(oy, a.padding_t, a.stride_y, a.in_h);
    for (uint32_t ox = 0; ox < a.out_w; ++ox) {
      const Taps cols = Landing(ox, a.padding_l, a.stride_x, a.in_w);
      uint32_t b = 0;
      for (; b + 4 <= blocks; b += 4) Pixel<V, kBlockedIn, kBlockedOut, 4>(a, rows, cols, oy, ox, b);
      for (; b < blocks; ++b) Pixel<V, kBlockedIn, kBlockedOut, 1>(a, rows, cols, oy, ox, b);
    }
  }
}

}  // namespace convtranspose_tile
}  // namespace kernel
}  // namespace zelva
