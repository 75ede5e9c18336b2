#include "zelva/src/kernel/family/expand/reference.h"

#include <cstddef>

namespace zelva {
namespace kernel {

void ExpandReference(const float* input, uint32_t in_c, uint32_t in_h, uint32_t in_w, float* output,
                     uint32_t c, uint32_t h, uint32_t w) {
  size_t o = 0;
  for (uint32_t k = 0; k < c; ++k) {
    for (uint32_t y = 0; y < h; ++y) {
      for (uint32_t x = 0; x < w; ++x) {
        const size_t i = (static_cast<size_t>(in_c == 1 ? 0 : k) * in_h + (in_h == 1 ? 0 : y)) * in_w +
                         (in_w == 1 ? 0 : x);
        output[o++] = input[i];
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
