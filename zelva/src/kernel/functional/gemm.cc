#include "zelva/src/kernel/functional/gemm.h"

#include <cblas.h>
#include <xmmintrin.h>

#include <cstring>

namespace zelva {
namespace kernel {
namespace functional {

void GemmRowMajor(int32_t m, int32_t k, int32_t n, float alpha, const float* a, const float* b, float beta,
                  float* c) {
  cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, alpha, a, k, b, n, beta, c, n);
}

namespace {
void StartFromBias(const float* bias, int32_t out_count, float* y) {
  if (bias == nullptr) {
    std::memset(y, 0, sizeof(float) * static_cast<size_t>(out_count));
  } else {
    std::memcpy(y, bias, sizeof(float) * static_cast<size_t>(out_count));
  }
}
}  // namespace

void DenseBySgemm(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y) {
  StartFromBias(bias, out_count, y);
  GemmRowMajor(out_count, in_count, 1, 1.0f, w, x, 1.0f, y);
}

void DenseForward(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y) {
  StartFromBias(bias, out_count, y);
  const int32_t body = in_count & ~15;
  for (int32_t r = 0; r < out_count; ++r) {
    const float* row = w + static_cast<size_t>(r) * static_cast<size_t>(in_count);
    // Sixteen partial sums, one per position in a group of 16 inputs.
    __m128 s0 = _mm_setzero_ps(), s1 = _mm_setzero_ps(), s2 = _mm_setzero_ps(), s3 = _mm_setzero_ps();
    for (int32_t i = 0; i < body; i += 16) {
      s0 = _mm_add_ps(s0, _mm_mul_ps(_mm_loadu_ps(row + i), _mm_loadu_ps(x + i)));
      s1 = _mm_add_ps(s1, _mm_mul_ps(_mm_loadu_ps(row + i + 4), _mm_loadu_ps(x + i + 4)));
      s2 = _mm_add_ps(s2, _mm_mul_ps(_mm_loadu_ps(row + i + 8), _mm_loadu_ps(x + i + 8)));
      s3 = _mm_add_ps(s3, _mm_mul_ps(_mm_loadu_ps(row + i + 12), _mm_loadu_ps(x + i + 12)));
    }
    float tail = 0.0f;
    for (int32_t i = body; i < in_count; ++i) tail += row[i] * x[i];
    // Parts summed: lanes pairwise, then across, then the tail.
    const __m128 s = _mm_add_ps(_mm_add_ps(s0, s1), _mm_add_ps(s2, s3));
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, s);
    y[r] += ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + tail;
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
