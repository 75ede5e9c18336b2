// The loop nest of the 3x3 transposed convolution cores (cores.h), over a vector type V of the instruction
// set that includes it (V::kLanes floats; Load, Store, Add, Mul, Set1, Zero). Output channels go in blocks of
// kLanes, one accumulator per block and output pixel; the taps that land on a pixel are found once per row
// and once per column, and each is added in the reference's order (input channel, then row, then column), the
// bias last. The weights are [blocks, in, 3, 3, kLanes], the bias padded to whole blocks.
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

// kBlockedIn: the input is [in / kLanes, H, W, kLanes], else [in, H, W]; kBlockedOut likewise for the output.
template <class V, bool kBlockedIn, bool kBlockedOut>
void Gather3x3(const ConvTransposeArgs& a) {
  constexpr uint32_t L = V::kLanes;
  const uint32_t blocks = (a.out_channels + L - 1) / L;
  const size_t in_plane = static_cast<size_t>(a.in_h) * a.in_w,
               out_plane = static_cast<size_t>(a.out_h) * a.out_w;
  auto input_at = [&](uint32_t c, uint32_t y, uint32_t x) {
    if (kBlockedIn) return a.input[((c / L) * in_plane + static_cast<size_t>(y) * a.in_w + x) * L + c % L];
    return a.input[c * in_plane + static_cast<size_t>(y) * a.in_w + x];
  };
  for (uint32_t oy = 0; oy < a.out_h; ++oy) {
    const Taps rows = Landing(oy, a.padding_t, a.stride_y, a.in_h);
    for (uint32_t ox = 0; ox < a.out_w; ++ox) {
      const Taps cols = Landing(ox, a.padding_l, a.stride_x, a.in_w);
      for (uint32_t b = 0; b < blocks; ++b) {
        typename V::T acc = V::Zero();
        const float* wb = a.weight + static_cast<size_t>(b) * a.in_channels * 9 * L;
        for (uint32_t c = 0; c < a.in_channels; ++c) {
          for (uint32_t r = 0; r < rows.count; ++r) {
            for (uint32_t q = 0; q < cols.count; ++q) {
              const typename V::T x = V::Set1(input_at(c, rows.i[r], cols.i[q]));
              acc = V::Add(acc, V::Mul(x, V::Load(wb + ((c * 3 + rows.k[r]) * 3 + cols.k[q]) * L)));
            }
          }
        }
        if (a.bias != nullptr) acc = V::Add(acc, V::Load(a.bias + b * L));
        const size_t pixel = static_cast<size_t>(oy) * a.out_w + ox;
        if (kBlockedOut) {
          V::Store(a.output + (b * out_plane + pixel) * L, acc);
        } else {
          float lanes[L];
          V::Store(lanes, acc);
          const uint32_t valid = std::min(L, a.out_channels - b * L);
          for (uint32_t l = 0; l < valid; ++l) a.output[(b * L + l) * out_plane + pixel] = lanes[l];
        }
      }
    }
  }
}

}  // namespace convtranspose_tile
}  // namespace kernel
}  // namespace zelva
