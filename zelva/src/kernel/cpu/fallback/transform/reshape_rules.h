// Shape rules and cores of the reshape family, shared by its members.
#pragma once

#include <cstdint>
#include <vector>

namespace zelva {
namespace kernel {

// Product of the entries of `new_shape` that are at least 1 (1 when there are none).
int32_t PositiveProduct(const std::vector<int32_t>& new_shape);

// The 32-bit copy of `new_shape` in which every entry below 1 is replaced by total / positive_product
// (signed 32-bit division). `positive_product` is what PositiveProduct gave for the same shape.
std::vector<int32_t> ResolveNewShape(const std::vector<int32_t>& new_shape, int32_t positive_product,
                                     int32_t total);

// Unblocks a blocked tensor into planar order: the value at (block b, position k, lane l) of
// [blocks, inner, lanes] goes to (b * lanes + l) * inner + k. `dst` must not overlap `src`.
void UnblockToPlanar(const float* src, float* dst, uint32_t blocks, uint32_t inner, uint32_t lanes);

}  // namespace kernel
}  // namespace zelva
