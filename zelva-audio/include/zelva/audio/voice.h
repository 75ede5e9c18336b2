// Voice activity of a stream: one probability per hop from the VAD network, and a segmenter that turns the
// probabilities into speech segments with a threshold and a hangover.
#pragma once

#include <cstdint>
#include <string>

#include "zelva/audio/features.h"

namespace zelva::audio {

class VoiceDetector {
 public:
  // Creates a VAD engine; the network must take 1 x 1 x 80 features and give one probability. Throws
  // std::runtime_error when the engine cannot be created (the library logs why).
  VoiceDetector(const std::string& model, const std::string& config);
  ~VoiceDetector();
  VoiceDetector(const VoiceDetector&) = delete;
  VoiceDetector& operator=(const VoiceDetector&) = delete;

  // The probability that this hop holds speech. Throws std::runtime_error when the engine fails.
  float Process(const float* hop);
  void Reset();

 private:
  uint32_t handle_ = 0;
  FeatureExtractor features_{false};
};

// Hops [start, end) of one stretch of speech.
struct Segment {
  int64_t start = 0, end = 0;
};

// A hop is speech when its probability reaches the threshold; speech stays on for `hangover` hops after the
// last such hop, so gaps up to the hangover are bridged and every segment ends `hangover` hops after its last
// speech hop (or at the end of the stream).
class Segmenter {
 public:
  Segmenter(float threshold, int64_t hangover_hops) : threshold_(threshold), hangover_(hangover_hops) {}
  // Feeds the next hop's probability; true when a segment closed with it (written to *closed).
  bool Push(float probability, Segment* closed);
  // The end of the stream; true when a segment was still open.
  bool Finish(Segment* closed);

 private:
  float threshold_;
  int64_t hangover_;
  int64_t hop_ = 0;
  bool open_ = false;
  Segment current_;
  int64_t last_speech_ = 0;
};

}  // namespace zelva::audio
