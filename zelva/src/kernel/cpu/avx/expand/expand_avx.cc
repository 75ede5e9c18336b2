// The AVX core of the expand family (declared in family/expand/cores.h): lanes 1 (CHW) or 8 (C8HW8).
#include <immintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/expand/cores.h"

namespace zelva {
namespace kernel {

void ExpandAvx(const ExpandArgs& a) {
  const uint32_t L = a.lanes;
  const size_t n = static_cast<size_t>(a.cols) * L;  // floats of an output row
  float* out = a.output;
  for (uint32_t p = 0; p < a.planes; ++p) {
    for (uint32_t y = 0; y < a.rows; ++y, out += n) {
      const float* row =
          a.input + ((static_cast<size_t>(a.in_planes == 1 ? 0 : p) * a.in_rows + (a.in_rows == 1 ? 0 : y)) *
                     a.in_cols * L);
      size_t i = 0;
      if (a.in_cols == 1) {
        // One source pixel: a planar value broadcast, or the C8HW8 pixel itself, every eight floats.
        const __m256 v = L == 1 ? _mm256_set1_ps(row[0]) : _mm256_loadu_ps(row);
        for (; i + 8 <= n; i += 8) _mm256_storeu_ps(out + i, v);
        for (; i < n; ++i) out[i] = row[i % L];
      } else {
        for (; i + 8 <= n; i += 8) _mm256_storeu_ps(out + i, _mm256_loadu_ps(row + i));
        for (; i < n; ++i) out[i] = row[i];
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
