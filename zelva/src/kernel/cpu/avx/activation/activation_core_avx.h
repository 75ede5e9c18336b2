// AVX cores of the activation kernels, same signature and meaning as the SSE cores (activation_core.h): a
// body of four 8-lane groups a round, then 4-lane groups, then single floats. Declarations only: this header
// is read by code compiled without AVX.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

void ReluAVX(const float* x, uint32_t n, float* y, float alpha, float beta);
void Relu6AVX(const float* x, uint32_t n, float* y, float alpha, float beta);
// min(x, 0) * alpha + max(x, 0): Leaky and PReLU.
void LeakyAVX(const float* x, uint32_t n, float* y, float alpha, float beta);
void HSwishAVX(const float* x, uint32_t n, float* y, float alpha, float beta);

// Body of 8 a round: 1 / (1 + e) with e a degree-5 polynomial exponential of 0 - x, clamped to +-88.376259.
// Rest (n mod 8): as the rest of SigmoidSSE, 4-lane exact exponential, then expf.
void SigmoidAVX(const float* x, uint32_t n, float* y, float alpha, float beta);

}  // namespace kernel
}  // namespace zelva
