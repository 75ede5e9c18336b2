// Cores of the activation family, every instruction set: (input, count, output, alpha, beta) on raw float
// pointers; the output may be the input. alpha and beta are read only by the cores that name them (Leaky and
// PReLU: alpha is the slope; Linear: x * alpha + beta). Declarations only: each core is compiled in its
// instruction-set folder (cpu/fallback, cpu/sse, cpu/avx) with that folder's flags.
//
// The exact cores give the same result in body and rest, NaN apart (the vector max/min turn a NaN into the
// constant; the single-float rest of ReLU keeps it). Sigmoid, SiLU and TanH compute their body with the fast
// bit-trick exponential and their rest exactly, so a result depends on the element's place in the run.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

using ActivationCore = void (*)(const float* x, uint32_t n, float* y, float alpha, float beta);

// ---- Fallback: one plain loop.
void LinearFallback(const float* x, uint32_t n, float* y, float alpha, float beta);

// ---- SSE: a body of four 4-lane groups a round, then 4-lane groups, then single floats.
void ReluSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
void Relu6SSE(const float* x, uint32_t n, float* y, float alpha, float beta);
// min(x, 0) * alpha + max(x, 0): Leaky and PReLU.
void LeakySSE(const float* x, uint32_t n, float* y, float alpha, float beta);
void HSigmoidSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
void HSwishSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
void LinearSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
// Body of 16: 1 / (FastExp(0 - x) + 1). Rest: SigmoidRestSSE.
void SigmoidSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
// Body of 16: (1 / (FastExp(0 - x) + 1)) * x. Rest: x / (expf(0 - x) + 1), one float at a time.
void SiLUSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
// Groups of 4: e = FastExp(x), i = 1 / e, (e - i) / (e + i). Rest (n mod 4): tanhf.
void TanHSSE(const float* x, uint32_t n, float* y, float alpha, float beta);
// The exact sigmoid of the rests: groups of 4 by the 4-lane exponential, then single floats by expf. SSE
// code, also called by the AVX cores for their rests.
void SigmoidRestSSE(const float* x, uint32_t n, float* y);

// ---- AVX: a body of four 8-lane groups a round, then 4-lane groups, then single floats.
void ReluAVX(const float* x, uint32_t n, float* y, float alpha, float beta);
void Relu6AVX(const float* x, uint32_t n, float* y, float alpha, float beta);
void LeakyAVX(const float* x, uint32_t n, float* y, float alpha, float beta);
void HSwishAVX(const float* x, uint32_t n, float* y, float alpha, float beta);
// Body of 8 a round: 1 / (1 + e) with e a degree-5 polynomial exponential of 0 - x, clamped to +-88.376259.
// Rest (n mod 8): SigmoidRestSSE.
void SigmoidAVX(const float* x, uint32_t n, float* y, float alpha, float beta);

}  // namespace kernel
}  // namespace zelva
