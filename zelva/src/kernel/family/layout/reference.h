// The reference of the layout-transform family: the element rule itself, one value at a time through its
// logical index (channel, pixel). Every member is bit-exact to it.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// Moves `channels` channels of `pixels` values. A side of `lanes` 1 is planar: channel c, pixel p at
// c * stride + p. A side of 4 or 8 lanes is blocked: at (c / lanes) * stride + p * lanes + c % lanes.
void RelayoutReference(const float* src, uint32_t src_lanes, uint32_t src_stride, float* dst,
                       uint32_t dst_lanes, uint32_t dst_stride, uint32_t channels, uint32_t pixels);

}  // namespace kernel
}  // namespace zelva
