#include "zelva/src/kernel/family/conv2d_int16/reference.h"

#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {

int16_t QuantizeInt16(float value, int32_t step) {
  if (std::isnan(value)) return 32767;
  const double v = std::ldexp(static_cast<double>(value), step);
  if (v >= 32767.0) return 32767;
  if (v <= -32768.0) return -32768;
  return static_cast<int16_t>(std::nearbyint(v));
}

void Conv2dInt16Reference(const float* input, uint32_t in_channels, uint32_t pixels, const float* weight,
                          const float* bias, uint32_t out_channels, int32_t weight_step, int32_t input_step,
                          float* output) {
  for (uint32_t o = 0; o < out_channels; ++o) {
    for (uint32_t p = 0; p < pixels; ++p) {
      double sum = 0.0;
      for (uint32_t i = 0; i < in_channels; ++i) {
        const double x =
            std::ldexp(QuantizeInt16(input[static_cast<size_t>(i) * pixels + p], input_step), -input_step);
        const double w = std::ldexp(
            QuantizeInt16(weight[static_cast<size_t>(o) * in_channels + i], weight_step), -weight_step);
        sum += x * w;
      }
      output[static_cast<size_t>(o) * pixels + p] =
          static_cast<float>(sum) + (bias != nullptr ? bias[o] : 0.0f);
    }
  }
}

}  // namespace kernel
}  // namespace zelva
