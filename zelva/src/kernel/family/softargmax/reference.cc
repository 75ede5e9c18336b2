#include "zelva/src/kernel/family/softargmax/reference.h"

#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {

void SoftArgMaxReference(const SoftArgMaxArgs& a) {
  const size_t plane = static_cast<size_t>(a.height) * a.width;
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* v = a.input + c * plane;
    double m = -INFINITY;
    for (size_t i = 0; i < plane; ++i) m = std::fmax(m, static_cast<double>(a.beta) * v[i]);
    double s = 0.0, sx = 0.0, sy = 0.0;
    for (size_t i = 0; i < plane; ++i) {
      const double e = std::exp(static_cast<double>(a.beta) * v[i] - m);
      s += e;
      sx += e * static_cast<double>(i % a.width);
      sy += e * static_cast<double>(i / a.width);
    }
    a.output[2 * c] = static_cast<float>(sx / s * a.size_x / a.width_x);
    a.output[2 * c + 1] = static_cast<float>(sy / s * a.size_y / a.height_y);
  }
}

}  // namespace kernel
}  // namespace zelva
