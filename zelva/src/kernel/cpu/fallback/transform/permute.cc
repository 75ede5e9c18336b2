// Core of the transform family (declared in family/transform/cores.h).
#include "zelva/src/kernel/family/transform/cores.h"

#include <cstring>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {
namespace native {

namespace {
// Row-major strides in elements: the product of the dims behind each, 1 for the last.
std::vector<uint64_t> Strides(const std::vector<uint32_t>& dims) {
  std::vector<uint64_t> strides(dims.size(), 1);
  for (size_t i = dims.size(); i-- > 1;) strides[i - 1] = strides[i] * dims[i];
  return strides;
}
}  // namespace

void Transform_MainMemory_Permute_Fallback(const void* input, const std::vector<uint32_t>& shape,
                                           int32_t bytes_per_element, const std::vector<uint32_t>& axes,
                                           void* output) {
  ZV_ASSERT(input != nullptr, "Input shared pointer is null.");
  ZV_ASSERT(output != nullptr, "Output shared pointer is null.");
  ZV_ASSERT(bytes_per_element >= 1, "bytes per element must be >= 1.");
  ZV_ASSERT(shape.size() == axes.size(), "dimensions of shape must be equal to tranpose axes's.");
  const size_t rank = shape.size();
  std::vector<uint32_t> permuted(rank);
  for (size_t i = 0; i < rank; ++i) {
    ZV_ASSERT(axes[i] < rank, "transpose axis %u of a rank %zu shape.", axes[i], rank);
    permuted[i] = shape[axes[i]];
  }
  const std::vector<uint64_t> in_strides = Strides(shape);
  uint64_t count = 1;
  for (const uint32_t d : shape) count *= d;
  if (count == 0) return;

  // Walk the output in row-major order; `index` is its multi-index, `src` the matching input offset.
  const size_t unit = static_cast<size_t>(bytes_per_element);
  const char* in = static_cast<const char*>(input);
  char* out = static_cast<char*>(output);
  std::vector<uint32_t> index(rank, 0);
  uint64_t src = 0;
  for (uint64_t dst = 0; dst < count; ++dst) {
    std::memcpy(out + dst * unit, in + src * unit, unit);
    for (size_t i = rank; i-- > 0;) {  // odometer step over the output dims
      src += in_strides[axes[i]];
      if (++index[i] < permuted[i]) break;
      src -= in_strides[axes[i]] * permuted[i];
      index[i] = 0;
    }
  }
}

}  // namespace native
}  // namespace kernel
}  // namespace zelva
