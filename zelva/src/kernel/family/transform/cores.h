// The cores of the transform family: plain C++ on raw pointers, defined in cpu/fallback/transform/. Blocked
// layouts store channels in blocks of `lanes` (4 for C4HW4, 8 for C8HW8): [blocks, inner..., lanes].
#pragma once

#include <cstdint>
#include <vector>

namespace zelva {
namespace kernel {

// Unblocks a blocked tensor into planar order: the value at (block b, position k, lane l) of
// [blocks, inner, lanes] goes to (b * lanes + l) * inner + k. `dst` must not overlap `src`.
void UnblockToPlanar(const float* src, float* dst, uint32_t blocks, uint32_t inner, uint32_t lanes);

namespace native {

// The permutation behind transposition: output dim i is input dim axes[i], elements moved as opaque units.
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
