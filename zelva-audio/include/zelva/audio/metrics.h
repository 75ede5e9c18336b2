// Scale-invariant signal-to-distortion ratio of an estimate against a reference, accumulated sample by sample
// so that files of any length need no more memory than a few sums. Both signals are taken with their means
// removed: SI-SDR = 10 log10(<s, y>^2 / (<s, s> <y, y> - <s, y>^2)).
#pragma once

#include <cstddef>

namespace zelva::audio {

class SiSdr {
 public:
  void Add(const float* reference, const float* estimate, size_t count);
  // In dB; -inf when the estimate holds nothing of the reference, +inf when it is the reference scaled.
  double Decibels() const;

 private:
  double n_ = 0, s_ = 0, y_ = 0, ss_ = 0, yy_ = 0, sy_ = 0;
};

}  // namespace zelva::audio
