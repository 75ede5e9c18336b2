#include "zelva/src/kernel/family/warpaffine/reference.h"

#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {

void WarpAffineReference(const WarpAffineArgs& a) {
  const float* t = a.theta;
  const int32_t h = static_cast<int32_t>(a.height), w = static_cast<int32_t>(a.width);
  auto at = [&](const float* plane, int32_t y, int32_t x) {
    return y >= 0 && y < h && x >= 0 && x < w ? plane[static_cast<size_t>(y) * w + x] : 0.0f;
  };
  float* out = a.output;
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* plane = a.input + static_cast<size_t>(c) * a.height * a.width;
    for (uint32_t i = 0; i < a.height; ++i) {
      for (uint32_t j = 0; j < a.width; ++j) {
        const float xn = WarpBase(j, a.width, a.align_corners), yn = WarpBase(i, a.height, a.align_corners);
        const float gx = t[0] * xn + t[1] * yn + t[2], gy = t[3] * xn + t[4] * yn + t[5];
        const float ix = WarpSourceCoordinate(gx, a.width, a.padding, a.align_corners);
        const float iy = WarpSourceCoordinate(gy, a.height, a.padding, a.align_corners);
        if (a.mode == WarpMode::kNearest) {
          *out++ = at(plane, WarpTap(std::nearbyint(iy), a.height), WarpTap(std::nearbyint(ix), a.width));
          continue;
        }
        const float x0 = std::floor(ix), y0 = std::floor(iy);
        const float nw = (x0 + 1.0f - ix) * (y0 + 1.0f - iy), ne = (ix - x0) * (y0 + 1.0f - iy);
        const float sw = (x0 + 1.0f - ix) * (iy - y0), se = (ix - x0) * (iy - y0);
        const int32_t xi = WarpTap(x0, a.width), yi = WarpTap(y0, a.height);
        *out++ = ((at(plane, yi, xi) * nw + at(plane, yi, xi + 1) * ne) + at(plane, yi + 1, xi) * sw) +
                 at(plane, yi + 1, xi + 1) * se;
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
