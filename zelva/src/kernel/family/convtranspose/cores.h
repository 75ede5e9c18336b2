// The cores of the transposed convolution family and what they see. Declarations only: the scalar core is
// the reference (reference.h); the vector cores live in the folder of their instruction set and share the
// loop nest of gather_tile.h.
//
// Convention (every member), for ConvTranspose2dInfo: the full transposed convolution, in which every input
// pixel (iy, ix) of channel i scatters weight x input onto the output pixels (iy * stride_y + ky *
// dilation_y, ix * stride_x + kx * dilation_x), cropped by padding_t rows on top, padding_b below, padding_l
// columns on the left and padding_r on the right, a negative value extending that side with zeros; then the
// bias. nn.ConvTranspose2d(padding=p, output_padding=q) is l = t = p and r = b = p - q.
//   out_h = (H - 1) * stride_y + dilation_y * (kernel_y - 1) + 1 - padding_t - padding_b, out_w likewise.
// Weights arrive as "GNCHW" [groups, N, C, kernel_y, kernel_x] with N the input channels and C the output
// channels of a group (torch's [in, out / groups, kh, kw]). Each output value is computed as a gather:
//   sum = 0.0; for the input channels i of its group in order, the rows ky in order and the columns kx in
//   order whose tap lands on it (oy + padding_t - ky * dilation_y a non-negative multiple of stride_y below
//   H * stride_y, and so for x): sum = sum + in[i][iy][ix] * w; then out = sum + bias[o], or sum without
//   bias. Separate multiply and add: every member is bit-exact to the reference.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

struct ConvTransposeArgs {
  const float* input;  // CHW [in, H, W] or blocked [in / lanes, H, W, lanes]
  uint32_t in_h, in_w;
  float* output;  // the member's layout, [out, out_h, out_w] or blocked
  uint32_t out_h, out_w;
  const float* weight;  // the reference: GNCHW; the vector cores: [ceil(out / lanes), in, K, K, lanes]
  const float* bias;    // [out] (the vector cores: padded to whole blocks), null without bias
  uint32_t in_channels, out_channels, groups;
  uint32_t kernel_y, kernel_x, stride_y, stride_x, dilation_y, dilation_x;
  int32_t padding_t, padding_l;
};

// lanes: 0 for a core that reads the weights as they come; otherwise the width of the output-channel blocks
// the frame repacks the weights (and pads the bias) into.
struct ConvTransposeCore {
  void (*run)(const ConvTransposeArgs& args);
  uint32_t lanes;
};

// ---- Kernel 3x3, dilation 1, one group, any stride. Four (SSE) or eight (AVX) output channels a vector:
// each output pixel accumulates one vector per block of output channels over the taps that land on it, four
// blocks sharing each broadcast input value; a planar output stores the lanes to their planes, a blocked
// output stores the vector. Planar and C4HW4 in SSE (cpu/sse/convtranspose), C8HW8 in AVX
// (cpu/avx/convtranspose).
void ConvTranspose3x3PlanarSse(const ConvTransposeArgs& args);
void ConvTranspose3x3C4Sse(const ConvTransposeArgs& args);
void ConvTranspose3x3C8Avx(const ConvTransposeArgs& args);
inline constexpr ConvTransposeCore kConvTranspose3x3PlanarSse{&ConvTranspose3x3PlanarSse, 4};
inline constexpr ConvTransposeCore kConvTranspose3x3C4Sse{&ConvTranspose3x3C4Sse, 4};
inline constexpr ConvTransposeCore kConvTranspose3x3C8Avx{&ConvTranspose3x3C8Avx, 8};

}  // namespace kernel
}  // namespace zelva
