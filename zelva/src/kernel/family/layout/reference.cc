#include "zelva/src/kernel/family/layout/reference.h"

#include <cstddef>
#include <cstring>

namespace zelva {
namespace kernel {

namespace {

size_t Offset(uint32_t c, uint32_t p, uint32_t lanes, uint32_t stride) {
  return static_cast<size_t>(c / lanes) * stride + static_cast<size_t>(p) * lanes + c % lanes;
}

}  // namespace

void RelayoutReference(const float* src, uint32_t src_lanes, uint32_t src_stride, float* dst,
                       uint32_t dst_lanes, uint32_t dst_stride, uint32_t channels, uint32_t pixels) {
  for (uint32_t c = 0; c < channels; ++c) {
    for (uint32_t p = 0; p < pixels; ++p) {
      // Bytes, not a float assignment: the reference must not depend on how a compiler moves a NaN.
      std::memcpy(dst + Offset(c, p, dst_lanes, dst_stride), src + Offset(c, p, src_lanes, src_stride),
                  sizeof(float));
    }
  }
}

}  // namespace kernel
}  // namespace zelva
