// Blocked 2D convolution in 128-bit vectors, for blocks of 4 (C4HW4) and of 8 (C8HW8, two halves a block).
// A tile holds OB output blocks by T output pixels of one row in registers, starting from the bias; for each
// input channel and tap it loads the weight vectors of the OB blocks once and, pixel by pixel, broadcasts the
// input value against them, a separate multiply and add each. The sums run in the reference's order (input
// channel, kernel row, kernel column), so the results agree with it bit for bit.
#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/conv2d/cores.h"

namespace zelva {
namespace kernel {

namespace {

struct Geometry {
  size_t in_row;    // floats per input row
  size_t in_plane;  // floats per input block
  size_t w_block;   // weight floats per (output block, input block)
  size_t w_out;     // weight floats per output block
  size_t out_plane;
  uint32_t in_blocks;
};

// One tile: x at the tile's first input pixel (input block 0, top kernel row), w at output block 0 and input
// block 0 of the tile, bias at the tile's first channel or null, out at the tile's first output pixel.
template <int B, int KH, int KW, int SW, int OB, int T>
inline void Tile(const float* x, const float* w, const Geometry& g, const float* bias, float* out) {
  constexpr int V = B / 4;
  __m128 acc[OB][V][T];
  for (int o = 0; o < OB; ++o) {
    for (int v = 0; v < V; ++v) {
      const __m128 start = bias != nullptr ? _mm_loadu_ps(bias + o * B + v * 4) : _mm_setzero_ps();
      for (int t = 0; t < T; ++t) acc[o][v][t] = start;
    }
  }
  for (uint32_t cb = 0; cb < g.in_blocks; ++cb, x += g.in_plane, w += g.w_block) {
    // Not unrolled across channels: unrolled, the compiler hoists the broadcasts of every channel ahead and
    // spills them, which costs a quarter of the 1x1 throughput.
#pragma GCC unroll 1
    for (int c = 0; c < B; ++c) {
      for (int ky = 0; ky < KH; ++ky) {
        for (int kx = 0; kx < KW; ++kx) {
          const float* xp = x + ky * g.in_row + kx * B + c;
          const float* wp = w + ((ky * KW + kx) * B + c) * B;
          __m128 wv[OB][V];
          for (int o = 0; o < OB; ++o)
            for (int v = 0; v < V; ++v) wv[o][v] = _mm_loadu_ps(wp + o * g.w_out + v * 4);
          for (int t = 0; t < T; ++t) {
            const __m128 xv = _mm_set1_ps(xp[t * SW * B]);
            for (int o = 0; o < OB; ++o)
              for (int v = 0; v < V; ++v) acc[o][v][t] = _mm_add_ps(acc[o][v][t], _mm_mul_ps(xv, wv[o][v]));
          }
        }
      }
    }
  }
  for (int o = 0; o < OB; ++o) {
    for (int v = 0; v < V; ++v) {
      for (int t = 0; t < T; ++t) _mm_storeu_ps(out + o * g.out_plane + t * B + v * 4, acc[o][v][t]);
    }
  }
}

// Output blocks [ob, ob + OB): every row in tiles of T pixels, then of T / 2, then single pixels.
template <int B, int KH, int KW, int SH, int SW, int OB, int T>
void Blocks(const BlockedConvArgs& a, const Geometry& g, uint32_t ob, uint32_t rows, uint32_t width) {
  const float* w = a.weight + ob * g.w_out;
  const float* bias = a.bias != nullptr ? a.bias + static_cast<size_t>(ob) * B : nullptr;
  for (uint32_t oy = 0; oy < rows; ++oy) {
    const float* x = a.input + static_cast<size_t>(oy) * SH * g.in_row;
    float* out = a.output + ob * g.out_plane + static_cast<size_t>(oy) * width * B;
    uint32_t ox = 0;
    for (; ox + T <= width; ox += T) {
      Tile<B, KH, KW, SW, OB, T>(x + static_cast<size_t>(ox) * SW * B, w, g, bias, out + ox * B);
    }
    if constexpr (T > 1) {
      constexpr int kHalf = T / 2;
      for (; ox + kHalf <= width; ox += kHalf) {
        Tile<B, KH, KW, SW, OB, kHalf>(x + static_cast<size_t>(ox) * SW * B, w, g, bias, out + ox * B);
      }
      for (; ox < width; ++ox) {
        Tile<B, KH, KW, SW, OB, 1>(x + static_cast<size_t>(ox) * SW * B, w, g, bias, out + ox * B);
      }
    }
  }
}

// A 1x1 stride 1 kernel: the plane as one row, pixel tiles outermost, so that a tile's inputs stay in the
// first-level cache across all output blocks. Tiles of T from `px` on; returns where they stop.
template <int B, int OB, int T>
uint32_t FlatTiles(const BlockedConvArgs& a, const Geometry& g, uint32_t px, uint32_t n) {
  for (; px + T <= n; px += T) {
    const float* x = a.input + static_cast<size_t>(px) * B;
    float* out = a.output + static_cast<size_t>(px) * B;
    uint32_t ob = 0;
    for (; ob + OB <= a.out_blocks; ob += OB) {
      Tile<B, 1, 1, 1, OB, T>(x, a.weight + ob * g.w_out, g, a.bias != nullptr ? a.bias + ob * B : nullptr,
                              out + ob * g.out_plane);
    }
    for (; ob < a.out_blocks; ++ob) {
      Tile<B, 1, 1, 1, 1, T>(x, a.weight + ob * g.w_out, g, a.bias != nullptr ? a.bias + ob * B : nullptr,
                             out + ob * g.out_plane);
    }
  }
  return px;
}

}  // namespace

template <int B, int KH, int KW, int SH, int SW, int OB, int T>
void BlockedConvSse(const BlockedConvArgs& a) {
  Geometry g;
  g.in_row = static_cast<size_t>(a.in_w) * B;
  g.in_plane = g.in_row * a.in_h;
  g.w_block = static_cast<size_t>(KH) * KW * B * B;
  g.w_out = g.w_block * a.in_blocks;
  g.out_plane = static_cast<size_t>(a.out_h) * a.out_w * B;
  g.in_blocks = a.in_blocks;
  if constexpr (KH == 1 && KW == 1 && SH == 1 && SW == 1) {
    const uint32_t n = a.out_h * a.out_w;
    uint32_t px = FlatTiles<B, OB, T>(a, g, 0, n);
    if constexpr (T > 1) px = FlatTiles<B, OB, T / 2>(a, g, px, n);
    FlatTiles<B, OB, 1>(a, g, px, n);
    return;
  }
  const uint32_t rows = a.out_h, width = a.out_w;
  uint32_t ob = 0;
  for (; ob + OB <= a.out_blocks; ob += OB) Blocks<B, KH, KW, SH, SW, OB, T>(a, g, ob, rows, width);
  for (; ob < a.out_blocks; ++ob) Blocks<B, KH, KW, SH, SW, 1, T>(a, g, ob, rows, width);
}

template void BlockedConvSse<4, 1, 1, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 1, 1, 1, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 1, 2, 2, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 3, 1, 1, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 1, 1, 1, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 3, 4>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 2, 2, 2, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 1, 1, 1, 1, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 1, 2, 2, 1, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 3, 1, 1, 1, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 1, 1, 1, 1, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 3, 1, 1, 1, 6>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 3, 2, 2, 1, 6>(const BlockedConvArgs&);

}  // namespace kernel
}  // namespace zelva
