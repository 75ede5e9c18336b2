// The GEMM bridge: the one place where the runtime calls a BLAS, and the dense products built on it.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {
namespace functional {

// c (m x n) = alpha * a (m x k) * b (k x n) + beta * c, all row-major, no transposition.
void GemmRowMajor(int32_t m, int32_t k, int32_t n, float alpha, const float* a, const float* b, float beta,
                  float* c);

// y (out_count) = w (out_count x in_count) * x (in_count) + bias (zero when bias is null), by one BLAS
// product with n = 1. The BLAS may use fused multiply-add inside: results agree with DenseForward within
// rounding, not bit for bit.
void DenseBySgemm(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y);

// The same contract in SSE: per output row, 16 running partial sums over groups of 16 inputs, the tail
// handled one float at a time, then the parts summed and added to y[r]. Separate multiply and add.
void DenseForward(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y);

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
