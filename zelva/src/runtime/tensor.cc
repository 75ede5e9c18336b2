#include "zelva/src/runtime/tensor.h"

#include "zelva/src/runtime/device.h"

namespace zelva {
namespace runtime {

TensorCPU::TensorCPU(TensorShape shape, void* data, Device* device) : Tensor(std::move(shape), data, device) {
  ComputeStrides();
}

void TensorCPU::ComputeStrides() {
  strides.resize(shape.dims.size());
  // Unsigned products wrap like the 32-bit signed ones they stand for.
  uint32_t stride = 1;
  for (size_t k = strides.size(); k-- > 0;) {
    strides[k] = static_cast<int32_t>(stride);
    stride *= shape.dims[k];
  }
}

void TensorCPU::Remake(const TensorShape& new_shape, void* new_data) {
  shape = new_shape;  // copy assignment: dims keep their room
  data = new_data;
  ComputeStrides();
}

TensorDeleter TensorCPU::GetDeleter() {
  return [](Tensor* tensor) {
    DeviceCPU* device = static_cast<DeviceCPU*>(tensor->device);
    device->pool->Free(tensor->data);
    device->Release(tensor);
  };
}

}  // namespace runtime
}  // namespace zelva
