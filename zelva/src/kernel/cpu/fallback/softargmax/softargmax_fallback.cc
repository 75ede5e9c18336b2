// The scalar core of the soft arg-max family (declared in family/softargmax/cores.h).
#include <cmath>
#include <cstddef>

#include "zelva/src/kernel/family/softargmax/cores.h"

namespace zelva {
namespace kernel {

void SoftArgMaxScalar(const SoftArgMaxArgs& a) {
  const size_t plane = static_cast<size_t>(a.height) * a.width;
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* v = a.input + c * plane;
    float m = a.beta * v[0];
    for (size_t i = 1; i < plane; ++i) m = std::fmax(m, a.beta * v[i]);
    float s = 0.0f, sx = 0.0f, sy = 0.0f;
    for (uint32_t y = 0; y < a.height; ++y) {
      const float* row = v + static_cast<size_t>(y) * a.width;
      float rs = 0.0f, rx = 0.0f;
      for (uint32_t x = 0; x < a.width; ++x) {
        const float e = std::exp(a.beta * row[x] - m);
        rs += e;
        rx += e * static_cast<float>(x);
      }
      s += rs;
      sx += rx;
      sy += rs * static_cast<float>(y);
    }
    a.output[2 * c] = sx / s * a.size_x / a.width_x;
    a.output[2 * c + 1] = sy / s * a.size_y / a.height_y;
  }
}

}  // namespace kernel
}  // namespace zelva
