#include "zelva/src/kernel/cpu/fallback/transform/reshape_rules.h"

#include <climits>
#include <cstring>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;

namespace {
// total / divisor in signed 32-bit arithmetic, reporting the two quotients that have no value.
int32_t DivideTotal(int32_t total, int32_t divisor) {
  ZV_ASSERT(divisor != 0, "new shape has a zero product of its known entries.");
  ZV_ASSERT(!(total == INT32_MIN && divisor == -1), "new shape deduction overflows.");
  return total / divisor;
}
}  // namespace

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
    if (entry < 1) entry = DivideTotal(total, positive_product);
  }
  return resolved;
}

std::vector<int32_t> DeduceMinusOne(const std::vector<int32_t>& new_shape, int32_t total) {
  std::vector<int32_t> deduced(new_shape);
  for (size_t i = 0; i < deduced.size(); ++i) {
    if (deduced[i] != -1) continue;
    uint32_t others = 1;  // wraps like the signed product it stands for
    for (size_t j = 0; j < deduced.size(); ++j) {
      if (j != i) others *= static_cast<uint32_t>(deduced[j]);
    }
    deduced[i] = DivideTotal(total, static_cast<int32_t>(others));
  }
  return deduced;
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

void CopyInLogicalOrder(const runtime::TensorCPU& input, void* dst) {
  const runtime::TensorShape& in = input.shape;
  if (in.layout == Layout::C4HW4 || in.layout == Layout::C8HW8) {
    ZV_ASSERT(in.data_type == DataType::FLOAT32, "Invalid input data type");
    ZV_ASSERT(in.dims.size() >= 2, "blocked input of rank %zu.", in.dims.size());
    const uint32_t blocks = in.dims.front();
    const uint32_t lanes = in.dims.back();
    uint32_t inner = 1;
    for (size_t d = 1; d + 1 < in.dims.size(); ++d) inner *= in.dims[d];
    UnblockToPlanar(input.Data<float>(), static_cast<float*>(dst), blocks, inner, lanes);
    return;
  }
  const int32_t bytes = in.ByteSize();
  if (bytes > 0) std::memcpy(dst, input.data, static_cast<size_t>(bytes));
}

}  // namespace kernel
}  // namespace zelva
