// Blocked 2D convolution in 128-bit vectors, for blocks of 4 (C4HW4) and of 8 (C8HW8, two halves a block).
// A tile holds OB output blocks by T output pixels of one row in registers, starting from the bias; for each
// input channel and tap it broadcasts the T input values once and multiplies them by the weight vectors of
// the OB blocks, a separate multiply and add each. The sums run in the reference's order (input channel,
// kernel row, kernel column), so the results agree with it bit for bit.
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
#pragma GCC unroll 8
    for (int c = 0; c < B; ++c) {
      for (int ky = 0; ky < KH; ++ky) {
        for (int kx = 0; kx < KW; ++kx) {
          const float* xp = x + ky * g.in_row + kx * B + c;
          const float* wp = w + ((ky * KW + kx) * B + c) * B;
          __m128 xv[T];
          for (int t = 0; t < T; ++t) xv[t] = _mm_set1_ps(xp[t * SW * B]);
          for (int o = 0; o < OB; ++o) {
            for (int v = 0; v < V; ++v) {
              const __m128 wv = _mm_loadu_ps(wp + o * g.w_out + v * 4);
              for (int t = 0; t < T; ++t) acc[o][v][t] = _mm_add_ps(acc[o][v][t], _mm_mul_ps(xv[t], wv));
            }
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

// Output blocks [ob, ob + OB): every row in tiles of T pixels, then single pixels.
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
    for (; ox < width; ++ox) {
      Tile<B, KH, KW, SW, OB, 1>(x + static_cast<size_t>(ox) * SW * B, w, g, bias, out + ox * B);
    }
  }
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
  // A 1x1 stride 1 kernel reads the plane as one row.
  constexpr bool kFlat = KH == 1 && KW == 1 && SH == 1 && SW == 1;
  const uint32_t rows = kFlat ? 1 : a.out_h;
  const uint32_t width = kFlat ? a.out_h * a.out_w : a.out_w;
  uint32_t ob = 0;
  for (; ob + OB <= a.out_blocks; ob += OB) Blocks<B, KH, KW, SH, SW, OB, T>(a, g, ob, rows, width);
  for (; ob < a.out_blocks; ++ob) Blocks<B, KH, KW, SH, SW, 1, T>(a, g, ob, rows, width);
}

template void BlockedConvSse<4, 1, 1, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 1, 1, 1, 2, 4>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 1, 2, 2, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 1, 3, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 1, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 2, 4>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 1, 1, 4, 2>(const BlockedConvArgs&);
template void BlockedConvSse<4, 3, 3, 2, 2, 1, 8>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 1, 1, 1, 1, 4>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 1, 2, 2, 1, 4>(const BlockedConvArgs&);
template void BlockedConvSse<8, 1, 3, 1, 1, 1, 4>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 1, 1, 1, 1, 4>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 3, 1, 1, 1, 4>(const BlockedConvArgs&);
template void BlockedConvSse<8, 3, 3, 2, 2, 1, 4>(const BlockedConvArgs&);

}  // namespace kernel
}  // namespace zelva
