// A device makes tensors and owns the pools their memory comes from. DeviceCPU is the only one.
//
// Two-phase allocation: while `use_up_pool` is set (Net::Forward sets it for the length of a run when an
// up-pool exists) CreateTensor takes memory from `up_pool`; at any other time, the kernels' weights included,
// from `pool`. Tensors return their block to the pool they came from when their last reference goes, so every
// tensor must be released before its device.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/src/runtime/memory_pool.h"
#include "zelva/src/runtime/tensor.h"
#include "zelva/src/runtime/tensor_shape.h"

namespace zelva {
namespace runtime {

// An opaque description record: the engines use the default, and nothing reads its fields.
struct DeviceConfig {
  int32_t kind = 0;
  std::vector<uint32_t> params;
  uint64_t flags = 0;
  std::vector<uint32_t> extra_params;
  uint32_t reserved[4] = {0, 0, 0, 0};
};

class Device : public std::enable_shared_from_this<Device> {
 public:
  Device(DeviceConfig config, std::shared_ptr<MemoryPool> pool, std::shared_ptr<MemoryPool> host_pool,
         std::shared_ptr<MemoryPool> up_pool)
      : config(std::move(config)),
        host_pool(std::move(host_pool)),
        pool(std::move(pool)),
        up_pool(std::move(up_pool)) {}
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  virtual ~Device() = default;

  DeviceConfig config;
  std::shared_ptr<MemoryPool> host_pool;  // left null by the engines
  std::shared_ptr<MemoryPool> pool;       // ordinary tensors (an AlignedPool)
  std::shared_ptr<MemoryPool> up_pool;    // tensors made while a net runs (an AlignUpPool)
  bool use_up_pool = false;
};

class DeviceCPU : public Device {
 public:
  DeviceCPU(DeviceConfig config, std::shared_ptr<MemoryPool> pool, std::shared_ptr<MemoryPool> host_pool,
            std::shared_ptr<MemoryPool> up_pool)
      : Device(std::move(config), std::move(pool), std::move(host_pool), std::move(up_pool)) {}
  ~DeviceCPU() override;

  // Allocates a device and links its self-reference.
  static std::shared_ptr<DeviceCPU> Create(DeviceConfig config, std::shared_ptr<MemoryPool> pool,
                                           std::shared_ptr<MemoryPool> host_pool,
                                           std::shared_ptr<MemoryPool> up_pool);

  // Pool memory: from `up_pool` when `use_up_pool` is set and an up-pool exists, else from `pool`. `source`,
  // when not null, is copied in (byte size of the shape); otherwise the block is left uninitialised.
  void CreateTensor(std::shared_ptr<Tensor>& tensor, TensorShape shape, const void* source = nullptr);
  // Always from `up_pool`, returned there on release.
  void CreateTensorInUpPool(std::shared_ptr<Tensor>& tensor, TensorShape shape, const void* source = nullptr);

  // No memory of its own: the tensor points at the caller's memory, which must outlive it and is left alone.
  void WrapTensor(std::shared_ptr<Tensor>& tensor, TensorShape shape, void* host);
  // FLOAT32 CHW over `dims`, MainMemory.
  void WrapPlanar(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims, void* host);
  // FLOAT32 [length] of layout C, MainMemory.
  void WrapVector(std::shared_ptr<Tensor>& tensor, uint32_t length, void* host);

  // FLOAT32 [length] of layout C, copied from `source` into pool memory.
  void CreateVector(std::shared_ptr<Tensor>& tensor, uint32_t length, const void* source);
  // FLOAT32 over `dims`, layout FLEXIABLE, copied from `source` into pool memory.
  void CreateFlexible(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims, const void* source);
  // As above, with the memory cleared to 0.
  void CreateZeroVector(std::shared_ptr<Tensor>& tensor, uint32_t length);
  void CreateZeroFlexible(std::shared_ptr<Tensor>& tensor, std::vector<uint32_t> dims);

  // The end of a tensor this device made, after its memory has gone back: the object is kept for the next
  // tensor (up to kSpareTensors of them), else destroyed.
  void Release(Tensor* tensor);

 private:
  void CreateInPool(std::shared_ptr<Tensor>& tensor, TensorShape&& shape, const void* source, bool up);
  // A tensor object over `data`: a released one re-made, else a new one.
  TensorCPU* MakeTensor(TensorShape&& shape, void* data);

  // A working tensor costs a handful of small allocations (the object, its dims and strides, the shared
  // pointer's count); the net makes several per layer and run, so released objects are kept. Not under the
  // address sanitizer, which is to see each tensor's end.
#if defined(__SANITIZE_ADDRESS__)
  static constexpr size_t kSpareTensors = 0;
#else
  static constexpr size_t kSpareTensors = 64;
#endif
  std::vector<TensorCPU*> spare_tensors_;
};

}  // namespace runtime
}  // namespace zelva
