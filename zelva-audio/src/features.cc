#include "zelva/audio/features.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "real_fft.h"

namespace zelva::audio {

FeatureExtractor::FeatureExtractor() : fft_(std::make_unique<RealFft>()) {
  Reset();
}

FeatureExtractor::~FeatureExtractor() = default;

void FeatureExtractor::Reset() {
  std::fill(previous_hop_, previous_hop_ + kHop, 0.0f);
  std::fill(spectrum_, spectrum_ + kBins, std::complex<float>());
  std::fill(block_, block_ + kDenoiseBlock, kSilenceFeature);
}

void FeatureExtractor::Push(const float* hop) {
  const float* window = Window();
  float frame[kFrame];
  for (int n = 0; n < kHop; ++n) {
    frame[n] = previous_hop_[n] * window[n];
    frame[kHop + n] = hop[n] * window[kHop + n];
  }
  std::memcpy(previous_hop_, hop, sizeof(previous_hop_));
  fft_->Forward(frame, spectrum_);
  std::memmove(block_, block_ + kBands, sizeof(float) * (kDenoiseRows - 1) * kBands);
  BandFeatures(spectrum_, block_ + (kDenoiseRows - 1) * kBands);
}

void BandFeatures(const std::complex<float>* spectrum, float* features) {
  const BinBands* bands = BinBandTable();
  double energy[kBands] = {};
  for (int k = 0; k < kBins; ++k) {
    const double re = spectrum[k].real(), im = spectrum[k].imag();
    const double power = re * re + im * im;
    energy[bands[k].band] += bands[k].lower * power;
    energy[bands[k].band + 1] += bands[k].upper * power;
  }
  for (int b = 0; b < kBands; ++b) features[b] = static_cast<float>(std::log10(energy[b] + kEnergyFloor));
}

}  // namespace zelva::audio
