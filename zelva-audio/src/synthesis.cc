#include "zelva/audio/synthesis.h"

#include <algorithm>

#include "real_fft.h"

namespace zelva::audio {

Synthesizer::Synthesizer() : fft_(std::make_unique<RealFft>()) {
  Reset();
}

Synthesizer::~Synthesizer() = default;

void Synthesizer::Reset() {
  std::fill(tail_, tail_ + kHop, 0.0f);
}

void BinGains(const float* band_gains, float* bin_gains) {
  const BinBands* bands = BinBandTable();
  float g[kBands];
  // max then min: a NaN gain becomes 0.
  for (int b = 0; b < kBands; ++b) g[b] = std::min(band_gains[b] > 0.0f ? band_gains[b] : 0.0f, 1.0f);
  for (int k = 0; k < kBins; ++k) {
    const int b = bands[k].band;
    bin_gains[k] = g[b] * bands[k].lower + g[b + 1] * bands[k].upper;
  }
}

void Synthesizer::Push(const float* band_gains, const std::complex<float>* spectrum, float* hop_out) {
  float gains[kBins];
  BinGains(band_gains, gains);
  std::complex<float> masked[kBins];
  for (int k = 0; k < kBins; ++k) masked[k] = spectrum[k] * gains[k];
  float frame[kFrame];
  fft_->Inverse(masked, frame);
  const float* window = Window();
  for (int n = 0; n < kHop; ++n) {
    hop_out[n] = tail_[n] + frame[n] * window[n];
    tail_[n] = frame[kHop + n] * window[kHop + n];
  }
}

}  // namespace zelva::audio
