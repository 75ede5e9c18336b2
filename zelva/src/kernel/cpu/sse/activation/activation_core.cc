#include "zelva/src/kernel/family/activation/cores.h"

#include <sleef.h>

#include <cmath>

#include "zelva/src/kernel/functional/pointwise_ops.h"

namespace zelva {
namespace kernel {

void ReluSSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<ReluOp, V4>(x, n, y, alpha, beta);
}

void Relu6SSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<Relu6Op, V4>(x, n, y, alpha, beta);
}

void LeakySSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<LeakyOp, V4>(x, n, y, alpha, beta);
}

void HSigmoidSSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<HSigmoidOp, V4>(x, n, y, alpha, beta);
}

void HSwishSSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<HSwishOp, V4>(x, n, y, alpha, beta);
}

void LinearSSE(const float* x, uint32_t n, float* y, float alpha, float beta) {
  PointwiseCore<LinearOp, V4>(x, n, y, alpha, beta);
}

void SigmoidRestSSE(const float* x, uint32_t n, float* y) {
  const __m128 zero = _mm_setzero_ps();
  const __m128 one = _mm_set1_ps(1.0f);
  uint32_t i = 0;
  // The fixed SSE2 variant of the exponential: the same bits on every processor.
  for (; i + 4 <= n; i += 4) {
    const __m128 e = Sleef_expf4_u10sse2(_mm_sub_ps(zero, _mm_loadu_ps(x + i)));
    _mm_storeu_ps(y + i, _mm_div_ps(one, _mm_add_ps(e, one)));
  }
  for (; i < n; ++i) y[i] = 1.0f / (expf(0.0f - x[i]) + 1.0f);
}

namespace {

// 1 / (FastExp(0 - x) + 1)
inline __m128 FastSigmoid4(__m128 x) {
  const __m128 one = _mm_set1_ps(1.0f);
  const __m128 e = FastExp4(_mm_sub_ps(_mm_setzero_ps(), x));
  return _mm_div_ps(one, _mm_add_ps(e, one));
}

}  // namespace

void SigmoidSSE(const float* x, uint32_t n, float* y, float, float) {
  uint32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128 x0 = _mm_loadu_ps(x + i), x1 = _mm_loadu_ps(x + i + 4);
    const __m128 x2 = _mm_loadu_ps(x + i + 8), x3 = _mm_loadu_ps(x + i + 12);
    _mm_storeu_ps(y + i, FastSigmoid4(x0));
    _mm_storeu_ps(y + i + 4, FastSigmoid4(x1));
    _mm_storeu_ps(y + i + 8, FastSigmoid4(x2));
    _mm_storeu_ps(y + i + 12, FastSigmoid4(x3));
  }
  SigmoidRestSSE(x + i, n - i, y + i);
}

void SiLUSSE(const float* x, uint32_t n, float* y, float, float) {
  uint32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128 x0 = _mm_loadu_ps(x + i), x1 = _mm_loadu_ps(x + i + 4);
    const __m128 x2 = _mm_loadu_ps(x + i + 8), x3 = _mm_loadu_ps(x + i + 12);
    _mm_storeu_ps(y + i, _mm_mul_ps(FastSigmoid4(x0), x0));
    _mm_storeu_ps(y + i + 4, _mm_mul_ps(FastSigmoid4(x1), x1));
    _mm_storeu_ps(y + i + 8, _mm_mul_ps(FastSigmoid4(x2), x2));
    _mm_storeu_ps(y + i + 12, _mm_mul_ps(FastSigmoid4(x3), x3));
  }
  for (; i < n; ++i) y[i] = x[i] / (expf(0.0f - x[i]) + 1.0f);
}

void TanHSSE(const float* x, uint32_t n, float* y, float, float) {
  const __m128 one = _mm_set1_ps(1.0f);
  uint32_t i = 0;
  // Sum form with an inverse, on exp(x) (not exp(2x)).
  for (; i + 4 <= n; i += 4) {
    const __m128 e = FastExp4(_mm_loadu_ps(x + i));
    const __m128 inv = _mm_div_ps(one, e);
    _mm_storeu_ps(y + i, _mm_div_ps(_mm_sub_ps(e, inv), _mm_add_ps(e, inv)));
  }
  for (; i < n; ++i) y[i] = tanhf(x[i]);
}

}  // namespace kernel
}  // namespace zelva
