// Wider-register forms of the fused network's heaviest operators, for processors with AVX2 (with F16C for
// half-precision weights) or AVX-512F. Each keeps exactly the per-output order of additions of its 128-bit
// twin in revolver_ops.h, so its output is bit-identical to it; there is no fused multiply-add.
//
// The forms live in translation units of their own, compiled with their own instruction-set flags
// (avx2/revolver_ops_avx2.cc, avx512/revolver_ops_avx512.cc): call one only after the processor report says
// the processor and the operating system support it.
//
// Matrix-vector products: y[r] = dot(w[r], x) + b[r] for `rows` rows (a multiple of 8), row-major weights,
// either 32-bit floats or IEEE half-precision bit patterns (uint16_t) widened on the fly. Per row the four
// 4-lane accumulators of the 128-bit form are the four 128-bit quarters of the row's 16 consecutive products:
//   AVX-512: one 512-bit accumulator per row, eight rows side by side;
//   AVX2:    two 256-bit accumulators per row ([a0 | a1], [a2 | a3]), four rows side by side.
// The reduction s = (a3 + a2) + (a1 + a0), then ((s0 + s1) + s2) + s3 + b, runs for four rows at a time in
// the lanes of one 128-bit register after a transpose: each lane does the 128-bit form's scalar additions.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zelva-kit/src/audiodenoise/revolver_ops.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

// Rows of 256 (MatVec768x256, MatVec80x256 order); rows of 74 with row stride 74 (MatVec768x74 order: the
// last two products and the bias enter through the scalar tail). A null `bias` adds zero.
void MatVecRows256Avx2(const float* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows256HalfAvx2(const uint16_t* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows74Avx2(const float* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows74HalfAvx2(const uint16_t* weight, const float* x, const float* bias, float* y, int rows);

void MatVecRows256Avx512(const float* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows256HalfAvx512(const uint16_t* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows74Avx512(const float* weight, const float* x, const float* bias, float* y, int rows);
void MatVecRows74HalfAvx512(const uint16_t* weight, const float* x, const float* bias, float* y, int rows);

// Rows of 256 for `count` vectors at once: y[i] = weight x[i] + bias, each weight row read once for all of
// them, every y[i] bit for bit the single-vector product's (`rows` a multiple of 4; null bias adds zero).
void MatVecRows256BatchAvx2(const float* weight, const float* const* x, const float* bias, float* const* y,
                            int rows, size_t count);
void MatVecRows256HalfBatchAvx2(const uint16_t* weight, const float* const* x, const float* bias,
                                float* const* y, int rows, size_t count);
void MatVecRows256BatchAvx512(const float* weight, const float* const* x, const float* bias, float* const* y,
                              int rows, size_t count);
void MatVecRows256HalfBatchAvx512(const uint16_t* weight, const float* const* x, const float* bias,
                                  float* const* y, int rows, size_t count);

// The packed-by-8 convolutions with both 4-lane halves of a pixel in one 256-bit register: same arguments,
// weights and order as DepthwiseConv3x3Packed8 and PointwiseConvPacked8 (the bias is the starting value of
// every sum, as FillBiasPacked8 leaves it).
void DepthwiseConv3x3Packed8Avx2(const float* weight, const float* bias, const float* input,
                                 ShapeRecord in_shape, float* output, ShapeRecord out_shape);
void PointwiseConvPacked8Avx2(const float* weight, const float* bias, const float* input,
                              ShapeRecord in_shape, float* output, ShapeRecord out_shape);

}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
