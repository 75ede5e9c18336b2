// Shape rules and cores of the reshape family, shared by its members.
#pragma once

#include <cstdint>
#include <vector>

#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

// Product of the entries of `new_shape` that are at least 1 (1 when there are none).
int32_t PositiveProduct(const std::vector<int32_t>& new_shape);

// The 32-bit copy of `new_shape` in which every entry below 1 is replaced by total / positive_product
// (signed 32-bit division). `positive_product` is what PositiveProduct gave for the same shape.
std::vector<int32_t> ResolveNewShape(const std::vector<int32_t>& new_shape, int32_t positive_product,
                                     int32_t total);

// The deduction of the fixed-rank reshapes: in entry order, every entry equal to -1 becomes total divided by
// the product of all other entries as they stand at that moment (signed 32-bit). So of two entries of -1 the
// first is divided by the still negative second and is not repaired afterwards. Other entries stay as given.
std::vector<int32_t> DeduceMinusOne(const std::vector<int32_t>& new_shape, int32_t total);

// Unblocks a blocked tensor into planar order: the value at (block b, position k, lane l) of
// [blocks, inner, lanes] goes to (b * lanes + l) * inner + k. `dst` must not overlap `src`.
void UnblockToPlanar(const float* src, float* dst, uint32_t blocks, uint32_t inner, uint32_t lanes);

// Copies `input` into `dst` in logical order: a C4HW4 or C8HW8 tensor (FLOAT32 only, else "Invalid input data
// type") is unblocked; any other layout is copied as stored. `dst` holds the input's byte size.
void CopyInLogicalOrder(const runtime::TensorCPU& input, void* dst);

}  // namespace kernel
}  // namespace zelva
