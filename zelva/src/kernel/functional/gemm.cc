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

namespace {
// Row r's 16 partial sums over the body (four 4-lane sums), added to one vector s = (s0 + s1) + (s2 + s3).
inline __m128 RowPartials(const float* row, const float* x, int32_t body) {
  __m128 s0 = _mm_setzero_ps(), s1 = _mm_setzero_ps(), s2 = _mm_setzero_ps(), s3 = _mm_setzero_ps();
  for (int32_t i = 0; i < body; i += 16) {
    s0 = _mm_add_ps(s0, _mm_mul_ps(_mm_loadu_ps(row + i), _mm_loadu_ps(x + i)));
    s1 = _mm_add_ps(s1, _mm_mul_ps(_mm_loadu_ps(row + i + 4), _mm_loadu_ps(x + i + 4)));
    s2 = _mm_add_ps(s2, _mm_mul_ps(_mm_loadu_ps(row + i + 8), _mm_loadu_ps(x + i + 8)));
    s3 = _mm_add_ps(s3, _mm_mul_ps(_mm_loadu_ps(row + i + 12), _mm_loadu_ps(x + i + 12)));
  }
  return _mm_add_ps(_mm_add_ps(s0, s1), _mm_add_ps(s2, s3));
}

inline float RowTail(const float* row, const float* x, int32_t body, int32_t in_count) {
  float tail = 0.0f;
  for (int32_t i = body; i < in_count; ++i) tail += row[i] * x[i];
  return tail;
}
}  // namespace

void DenseForward(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias,
                  float* y) {
  StartFromBias(bias, out_count, y);
  const int32_t body = in_count & ~15;
  const auto row_of = [&](int32_t r) { return w + static_cast<size_t>(r) * static_cast<size_t>(in_count); };
  // Per row: the lanes of s summed pairwise, then across, then the tail: ((l0 + l1) + (l2 + l3)) + tail,
  // added to y[r]. Four rows at a time do the same additions in the lanes of one register after a transpose.
  int32_t r = 0;
  for (; r + 4 <= out_count; r += 4) {
    __m128 s0 = RowPartials(row_of(r), x, body), s1 = RowPartials(row_of(r + 1), x, body);
    __m128 s2 = RowPartials(row_of(r + 2), x, body), s3 = RowPartials(row_of(r + 3), x, body);
    _MM_TRANSPOSE4_PS(s0, s1, s2, s3);
    const __m128 tails =
        _mm_setr_ps(RowTail(row_of(r), x, body, in_count), RowTail(row_of(r + 1), x, body, in_count),
                    RowTail(row_of(r + 2), x, body, in_count), RowTail(row_of(r + 3), x, body, in_count));
    const __m128 parts = _mm_add_ps(_mm_add_ps(_mm_add_ps(s0, s1), _mm_add_ps(s2, s3)), tails);
    _mm_storeu_ps(y + r, _mm_add_ps(_mm_loadu_ps(y + r), parts));
  }
  for (; r < out_count; ++r) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, RowPartials(row_of(r), x, body));
    y[r] += ((lanes[0] + lanes[1]) + (lanes[2] + lanes[3])) + RowTail(row_of(r), x, body, in_count);
  }
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
