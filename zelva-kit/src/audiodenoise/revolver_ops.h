// Operators of the hand-fused denoise network: free functions on raw float pointers and shape records,
// written for 128-bit SSE with separate multiply and add. None allocates, none checks its arguments.
//
// The order of additions of each operator is fixed (see the comments below), so a result is reproducible bit
// for bit on every x86-64 processor, apart from the vector exp and tanh of the recurrent cells.
//
// Feature maps come in two layouts:
//   planar:         C, H, W            (each channel plane contiguous)
//   packed by 8:    C/8, H, W, 8       (lane l of block b is channel 8b + l; a pixel is 8 consecutive floats)
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

// A shape record: the dimensions, then a last entry that is the size of an element in bytes.
// The element count is the product of the entries divided by the last one; the byte count is the product.
struct ShapeRecord {
  static constexpr uint32_t kMaxEntries = 6;

  constexpr ShapeRecord(std::initializer_list<uint32_t> entries) : dims{}, size(0) {
    for (uint32_t e : entries) {
      if (size < kMaxEntries) dims[size++] = e;
    }
  }
  constexpr uint32_t operator[](uint32_t i) const { return dims[i]; }
  constexpr size_t ByteCount() const {
    size_t bytes = 1;
    for (uint32_t i = 0; i < size; ++i) bytes *= dims[i];
    return size == 0 ? 0 : bytes;
  }
  constexpr size_t ElementCount() const { return size == 0 ? 0 : ByteCount() / dims[size - 1]; }

  uint32_t dims[kMaxEntries];
  uint32_t size;
};

// ---- Weight repacking (at load)
// ------------------------------------------------------------------------------

// Depthwise weights (source order group, output, input, ky, kx) to blocks of 8 channels:
// (gi, o, i, ky, kx) -> (((((gi / 8) * O + o) * I + i) * kh + ky) * kw + kx) * 8 + gi % 8.
// Clears ((groups + 7) / 8 * 8) * O * I * kh * kw floats of `dst` first.
void RepackDepthwise8(const float* src, float* dst, uint32_t groups, uint32_t out_per_group,
                      uint32_t in_per_group, uint32_t kernel_h, uint32_t kernel_w);

// Pointwise weights (source order group, output, input, ky, kx) to 8x8 blocks, input lane major:
// (gi, o, i, ky, kx) -> ((((gi * OB + o / 8) * IB + i / 8) * kh + ky) * kw + kx) * 64 + (i % 8) * 8 + o % 8,
// OB = (O + 7) / 8, IB = (I + 7) / 8. Clears only OB * IB * groups * kh * kw * 64 bytes of `dst` first.
void RepackPointwise8x8(const float* src, float* dst, uint32_t groups, uint32_t out_per_group,
                        uint32_t in_per_group, uint32_t kernel_h, uint32_t kernel_w);

// ---- Convolutions: 3x3 valid or 1x1, stride 1
// --------------------------------------------------------------

// Planar 3x3 depthwise, 9 weights per channel (row-major taps). Shapes C, H, W, 4.
// Inside the 4x4 output tiles: out = bias, then out + w0*in, ..., + w8*in in tap order. Elements outside the
// tiles (W mod 4 columns, H mod 4 rows): the three row products as lane vectors, (row0 + row1) + row2, then
// (lane0 + lane1) + lane2, then + bias.
void DepthwiseConv3x3Planar(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                            float* output, ShapeRecord out_shape);

// Planar 1x1: out[o][p] = bias[o], then + in[i][p] * w[o][i] for ascending i. Weights o-major.
void PointwiseConvPlanar(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                         float* output, ShapeRecord out_shape);

// Packed 3x3 depthwise, weights from RepackDepthwise8. Shapes C/8, H, W, 8, 4. out = bias + t0 + ... + t8.
void DepthwiseConv3x3Packed8(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                             float* output, ShapeRecord out_shape);

// Packed 1x1, weights from RepackPointwise8x8. Per pixel and output lane: bias, then for ascending input
// block and input lane l from 0 to 7, + w * in[l].
void PointwiseConvPacked8(const float* weight, const float* bias, const float* input, ShapeRecord in_shape,
                          float* output, ShapeRecord out_shape);

// Writes the 8 bias values of each block over all pixels of that block. Shape C/8, H, W, 8, 4.
void FillBiasPacked8(const float* bias, float* output, ShapeRecord out_shape);

// ---- Layout moves
// ------------------------------------------------------------------------------------------

// Planar C, H, W (C a multiple of 8) to packed by 8: out[(b * HW + p) * 8 + l] = in[(b * 8 + l) * HW + p].
void PackChannels8(const float* input, ShapeRecord in_shape, float* output);
// The inverse; `in_shape` is the packed shape C/8, H, W, 8, 4.
void UnpackChannels8(const float* input, ShapeRecord in_shape, float* output);

// ---- Element-wise
// ------------------------------------------------------------------------------------------

// y = min(max(x + 3, 0), 6) * 0.16666667. In place allowed. A NaN gives 0 in the 16-float body and 1.0 in
// the rest (groups of four and single floats).
void HSigmoidPass(const float* input, float* output, ShapeRecord shape);
// y = max(x, 0). In place allowed. A NaN gives 0 in the 16-float body and stays NaN in the rest.
void ReluPass(const float* input, float* output, ShapeRecord shape);

// out[i] = a[i] + b[i], a[i] - b[i], a[i] * b[i]; `out` may be `a` or `b`.
void AddVectors(const float* a, const float* b, size_t count, float* out);
void SubVectors(const float* a, const float* b, size_t count, float* out);
void MulVectors(const float* a, const float* b, size_t count, float* out);

// Copies as many bytes as the product of the shape's entries.
void CopyBytes(const void* input, void* output, ShapeRecord shape);

// ---- Matrix-vector and recurrent cells
// ---------------------------------------------------------------------

// y[r] = dot(w[r], x) + b[r] over rows of 256 floats: four 4-lane accumulators over 16 rounds,
// s = (a3 + a2) + (a1 + a0), y = ((s0 + s1) + s2) + s3 + b. A null `bias` adds zero.
void MatVec768x256(const float* weight, const float* x, const float* bias, float* y);
void MatVec80x256(const float* weight, const float* x, const float* bias, float* y);
// Rows of 74: accumulators over elements 0..71 as above, then
// y = ((s0 + s1) + s2) + s3 + (w[73] * x[73] + (w[72] * x[72] + b)).
void MatVec768x74(const float* weight, const float* x, const float* bias, float* y);
// The same orders for any number of rows: rows of 256, and rows of 74 with row stride 74.
void MatVecRows256Sse(const float* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows74Sse(const float* weight, const float* x, const float* bias, float* y, int rows);

// One GRU step, gate rows r (0..255), z (256..511), n (512..767):
// r, z = sigmoid(gx + gh); n = tanh(gx_n + gh_n * r); h' = n - z * (n - h). h_in may equal h_out.
void GruStep256(const float* x, const float* h_in, const float* w_ih, const float* w_hh, const float* b_ih,
                const float* b_hh, float* h_out, float* gates_x, float* gates_h);
void GruStep74(const float* x, const float* h_in, const float* w_ih, const float* w_hh, const float* b_ih,
               const float* b_hh, float* h_out, float* gates_x, float* gates_h);

// Steps after the two products of a GRU step, with gates_x = w_ih x + b_ih and gates_h = w_hh h_in + b_hh:
// r, z = 1 / (1 + exp(0 - (gx + gh))) over gates_h[0..511]; n = tanh(gx_n + gh_n * r) over gates_h[512..767];
// h_out = n - z * (n - h_in). 4-lane exp and tanh; h_in may equal h_out.
void GruGates(const float* h_in, float* h_out, float* gates_x, float* gates_h);

// Time loop over in_shape[0] steps: the step of time t reads input + 256 t (74 t), updates `hidden` in place
// and copies it to output + 256 t.
void GruLayer256(const float* input, ShapeRecord in_shape, float* output, const float* w_ih,
                 const float* w_hh, const float* b_ih, const float* b_hh, float* hidden, float* gates_x,
                 float* gates_h);
void GruLayer74(const float* input, ShapeRecord in_shape, float* output, const float* w_ih, const float* w_hh,
                const float* b_ih, const float* b_hh, float* hidden, float* gates_x, float* gates_h);

// MatVec80x256 on input, weight, bias, output.
void DenseLayer256x80(const float* input, const float* weight, const float* bias, float* output);

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
