#include "zelva/src/kernel/family/activation/cores.h"

namespace zelva {
namespace kernel {

void LinearFallback(const float* x, uint32_t n, float* y, float alpha, float beta) {
  for (uint32_t i = 0; i < n; ++i) y[i] = x[i] * alpha + beta;
}

}  // namespace kernel
}  // namespace zelva
