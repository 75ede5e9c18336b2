#include "zelva/src/kernel/family/activation/reference.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "zelva/src/kernel/family/activation/activation.h"
#include "zelva/src/kernel/functional/elementwise_table.h"

namespace zelva {
namespace kernel {

namespace {

using functional::VectorMax;
using functional::VectorMin;

float HSigmoidOne(float x) {
  return VectorMin(VectorMax(x + 3.0f, 0.0f), 6.0f) * 0.16666667f;
}

float One(uint32_t code, float x, float alpha, float beta) {
  switch (code) {
    case kActLinear:
      return x * alpha + beta;
    case kActSigmoid:
      return 1.0f / (expf(0.0f - x) + 1.0f);
    case kActReLU:
      return x < 0.0f ? 0.0f : x;
    case kActReLU6:
      return VectorMin(VectorMax(x, 0.0f), 6.0f);
    case kActLeaky:
    case kActPReLU:
      return VectorMin(x, 0.0f) * alpha + VectorMax(x, 0.0f);
    case kActTanH:
      return tanhf(x);
    case kActHSigmoid:
      return HSigmoidOne(x);
    case kActHSwish:
      return HSigmoidOne(x) * x;
    case kActSiLU:
      return x / (expf(0.0f - x) + 1.0f);
  }
  return std::numeric_limits<float>::quiet_NaN();
}

}  // namespace

void ActivationReference(uint32_t code, const float* x, uint32_t n, float* y, float alpha, float beta) {
  for (uint32_t i = 0; i < n; ++i) y[i] = One(code, x[i], alpha, beta);
}

double ActivationExact(uint32_t code, double x, double alpha, double beta) {
  switch (code) {
    case kActLinear:
      return x * alpha + beta;
    case kActSigmoid:
      return 1.0 / (1.0 + std::exp(-x));
    case kActReLU:
      return x > 0 ? x : 0;
    case kActReLU6:
      return std::min(std::max(x, 0.0), 6.0);
    case kActLeaky:
    case kActPReLU:
      return x >= 0 ? x : x * alpha;
    case kActTanH:
      return std::tanh(x);
    case kActHSigmoid:
      return std::min(std::max(x + 3, 0.0), 6.0) / 6;
    case kActHSwish:
      return x * std::min(std::max(x + 3, 0.0), 6.0) / 6;
    case kActSiLU:
      return x / (1.0 + std::exp(-x));
  }
  return std::numeric_limits<double>::quiet_NaN();
}

void ReluReference(const float* x, uint32_t n, float* y) {
  ActivationReference(kActReLU, x, n, y, 0.0f, 0.0f);
}

void SigmoidReference(const float* x, uint32_t n, float* y) {
  ActivationReference(kActSigmoid, x, n, y, 0.0f, 0.0f);
}

void TanhReference(const float* x, uint32_t n, float* y) {
  ActivationReference(kActTanH, x, n, y, 0.0f, 0.0f);
}

}  // namespace kernel
}  // namespace zelva
