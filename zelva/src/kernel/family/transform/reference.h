// The reference of the transform family: where each element goes, by the index definitions of the layouts and
// of the permutation, one element at a time (no strides carried, no blocking). The family tester holds every
// member and the permutation routine against it, bit for bit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zelva {
namespace kernel {

// A tensor of `channels` channels and `inner` values per channel stored blocked by `lanes` (channels a
// multiple of lanes): channel c, position k sits at ((c / lanes) * inner + k) * lanes + c % lanes. Returns
// the values in logical (planar) order, c * inner + k.
std::vector<float> UnblockReference(const std::vector<float>& blocked, uint32_t channels, uint32_t inner,
                                    uint32_t lanes);

// The row-major `input` over `shape` (`unit` bytes per element) permuted by `axes`: the element at input
// multi-index idx goes to output multi-index (idx[axes[0]], idx[axes[1]], ...) of the shape
// (shape[axes[0]], shape[axes[1]], ...).
std::vector<uint8_t> PermuteReference(const std::vector<uint8_t>& input, const std::vector<uint32_t>& shape,
                                      const std::vector<uint32_t>& axes, size_t unit);

}  // namespace kernel
}  // namespace zelva
