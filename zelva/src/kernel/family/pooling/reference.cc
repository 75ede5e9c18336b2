#include "zelva/src/kernel/family/pooling/reference.h"

#include <cstddef>
#include <cstdint>

namespace zelva {
namespace kernel {

namespace {

// Pool one output element of one lane: `tap(y, x, inside)` is visited in order over the window whose top
// left corner is (y0, x0) in padded coordinates.
template <class Visit>
void Window(const PoolArgs& a, int64_t y0, int64_t x0, Visit&& visit) {
  for (uint32_t ky = 0; ky < a.kernel_y; ++ky) {
    for (uint32_t kx = 0; kx < a.kernel_x; ++kx) {
      const int64_t y = y0 + ky - a.pad_t, x = x0 + kx - a.pad_l;
      visit(y, x, y >= 0 && y < a.in_h && x >= 0 && x < a.in_w);
    }
  }
}

template <class Pool>
void ForEachOutput(const PoolArgs& a, Pool&& pool) {
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w * a.lanes;
    float* out = a.output + static_cast<size_t>(p) * a.out_h * a.out_w * a.lanes;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      for (uint32_t ox = 0; ox < a.out_w; ++ox) {
        for (uint32_t l = 0; l < a.lanes; ++l) {
          const auto at = [&](int64_t y, int64_t x) { return in[(y * a.in_w + x) * a.lanes + l]; };
          out[(static_cast<size_t>(oy) * a.out_w + ox) * a.lanes + l] =
              pool(at, int64_t{oy} * a.stride_y, int64_t{ox} * a.stride_x);
        }
      }
    }
  }
}

}  // namespace

void AvgPoolReference(const PoolArgs& a) {
  ForEachOutput(a, [&](const auto& at, int64_t y0, int64_t x0) {
    float divisor = static_cast<float>(a.kernel_x * a.kernel_y);
    float sum = 0.0f;
    Window(a, y0, x0, [&](int64_t y, int64_t x, bool inside) {
      sum += inside ? at(y, x) : 0.0f;
      if (!inside && !a.count_include_pad) divisor -= 1.0f;
    });
    return sum / divisor;
  });
}

void MaxPoolReference(const PoolArgs& a) {
  ForEachOutput(a, [&](const auto& at, int64_t y0, int64_t x0) {
    float m = 0.0f;
    bool first = true;
    Window(a, y0, x0, [&](int64_t y, int64_t x, bool inside) {
      const float v = inside ? at(y, x) : 0.0f;
      if (first || v > m) m = v;
      first = false;
    });
    return m;
  });
}

}  // namespace kernel
}  // namespace zelva
