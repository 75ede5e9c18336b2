#include "zelva/src/runtime/tensor.h"

#include "zelva/src/runtime/device.h"

namespace zelva {
namespace runtime {

TensorCPU::TensorCPU(TensorShape shape, void* data, Device* device)
    : Tensor(std::move(shape), data, device), strides(this->shape.dims.size()) {
  // Unsigned products wrap like the 32-bit signed ones they stand for.
  uint32_t stride = 1;
  for (size_t k = strides.size(); k-- > 0;) {
    strides[k] = static_cast<int32_t>(stride);
    stride *= this->shape.dims[k];
  }
}

TensorDeleter TensorCPU::GetDeleter() {
  return [](Tensor* tensor) {
    static_cast<DeviceCPU*>(tensor->device)->pool->Free(tensor->data);
    delete tensor;
  };
}

}  // namespace runtime
}  // namespace zelva
