// Streaming synthesis: the 80 band gains of a frame and that frame's spectrum in, one hop of audio out
// (overlap-add). With unit gains the output is the input of the analysis delayed by kDelaySamples.
#pragma once

#include <complex>
#include <memory>

#include "zelva/audio/contract.h"

namespace zelva::audio {

class RealFft;

class Synthesizer {
 public:
  Synthesizer();
  ~Synthesizer();
  Synthesizer(const Synthesizer&) = delete;
  Synthesizer& operator=(const Synthesizer&) = delete;

  // Applies the gains (each clamped to [0, 1] first) to the spectrum and writes the next kHop samples.
  void Push(const float* band_gains, const std::complex<float>* spectrum, float* hop_out);
  void Reset();

 private:
  std::unique_ptr<RealFft> fft_;
  float tail_[kHop];  // second half of the previous frame's windowed output
};

// The per-bin gains of the contract: each band gain clamped to [0, 1], spread over the bins by the triangular
// band weights.
void BinGains(const float* band_gains, float* bin_gains);

}  // namespace zelva::audio
