// The 320-point real FFT of the contract on the packaged kissfft (float): forward unnormalised, inverse
// divided by the size.
#pragma once

#include <complex>

#include "zelva/audio/contract.h"

namespace zelva::audio {

class RealFft {
 public:
  RealFft();
  ~RealFft();
  RealFft(const RealFft&) = delete;
  RealFft& operator=(const RealFft&) = delete;

  // kFftSize samples -> kBins bins.
  void Forward(const float* time, std::complex<float>* bins);
  // kBins bins -> kFftSize samples (the imaginary parts of the first and last bin are ignored).
  void Inverse(const std::complex<float>* bins, float* time);

 private:
  void* forward_;
  void* inverse_;
};

// The analysis and synthesis window of the contract.
const float* Window();

// Every bin lies between the centres of two neighbouring bands b and b + 1 and belongs to them with the
// weights lower and upper (which sum to 1).
struct BinBands {
  int band;
  float lower, upper;
};
const BinBands* BinBandTable();

}  // namespace zelva::audio
