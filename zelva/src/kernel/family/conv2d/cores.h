// The cores of the 2D convolution family and what they see. A core is a free function on raw pointers; the
// planar frame (planar_frame.h) hands it a PlanarConvArgs. Declarations only: each core is defined in the
// folder of the instruction set it needs (cpu/sse/conv2d, cpu/sgemm/conv2d); the Fallback member's core is
// the family reference (reference.h).
#pragma once

#include <cstdint>

#include "zelva/inc/zelva/kernel/kernel_param.h"

namespace zelva {
namespace kernel {

// What a planar core sees. The input is [in_channels, in_h, in_w]; pad_* is the padding the core still has to
// apply itself (zero when the frame has padded the copy it passes). The output is [out_channels, out_h,
// out_w]. The weight is in GNCHW order; bias is null for a layer without bias.
struct PlanarConvArgs {
  const float* input;
  uint32_t in_h, in_w;
  uint32_t pad_l, pad_r, pad_t, pad_b;
  float* output;
  uint32_t out_h, out_w;
  const float* weight;
  const float* bias;
  const Conv2dParam* param;
};

// A planar core and how the frame feeds it.
struct PlanarConvCore {
  void (*run)(const PlanarConvArgs& args);
  bool pads_input;  // the frame hands the core a zero-padded copy; otherwise the core handles borders
};

// What a blocked core sees: one group of a convolution in a channel-blocked layout (block 4 or 8). The input
// is [in_blocks, in_h, in_w, block], already zero-padded by the frame; the output is [out_blocks, out_h,
// out_w, block]; the weight is [out_blocks, in_blocks, kernel_y, kernel_x, block (input), block (output)],
// the output channel innermost, and bias [out_blocks * block] or null. Every output value is its bias (or
// 0.0) plus the products taken in the order (input channel, kernel row, kernel column), one separate multiply
// and add each, so a direct core agrees with the family reference bit for bit.
struct BlockedConvArgs {
  const float* input;
  uint32_t in_blocks, in_h, in_w;
  float* output;
  uint32_t out_blocks, out_h, out_w;
  const float* weight;
  const float* bias;
};

// A blocked core and how the frame feeds it. A direct core is instantiated for one kernel size and stride
// (dilation 1). A column core is the 1x1 stride 1 core run on the column expansion of the padded input: each
// tap of each input block becomes an input block of its own, which the repacked weight order already
// matches; the sums then run in the order (input block, kernel row, kernel column, channel in block).
struct BlockedConvCore {
  void (*run)(const BlockedConvArgs& args);
  uint32_t block;  // 4 (C4HW4) or 8 (C8HW8)
  bool columns;    // any kernel, stride and dilation through the column expansion
};

// The blocked cores, one template per instruction set over kernel size (KH x KW), stride (SH x SW) and tile:
// OB output blocks side by side by T output pixels along the row, OB * T independent accumulators; a row's
// last pixels (tiles of T / 2, then single pixels) and the output blocks beyond a multiple of OB run in
// smaller tiles. Output blocks are the outer loop, so a group of OB blocks' weights stays cached over the
// rows; a 1x1 stride 1 kernel instead walks the whole plane as one row with pixel tiles outermost, its small
// weight set cached over the plane. The instantiations the lists use are made in the cores' files.
//   cpu/sse/conv2d/blocked_conv_sse.cc: block B = 4 or 8; a block of 8 is two 128-bit halves.
//   cpu/avx/conv2d/blocked_conv_avx.cc: block 8.
template <int B, int KH, int KW, int SH, int SW, int OB, int T>
void BlockedConvSse(const BlockedConvArgs& args);
template <int KH, int KW, int SH, int SW, int OB, int T>
void BlockedConvAvx(const BlockedConvArgs& args);

// clang-format off
inline constexpr BlockedConvCore kConvC4Sse1x1S1{&BlockedConvSse<4, 1, 1, 1, 1, 1, 8>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse1x1S1Wide{&BlockedConvSse<4, 1, 1, 1, 1, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse1x1S2{&BlockedConvSse<4, 1, 1, 2, 2, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse1x3S1{&BlockedConvSse<4, 1, 3, 1, 1, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse3x1S1{&BlockedConvSse<4, 3, 1, 1, 1, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse3x3S1{&BlockedConvSse<4, 3, 3, 1, 1, 1, 8>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse3x3S1Wide{&BlockedConvSse<4, 3, 3, 1, 1, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse3x3S1Wider{&BlockedConvSse<4, 3, 3, 1, 1, 3, 4>, 4, false};
inline constexpr BlockedConvCore kConvC4Sse3x3S2{&BlockedConvSse<4, 3, 3, 2, 2, 2, 6>, 4, false};
inline constexpr BlockedConvCore kConvC4SseColumns{&BlockedConvSse<4, 1, 1, 1, 1, 2, 6>, 4, true};
inline constexpr BlockedConvCore kConvC8Sse1x1S1{&BlockedConvSse<8, 1, 1, 1, 1, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Sse1x1S2{&BlockedConvSse<8, 1, 1, 2, 2, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Sse1x3S1{&BlockedConvSse<8, 1, 3, 1, 1, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Sse3x1S1{&BlockedConvSse<8, 3, 1, 1, 1, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Sse3x3S1{&BlockedConvSse<8, 3, 3, 1, 1, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Sse3x3S2{&BlockedConvSse<8, 3, 3, 2, 2, 1, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8SseColumns{&BlockedConvSse<8, 1, 1, 1, 1, 1, 6>, 8, true};
inline constexpr BlockedConvCore kConvC8Avx1x1S1{&BlockedConvAvx<1, 1, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx1x1S1Wide{&BlockedConvAvx<1, 1, 1, 1, 3, 4>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx1x1S2{&BlockedConvAvx<1, 1, 2, 2, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx1x3S1{&BlockedConvAvx<1, 3, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx3x1S1{&BlockedConvAvx<3, 1, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx3x3S1{&BlockedConvAvx<3, 3, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx3x3S2{&BlockedConvAvx<3, 3, 2, 2, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx5x5S1{&BlockedConvAvx<5, 5, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx7x7S1{&BlockedConvAvx<7, 7, 1, 1, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8Avx7x7S2{&BlockedConvAvx<7, 7, 2, 2, 2, 6>, 8, false};
inline constexpr BlockedConvCore kConvC8AvxColumns{&BlockedConvAvx<1, 1, 1, 1, 3, 4>, 8, true};
// clang-format on

// Planar 1x1 convolution, stride 1, in SSE (cpu/sse/conv2d/pointwise_sse.cc): per group, out[o][p] = bias[o]
// + the sum over the group's input channels i, in order, of w[o][i] * in[i][p]; separate multiply and add.
// Tiles of four output channels by eight pixels (one input load feeds four outputs), then four pixels, then
// single pixels; output channels beyond a multiple of four one at a time. Each value sums in the same order
// as the reference, so results agree bit for bit.
void PointwiseConvSse(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kPointwiseConvSse{&PointwiseConvSse, false};

// Planar 1x1 convolution, stride 1, through the matrix product (cpu/sgemm/conv2d/pointwise_sgemm.cc): the
// unpadded input already is the matrix. Per group, GemmRowMajor(M = outputs, K = input channels, N = H * W,
// alpha 1, weights (left), input, beta 0, output), then the bias of each channel added over its plane. The
// BLAS may fuse multiply and add inside, so results agree with the reference within rounding, not bit for
// bit.
void PointwiseConvSgemm(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kPointwiseConvSgemm{&PointwiseConvSgemm, false};

// Planar direct convolution in SSE (cpu/sse/conv2d/direct_sse.cc), on the zero-padded copy the frame makes:
// per group, tiles of a few output channels by a few vectors of four output columns of one row, one
// independent accumulator per output value, which starts from its bias (or 0.0) and adds the products in the
// order (input channel, kernel row, kernel column), a separate multiply and add each. That is the order of
// the reference, so results agree bit for bit. Columns left over after the vectors, and output channels left
// over after the tiles, are done one at a time in the same order. Stride 2 gathers every other input column
// from two loads; any other stride, kernel size and dilation come from the record (the general member).
void DirectConv1x1S2Sse(const PlanarConvArgs& args);
void DirectConv1x3S1Sse(const PlanarConvArgs& args);
void DirectConv3x1S1Sse(const PlanarConvArgs& args);
void DirectConv3x1S1SseWide(const PlanarConvArgs& args);  // tiles of two channels by sixteen columns
void DirectConv3x3S1Sse(const PlanarConvArgs& args);
void DirectConv3x3S2Sse(const PlanarConvArgs& args);
void DirectConvAnySse(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kDirectConv1x1S2Sse{&DirectConv1x1S2Sse, true};
inline constexpr PlanarConvCore kDirectConv1x3S1Sse{&DirectConv1x3S1Sse, true};
inline constexpr PlanarConvCore kDirectConv3x1S1Sse{&DirectConv3x1S1Sse, true};
inline constexpr PlanarConvCore kDirectConv3x1S1SseWide{&DirectConv3x1S1SseWide, true};
inline constexpr PlanarConvCore kDirectConv3x3S1Sse{&DirectConv3x3S1Sse, true};
inline constexpr PlanarConvCore kDirectConv3x3S2Sse{&DirectConv3x3S2Sse, true};
inline constexpr PlanarConvCore kDirectConvAnySse{&DirectConvAnySse, true};

// The same in AVX (cpu/avx/conv2d/direct_avx.cc), 3x3 stride 1: vectors of eight columns, then one of four,
// then single columns; bit for bit the reference.
void DirectConv3x3S1Avx(const PlanarConvArgs& args);
inline constexpr PlanarConvCore kDirectConv3x3S1Avx{&DirectConv3x3S1Avx, true};

// What a layout-changing core sees (relayout_frame.h). The input is the zero-padded copy, [in_channels, in_h,
// in_w] planar or [in_channels / 8, in_h, in_w, 8] blocked; the output is [out_channels / B, out_h, out_w, B]
// blocked or [1, out_h, out_w] planar. The weight is repacked as the frame describes; bias is null for a
// layer without bias.
struct RelayoutConvArgs {
  const float* input;
  uint32_t in_h, in_w;
  float* output;
  uint32_t out_h, out_w;
  const float* weight;
  const float* bias;
  const Conv2dParam* param;
};

struct RelayoutConvCore {
  void (*run)(const RelayoutConvArgs& args);
};

// Three planar input channels into a 4-blocked output, 3x3 stride 1 (cpu/sse/conv2d/relayout_sse.cc; the AVX
// twin, two pixels a 256-bit register, in cpu/avx/conv2d/relayout_avx.cc), and into an 8-blocked output, 3x3
// stride 1 and 7x7 stride 2 (AVX): for each output block and pixel, one accumulator of the block's channels,
// started from their bias; for each input channel of the group, kernel row and column, the input value
// broadcast times the weight vector of that channel and tap, a separate multiply and add. That is the order
// of the reference, so results agree bit for bit. Pixels go four at a time, sharing each weight load.
void Conv3x3S1PlanarToC4Sse(const RelayoutConvArgs& args);
void Conv3x3S1PlanarToC4Avx(const RelayoutConvArgs& args);
void Conv3x3S1PlanarToC8Avx(const RelayoutConvArgs& args);
void Conv7x7S2PlanarToC8Avx(const RelayoutConvArgs& args);
inline constexpr RelayoutConvCore kConv3x3S1PlanarToC4Sse{&Conv3x3S1PlanarToC4Sse};
inline constexpr RelayoutConvCore kConv3x3S1PlanarToC4Avx{&Conv3x3S1PlanarToC4Avx};
inline constexpr RelayoutConvCore kConv3x3S1PlanarToC8Avx{&Conv3x3S1PlanarToC8Avx};
inline constexpr RelayoutConvCore kConv7x7S2PlanarToC8Avx{&Conv7x7S2PlanarToC8Avx};

// An 8-blocked input into one planar output channel, 3x3 stride 1 (AVX): per pixel an eight-lane accumulator
// of input block times weight vector over blocks and taps, then the lanes summed horizontally and the bias
// added. The order differs from the reference's, so results agree within rounding.
void Conv3x3S1C8ToPlanar1Avx(const RelayoutConvArgs& args);
inline constexpr RelayoutConvCore kConv3x3S1C8ToPlanar1Avx{&Conv3x3S1C8ToPlanar1Avx};

// What a Winograd core sees (winograd_frame.h): the input padded to [in_channels, in_h, in_w] with in_h =
// even_h + 2 and in_w = even_w + 2, the output [out_channels, out_h, out_w] already set to the bias, the
// transformed weights [out_channels, in_channels / groups, 16], and `work` of work_floats(param, tiles)
// floats.
struct WinogradConvArgs {
  const float* input;
  uint32_t in_h, in_w;
  float* output;
  uint32_t out_h, out_w;
  const float* transformed;
  const Conv2dParam* param;
  float* work;
};

struct WinogradConvCore {
  void (*run)(const WinogradConvArgs& args);
  uint32_t (*work_floats)(const Conv2dParam& param, uint32_t tiles);
};

// F(2x2, 3x3) in SSE (cpu/sse/conv2d/winograd_sse.cc). Each 4 by 4 input tile is transformed with B^T d B
// (two 4-lane passes with a transpose between), multiplied element by element with U and summed over the
// group's input channels, and A^T M A added into the output. The tile-major core stores the transformed tiles
// as [tiles, channels, 16] and keeps one tile's 16 sums for two output channels in eight registers; the
// matrix core stores them over chunks of tiles as 16 matrices [channels, tiles] (four tiles transposed into
// place at once), forms the 16 products [outputs, tiles] with four outputs by eight tiles in registers, and
// transforms four tiles' outputs a register. Results agree with the direct convolution within rounding.
void WinogradTilesSse(const WinogradConvArgs& args);
uint32_t WinogradTilesSseWork(const Conv2dParam& param, uint32_t tiles);
void WinogradMatricesSse(const WinogradConvArgs& args);
uint32_t WinogradMatricesSseWork(const Conv2dParam& param, uint32_t tiles);
inline constexpr WinogradConvCore kWinogradTilesSse{&WinogradTilesSse, &WinogradTilesSseWork};
inline constexpr WinogradConvCore kWinogradMatricesSse{&WinogradMatricesSse, &WinogradMatricesSseWork};

}  // namespace kernel
}  // namespace zelva
