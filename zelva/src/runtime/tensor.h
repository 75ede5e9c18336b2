// A tensor: a shape, a pointer to its first element and the device that made it. Always held by a shared
// pointer whose deleter (from GetDeleter, or the device's own for wrapped and up-pool tensors) decides the
// fate of the element memory. Shape, strides and data never change while the tensor is held (the device
// re-makes the objects of released tensors for later ones).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "zelva/src/runtime/tensor_shape.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

class Device;
class Tensor;

// Frees (or leaves) the element memory, then destroys the tensor.
using TensorDeleter = std::function<void(Tensor*)>;

class Tensor : public std::enable_shared_from_this<Tensor> {
 public:
  Tensor(TensorShape shape, void* data, Device* device)
      : shape(std::move(shape)), data(data), device(device) {}
  Tensor(const Tensor&) = delete;
  Tensor& operator=(const Tensor&) = delete;
  virtual ~Tensor() = default;

  virtual TensorDeleter GetDeleter() = 0;

  template <typename T>
  T* Data() const {
    return static_cast<T*>(data);
  }

  TensorShape shape;
  void* data;      // first element
  Device* device;  // the maker; not owned, must outlive the tensor
};

class TensorCPU : public Tensor {
 public:
  TensorCPU(TensorShape shape, void* data, Device* device);
  ~TensorCPU() override = default;

  // The deleter of a tensor from the device's ordinary pool: returns `data` to that pool.
  TensorDeleter GetDeleter() override;

  // Byte address of an element, dense row-major by `strides`, in 32-bit arithmetic. Fewer indices than the
  // rank address the start of a sub-block; an unknown data type yields `data` itself.
  void* ElementPtr(int32_t i0) const { return Address<1>({i0}); }
  void* ElementPtr(int32_t i0, int32_t i1) const { return Address<2>({i0, i1}); }
  void* ElementPtr(int32_t i0, int32_t i1, int32_t i2) const { return Address<3>({i0, i1, i2}); }
  void* ElementPtr(int32_t i0, int32_t i1, int32_t i2, int32_t i3) const {
    return Address<4>({i0, i1, i2, i3});
  }
  void* ElementPtr(int32_t i0, int32_t i1, int32_t i2, int32_t i3, int32_t i4) const {
    return Address<5>({i0, i1, i2, i3, i4});
  }
  void* ElementPtr(int32_t i0, int32_t i1, int32_t i2, int32_t i3, int32_t i4, int32_t i5) const {
    return Address<6>({i0, i1, i2, i3, i4, i5});
  }
  void* ElementPtr(int32_t i0, int32_t i1, int32_t i2, int32_t i3, int32_t i4, int32_t i5, int32_t i6) const {
    return Address<7>({i0, i1, i2, i3, i4, i5, i6});
  }

  // Typed form: t->ElementPtr<float>(c, h, w).
  template <typename T, typename... Index>
  T* ElementPtr(Index... index) const {
    return static_cast<T*>(ElementPtr(static_cast<int32_t>(index)...));
  }

  // The CPU view of a tensor; every tensor in this system is a TensorCPU.
  static TensorCPU* Cast(const std::shared_ptr<Tensor>& tensor) {
    ZV_ASSERT(tensor != nullptr, "null tensor.");
    return static_cast<TensorCPU*>(tensor.get());
  }

  std::vector<int32_t> strides;  // in elements: last 1, each earlier the next stride times the next dim

 private:
  friend class DeviceCPU;
  // What the constructor does, on an object whose last owner is gone: the device re-uses released tensor
  // objects, whose vectors keep their room, instead of a fresh allocation for each working tensor.
  void Remake(const TensorShape& new_shape, void* new_data);
  void ComputeStrides();

  // Unsigned arithmetic wraps like the 32-bit signed sum it stands for, without undefined behaviour.
  template <size_t N>
  void* Address(const int32_t (&index)[N]) const {
    ZV_ASSERT(N <= strides.size(), "%zu indices for a tensor of rank %zu.", N, strides.size());
    uint32_t offset = 0;
    for (size_t k = 0; k < N; ++k)
      offset += static_cast<uint32_t>(index[k]) * static_cast<uint32_t>(strides[k]);
    const int32_t bytes = static_cast<int32_t>(offset * DataTypeSize(shape.data_type));
    return static_cast<char*>(data) + bytes;
  }
};

}  // namespace runtime
}  // namespace zelva
