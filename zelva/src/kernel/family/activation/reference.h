// The activation family's scalar reference: each code's arithmetic as plain float operations, one element
// at a time, in the order the members compute it (maximum and minimum with the operand order of the vector
// instructions), and the exact functions in double that bound the approximating members. The recurrent
// cells use the three exact loops at the end, whose results do not depend on an element's place.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// y[i] = f(x[i]) for activation `code`; exact forms throughout (Sigmoid 1 / (expf(0 - x) + 1), TanH tanhf,
// SiLU x / (expf(0 - x) + 1)). The output may be the input.
void ActivationReference(uint32_t code, const float* x, uint32_t n, float* y, float alpha, float beta);

// The function of `code` in double, from libm.
double ActivationExact(uint32_t code, double x, double alpha, double beta);

// max(x, 0) as x < 0 ? 0 : x (a NaN passes through).
void ReluReference(const float* x, uint32_t n, float* y);
// 1 / (expf(0 - x) + 1), in float.
void SigmoidReference(const float* x, uint32_t n, float* y);
// tanhf(x)
void TanhReference(const float* x, uint32_t n, float* y);

}  // namespace kernel
}  // namespace zelva
