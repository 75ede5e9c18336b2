// The plain scalar dense product the fully connected members are held against.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// y[o] = b[o] + s[o] for every output, where s[o] is the sum of w[o * in_count + i] * x[i] taken in input
// order from zero, and b is the bias or 0 when bias is null. This is the order of the blocked cores (one
// running sum per output, walked over the inputs); the vectorised row cores differ only by rounding.
void DenseReference(const float* x, uint32_t in_count, uint32_t out_count, const float* w, const float* bias,
                    float* y);

}  // namespace kernel
}  // namespace zelva
