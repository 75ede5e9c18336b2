// The denoiser of a stream: analysis, one network call per hop through the library's public C API, synthesis.
// kHop samples in, kHop samples out, delayed by kDelaySamples. One Denoiser per stream (per channel).
#pragma once

#include <cstdint>
#include <string>

#include "zelva/audio/features.h"
#include "zelva/audio/synthesis.h"

namespace zelva::audio {

class Denoiser {
 public:
  // Creates a denoise engine from the model and its kernel configuration; fused selects the hand-fused path.
  // The network must take a 1 x 7 x 80 block and give 80 gains. Throws std::runtime_error when the engine
  // cannot be created (the library logs why).
  Denoiser(const std::string& model, const std::string& config, bool fused = false);
  ~Denoiser();
  Denoiser(const Denoiser&) = delete;
  Denoiser& operator=(const Denoiser&) = delete;

  // One hop in, one hop out. Throws std::runtime_error when the engine fails.
  void Process(const float* hop_in, float* hop_out);
  // A break in the stream: the recurrent state, the analysis and the overlap start afresh.
  void Reset();

  // The band gains of the last hop, as the network gave them.
  const float* gains() const { return gains_; }

 private:
  uint32_t handle_ = 0;
  FeatureExtractor features_;
  Synthesizer synthesis_;
  float gains_[kBands] = {};
};

}  // namespace zelva::audio
