#include "zelva/src/kernel/cpu/fallback/transform/reshape_rules.h"

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

int32_t PositiveProduct(const std::vector<int32_t>& new_shape) {
  uint32_t product = 1;
  for (const int32_t entry : new_shape) {
    if (entry >= 1) product *= static_cast<uint32_t>(entry);
  }
  return static_cast<int32_t>(product);
}

std::vector<int32_t> ResolveNewShape(const std::vector<int32_t>& new_shape, int32_t positive_product,
                                     int32_t total) {
  std::vector<int32_t> resolved(new_shape);
  for (int32_t& entry : resolved) {
    if (entry < 1) {
      ZV_ASSERT(positive_product != 0, "new shape has a zero product of its known entries.");
      entry = total / positive_product;
    }
  }
  return resolved;
}

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
