// The scalar core of the expand family (declared in family/expand/cores.h).
#include <cstddef>

#include "zelva/src/kernel/family/expand/cores.h"

namespace zelva {
namespace kernel {

void ExpandScalar(const ExpandArgs& a) {
  const uint32_t L = a.lanes;
  float* out = a.output;
  for (uint32_t p = 0; p < a.planes; ++p) {
    for (uint32_t y = 0; y < a.rows; ++y) {
      const float* row =
          a.input + ((static_cast<size_t>(a.in_planes == 1 ? 0 : p) * a.in_rows + (a.in_rows == 1 ? 0 : y)) *
                     a.in_cols * L);
      for (uint32_t x = 0; x < a.cols; ++x) {
        const float* pixel = row + (a.in_cols == 1 ? 0 : static_cast<size_t>(x) * L);
        for (uint32_t l = 0; l < L; ++l) *out++ = pixel[l];
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
