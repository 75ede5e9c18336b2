#include "zelva/audio/metrics.h"

#include <cmath>
#include <limits>

namespace zelva::audio {

void SiSdr::Add(const float* reference, const float* estimate, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const double s = reference[i], y = estimate[i];
    s_ += s;
    y_ += y;
    ss_ += s * s;
    yy_ += y * y;
    sy_ += s * y;
  }
  n_ += static_cast<double>(count);
}

double SiSdr::Decibels() const {
  if (n_ == 0) return -std::numeric_limits<double>::infinity();
  const double ss = ss_ - s_ * s_ / n_, yy = yy_ - y_ * y_ / n_, sy = sy_ - s_ * y_ / n_;
  const double target = sy * sy, residual = ss * yy - sy * sy;
  if (target <= 0) return -std::numeric_limits<double>::infinity();
  if (residual <= 0) return std::numeric_limits<double>::infinity();
  return 10.0 * std::log10(target / residual);
}

}  // namespace zelva::audio
