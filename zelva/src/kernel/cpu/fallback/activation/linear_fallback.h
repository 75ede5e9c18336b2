// The plain scalar linear activation, y = x * alpha + beta: the activation family's one Fallback member.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

void LinearFallback(const float* x, uint32_t n, float* y, float alpha, float beta);

}  // namespace kernel
}  // namespace zelva
