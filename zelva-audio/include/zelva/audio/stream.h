// Runs of samples of any length in, for a processor that works a hop at a time. The processor's output lags
// its input by a fixed delay, which the stream takes out: output sample n belongs to input sample n, and
// after Finish the output is exactly as long as the input. Live and file input go through it alike: each
// Write gives back every sample that is ready.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "zelva/audio/contract.h"

namespace zelva::audio {

class HopStream {
 public:
  using Process = std::function<void(const float* hop_in, float* hop_out)>;
  HopStream(Process process, int delay_samples);

  // Appends count samples; appends to *out the output samples that are ready.
  void Write(const float* in, size_t count, std::vector<float>* out);
  // The end of the input: pushes zeros through until every input sample has come out.
  void Finish(std::vector<float>* out);
  // Back to the start (the processor's own state is the caller's).
  void Reset();

 private:
  void RunHop(std::vector<float>* out);

  Process process_;
  int delay_;
  float pending_[kHop];
  int filled_ = 0;
  int64_t written_ = 0;  // input samples taken
  int64_t emitted_ = 0;  // output samples given back
  int64_t skip_ = 0;     // leading output samples still to drop
};

}  // namespace zelva::audio
