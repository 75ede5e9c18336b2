// Core of the transform family (declared in family/transform/cores.h).
#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/transform/cores.h"

namespace zelva {
namespace kernel {

void UnblockToPlanar(const float* src, float* dst, uint32_t blocks, uint32_t inner, uint32_t lanes) {
  for (uint32_t b = 0; b < blocks; ++b) {
    const float* block = src + static_cast<size_t>(b) * inner * lanes;
    for (uint32_t l = 0; l < lanes; ++l) {
      float* plane = dst + (static_cast<size_t>(b) * lanes + l) * inner;
      const float* lane = block + l;
      uint32_t k = 0;
      for (; k + 4 <= inner; k += 4) {
        plane[k] = lane[k * lanes];
        plane[k + 1] = lane[(k + 1) * lanes];
        plane[k + 2] = lane[(k + 2) * lanes];
        plane[k + 3] = lane[(k + 3) * lanes];
      }
      for (; k < inner; ++k) plane[k] = lane[k * lanes];
    }
  }
}

}  // namespace kernel
}  // namespace zelva
