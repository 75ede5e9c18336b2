#include "zelva/src/runtime/device.h"

#include <cstring>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {
namespace {

void DeleteUpPoolTensor(Tensor* tensor) {
  DeviceCPU* device = static_cast<DeviceCPU*>(tensor->device);
  device->up_pool->Free(tensor->data);
  device->Release(tensor);
}

void DeleteWrappedTensor(Tensor* tensor) {
  static_cast<DeviceCPU*>(tensor->device)->Release(tensor);
}

}  // namespace

std::shared_ptr<DeviceCPU> DeviceCPU::Create(DeviceConfig config, std::shared_ptr<MemoryPool> pool,
                                             std::shared_ptr<MemoryPool> host_pool,
                                             std::shared_ptr<MemoryPool> up_pool) {
  return std::make_shared<DeviceCPU>(std::move(config), std::move(pool), std::move(host_pool),
                                     std::move(up_pool));
}

DeviceCPU::~DeviceCPU() {
  for (TensorCPU* tensor : spare_tensors_) delete tensor;
}

void DeviceCPU::Release(Tensor* tensor) {
  if (spare_tensors_.size() < kSpareTensors) {
    spare_tensors_.push_back(static_cast<TensorCPU*>(tensor));
  } else {
    delete tensor;
  }
}

TensorCPU* DeviceCPU::MakeTensor(TensorShape&& shape, void* data) {
  if (spare_tensors_.empty()) return new TensorCPU(std::move(shape), data, this);
  TensorCPU* tensor = spare_tensors_.back();
  tensor->Remake(shape, data);  // should it throw, the object stays a spare
  spare_tensors_.pop_back();
  return tensor;
}

void DeviceCPU::CreateInPool(std::shared_ptr<Tensor>& tensor, TensorShape&& shape, const void* source,
                             bool up) {
  MemoryPool* memory = up ? up_pool.get() : pool.get();
  ZV_ASSERT(memory != nullptr, "device has no %s.", up ? "up_pool" : "pool");
  const int32_t bytes = shape.ByteSize();
  ZV_ASSERT(bytes >= 0, "tensor byte size %d overflows.", bytes);
  void* block = memory->Alloc(static_cast<uint64_t>(bytes));
  if (source != nullptr && bytes > 0) std::memcpy(block, source, static_cast<size_t>(bytes));
  TensorCPU* made;
  try {
    made = MakeTensor(std::move(shape), block);
  } catch (...) {
    memory->Free(block);
    throw;
  }
  // Should the control block fail to allocate, shared_ptr runs the deleter, which returns the block.
  if (up) {
    tensor = std::shared_ptr<Tensor>(made, &DeleteUpPoolTensor);
  } else {
    tensor = std::shared_ptr<Tensor>(made, made->GetDeleter());
  }
}

void DeviceCPU::CreateTensor(std::shared_ptr<Tensor>& tensor, TensorShape shape, const void* source) {
  CreateInPool(tensor, std::move(shape), source, use_up_pool && up_pool != nullptr);
}

void DeviceCPU::CreateTensorInUpPool(std::shared_ptr<Tensor>& tensor, TensorShape shape, const void* source) {
  CreateInPool(tensor, std::move(shape), source, true);
}

void DeviceCPU::WrapTensor(std::shared_ptr<Tensor>& tensor, TensorShape shape, void* host) {
  tensor = std::shared_ptr<Tensor>(MakeTensor(std::move(shape), host), &DeleteWrappedTensor);
}

void DeviceCPU::WrapPlanar(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims, void* host) {
  WrapTensor(tensor, TensorShape(std::move(dims), DataType::FLOAT32, Layout::CHW, Location::MainMemory),
             host);
}

void DeviceCPU::WrapVector(std::shared_ptr<Tensor>& tensor, uint32_t length, void* host) {
  WrapTensor(tensor, TensorShape({length}, DataType::FLOAT32, Layout::C, Location::MainMemory), host);
}

void DeviceCPU::CreateVector(std::shared_ptr<Tensor>& tensor, uint32_t length, const void* source) {
  CreateTensor(tensor, TensorShape({length}, DataType::FLOAT32, Layout::C, Location::MainMemory), source);
}

void DeviceCPU::CreateFlexible(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims,
                               const void* source) {
  CreateTensor(tensor,
               TensorShape(std::move(dims), DataType::FLOAT32, Layout::FLEXIABLE, Location::MainMemory),
               source);
}

void DeviceCPU::CreateZeroVector(std::shared_ptr<Tensor>& tensor, uint32_t length) {
  CreateVector(tensor, length, nullptr);
  std::memset(tensor->data, 0, static_cast<size_t>(tensor->shape.ByteSize()));
}

void DeviceCPU::CreateZeroFlexible(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims) {
  CreateFlexible(tensor, std::move(dims), nullptr);
  std::memset(tensor->data, 0, static_cast<size_t>(tensor->shape.ByteSize()));
}

}  // namespace runtime
}  // namespace zelva
