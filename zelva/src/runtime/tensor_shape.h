// What a tensor is, without its data: dims (outermost first, lanes of blocked layouts last), data type,
// layout, location and an extra record. Copied by value everywhere; kernels compare fields one by one, so
// there is deliberately no equality operator.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/src/runtime/serialization.h"
#include "zelva/src/runtime/types.h"

namespace zelva {
namespace runtime {

class TensorShape : public Serializable {
 public:
  class Extra : public Serializable {
   public:
    Extra() : step_size(0) {}
    explicit Extra(int16_t step_size) : step_size(step_size) {}
    Extra(const Extra&) = default;
    Extra& operator=(const Extra&) = default;
    ~Extra() override = default;

    void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

    // Quantisation step for the 16-bit integer kernels; 0 for every float tensor.
    int16_t step_size;
  };

  // A default shape has no dims, FLOAT32, layout 0 (CHW) and MainMemory; it is what a reader fills.
  TensorShape() = default;
  TensorShape(std::vector<uint32_t> dims, uint32_t data_type, uint32_t layout,
              uint32_t location = Location::MainMemory, Extra extra = Extra())
      : dims(std::move(dims)),
        data_type(data_type),
        layout(layout),
        location(location),
        extra(std::move(extra)) {}
  TensorShape(const TensorShape&) = default;
  TensorShape(TensorShape&& other) noexcept
      : Serializable(other),
        dims(std::move(other.dims)),
        data_type(other.data_type),
        layout(other.layout),
        location(other.location),
        extra(other.extra) {}
  TensorShape& operator=(const TensorShape&) = default;
  TensorShape& operator=(TensorShape&& other) noexcept {
    Serializable::operator=(other);
    dims = std::move(other.dims);
    data_type = other.data_type;
    layout = other.layout;
    location = other.location;
    extra = other.extra;
    return *this;
  }
  ~TensorShape() override = default;

  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  // Bytes of one element of `data_type`; 0 for an unknown type.
  uint32_t ElementSize() const { return DataTypeSize(data_type); }

  // Product of all dims, starting from 1 (a rank-0 shape holds one element). 32-bit, overflow wraps.
  int32_t ElementCount() const {
    uint32_t count = 1;
    for (const uint32_t d : dims) count *= d;
    return static_cast<int32_t>(count);
  }

  // ElementCount times ElementSize, in 32-bit arithmetic: no alignment, no padding, layout ignored.
  int32_t ByteSize() const {
    return static_cast<int32_t>(static_cast<uint32_t>(ElementCount()) * ElementSize());
  }

  std::vector<uint32_t> dims;
  uint32_t data_type = DataType::FLOAT32;
  uint32_t layout = Layout::CHW;
  uint32_t location = Location::MainMemory;
  Extra extra;
};

}  // namespace runtime
}  // namespace zelva
