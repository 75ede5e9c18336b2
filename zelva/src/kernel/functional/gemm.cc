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
// Rows a and b's 16 partial sums each over the body (four 4-lane sums a row), each row's added to one vector
// s = (s0 + s1) + (s2 + s3). The two rows run side by side for the parallelism; neither's order changes.
inline void RowPartials2(const float* a, const float* b, const float* x, int32_t body, __m128* sa,
                         __m128* sb) {
  __m128 a0 = _mm_setzero_ps(), a1 = _mm_setzero_ps(), a2 = _mm_setzero_ps(), a3 = _mm_setzero_ps();
  __m128 b0 = _mm_setzero_ps(), b1 = _mm_setzero_ps(), b2 = _mm_setzero_ps(), b3 = _mm_setzero_ps();
  for (int32_t i = 0; i < body; i += 16) {
    const __m128 x0 = _mm_loadu_ps(x + i), x1 = _mm_loadu_ps(x + i + 4);
    const __m128 x2 = _mm_loadu_ps(x + i + 8), x3 = _mm_loadu_ps(x + i + 12);
    a0 = _mm_add_ps(a0, _mm_mul_ps(_mm_loadu_ps(a + i), x0));
    b0 = _mm_add_ps(b0, _mm_mul_ps(_mm_loadu_ps(b + i), x0));
    a1 = _mm_add_ps(a1, _mm_mul_ps(_mm_loadu_ps(a + i + 4), x1));
    b1 = _mm_add_ps(b1, _mm_mul_ps(_mm_loadu_ps(b + i + 4), x1));
    a2 = _mm_add_ps(a2, _mm_mul_ps(_mm_loadu_ps(a + i + 8), x2));
    b2 = _mm_add_ps(b2, _mm_mul_ps(_mm_loadu_ps(b + i + 8), x2));
    a3 = _mm_add_ps(a3, _mm_mul_ps(_mm_loadu_ps(a + i + 12), x3));
    b3 = _mm_add_ps(b3, _mm_mul_ps(_mm_loadu_ps(b + i + 12), x3));
  }
  *sa = _mm_add_ps(_mm_add_ps(a0, a1), _mm_add_ps(a2, a3));
  *sb = _mm_add_ps(_mm_add_ps(b0, b1), _mm_add_ps(b2, b3));
}

inline __m128 RowPartials(const float* row, const float* x, int32_t body) {
  __m128 s, unused;
  RowPartials2(row, row, x, body, &s, &unused);
  return s;
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
    __m128 s0, s1, s2, s3;
    RowPartials2(row_of(r), row_of(r + 1), x, body, &s0, &s1);
    RowPartials2(row_of(r + 2), row_of(r + 3), x, body, &s2, &s3);
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
