#include "zelva/src/kernel/family/transform/reference.h"

#include <algorithm>
#include <cstddef>

namespace zelva {
namespace kernel {

std::vector<float> UnblockReference(const std::vector<float>& blocked, uint32_t channels, uint32_t inner,
                                    uint32_t lanes) {
  std::vector<float> planar(static_cast<size_t>(channels) * inner);
  for (uint32_t c = 0; c < channels; ++c) {
    for (uint32_t k = 0; k < inner; ++k) {
      planar[static_cast<size_t>(c) * inner + k] =
          blocked[(static_cast<size_t>(c / lanes) * inner + k) * lanes + c % lanes];
    }
  }
  return planar;
}

std::vector<uint8_t> PermuteReference(const std::vector<uint8_t>& input, const std::vector<uint32_t>& shape,
                                      const std::vector<uint32_t>& axes, size_t unit) {
  const size_t rank = shape.size();
  size_t count = 1;
  for (const uint32_t d : shape) count *= d;
  std::vector<uint8_t> output(count * unit);
  std::vector<uint32_t> idx(rank);
  for (size_t e = 0; e < count; ++e) {
    size_t rest = e;  // the input multi-index of element e
    for (size_t d = rank; d-- > 0;) {
      idx[d] = static_cast<uint32_t>(rest % shape[d]);
      rest /= shape[d];
    }
    size_t offset = 0;  // its offset in the permuted shape
    for (size_t i = 0; i < rank; ++i) offset = offset * shape[axes[i]] + idx[axes[i]];
    std::copy_n(&input[e * unit], unit, &output[offset * unit]);
  }
  return output;
}

}  // namespace kernel
}  // namespace zelva
