#include "real_fft.h"

#include <kiss_fftr.h>

#include <cmath>
#include <new>

namespace zelva::audio {

static_assert(sizeof(kiss_fft_cpx) == sizeof(std::complex<float>), "kissfft must be built for float");

RealFft::RealFft()
    : forward_(kiss_fftr_alloc(kFftSize, 0, nullptr, nullptr)),
      inverse_(kiss_fftr_alloc(kFftSize, 1, nullptr, nullptr)) {
  if (forward_ == nullptr || inverse_ == nullptr) {
    kiss_fftr_free(forward_);
    kiss_fftr_free(inverse_);
    throw std::bad_alloc();
  }
}

RealFft::~RealFft() {
  kiss_fftr_free(forward_);
  kiss_fftr_free(inverse_);
}

void RealFft::Forward(const float* time, std::complex<float>* bins) {
  kiss_fftr(static_cast<kiss_fftr_cfg>(forward_), time, reinterpret_cast<kiss_fft_cpx*>(bins));
}

void RealFft::Inverse(const std::complex<float>* bins, float* time) {
  kiss_fftri(static_cast<kiss_fftr_cfg>(inverse_), reinterpret_cast<const kiss_fft_cpx*>(bins), time);
  for (int n = 0; n < kFftSize; ++n) time[n] *= 1.0f / kFftSize;
}

const float* Window() {
  static const auto* window = [] {
    auto* w = new float[kFrame];
    for (int n = 0; n < kFrame; ++n) w[n] = static_cast<float>(std::sin(M_PI * (n + 0.5) / kFrame));
    return w;
  }();
  return window;
}

const BinBands* BinBandTable() {
  static const auto* table = [] {
    auto* t = new BinBands[kBins];
    for (int b = 0; b + 1 < kBands; ++b) {
      const int c0 = kBandCenter[b], c1 = kBandCenter[b + 1];
      for (int k = c0; k <= c1; ++k) {
        const double w = static_cast<double>(k - c0) / (c1 - c0);
        if (k < c1 || b + 2 == kBands) t[k] = {b, static_cast<float>(1.0 - w), static_cast<float>(w)};
      }
    }
    return t;
  }();
  return table;
}

}  // namespace zelva::audio
