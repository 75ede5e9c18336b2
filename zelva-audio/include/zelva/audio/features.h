// Streaming analysis: one hop of audio in, the current frame's spectrum and band features out, and the blocks
// the two networks take. A live stream and a file go through it alike, hop by hop.
#pragma once

#include <complex>
#include <memory>

#include "zelva/audio/contract.h"

namespace zelva::audio {

class RealFft;

class FeatureExtractor {
 public:
  // `keep_denoise_block` false: the VAD's use, where only the current frame's features are read and the
  // denoise block's older rows are neither kept nor valid.
  explicit FeatureExtractor(bool keep_denoise_block = true);
  ~FeatureExtractor();
  FeatureExtractor(const FeatureExtractor&) = delete;
  FeatureExtractor& operator=(const FeatureExtractor&) = delete;

  // Takes the next kHop samples: the frame is the previous hop followed by this one.
  void Push(const float* hop);
  // Back to the start of a stream: zeros before the next hop, silence in every block row.
  void Reset();

  // The current frame's kBins spectrum bins (windowed, unnormalised).
  const std::complex<float>* spectrum() const { return spectrum_; }
  // The current frame's kBands log band energies; also the VAD block (1 x 1 x 80).
  const float* features() const { return block_ + (kDenoiseRows - 1) * kBands; }
  const float* vad_block() const { return features(); }
  // The denoise block, kDenoiseRows x kBands, oldest row first; row 6 is the current frame.
  const float* denoise_block() const { return block_; }

 private:
  std::unique_ptr<RealFft> fft_;
  float previous_hop_[kHop];
  std::complex<float> spectrum_[kBins];
  float block_[kDenoiseBlock];
  bool keep_denoise_block_;
};

// Band energies -> features of the contract (log10 with the energy floor).
void BandFeatures(const std::complex<float>* spectrum, float* features);

}  // namespace zelva::audio
