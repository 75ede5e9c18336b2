// The permutation behind transposition: output dim i is input dim axes[i], elements moved as opaque units.
#pragma once

#include <cstdint>
#include <vector>

namespace zelva {
namespace kernel {
namespace native {

// Copies `input` (row-major over `shape`, `bytes_per_element` bytes per element) into `output` in the order
// of the permuted shape: the element at input multi-index idx goes to the output multi-index j with
// j[i] = idx[axes[i]]. Asserts, in this order: "Input shared pointer is null.", "Output shared pointer is
// null.", "bytes per element must be >= 1.", "dimensions of shape must be equal to tranpose axes's."; and
// refuses an axis beyond the rank. The buffers must not overlap.
void Transform_MainMemory_Permute_Fallback(const void* input, const std::vector<uint32_t>& shape,
                                           int32_t bytes_per_element, const std::vector<uint32_t>& axes,
                                           void* output);

}  // namespace native
}  // namespace kernel
}  // namespace zelva
