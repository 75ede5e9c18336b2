#include "zelva/audio/stream.h"

#include <algorithm>
#include <utility>

namespace zelva::audio {

HopStream::HopStream(Process process, int delay_samples)
    : process_(std::move(process)), delay_(delay_samples) {
  Reset();
}

void HopStream::Reset() {
  filled_ = 0;
  written_ = 0;
  emitted_ = 0;
  skip_ = delay_;
}

void HopStream::RunHop(std::vector<float>* out) {
  float hop_out[kHop];
  process_(pending_, hop_out);
  filled_ = 0;
  const int64_t drop = std::min<int64_t>(skip_, kHop);
  skip_ -= drop;
  // Never more than the input holds: the zeros of Finish give nothing beyond its end.
  const int64_t keep = std::min<int64_t>(kHop - drop, written_ - emitted_);
  out->insert(out->end(), hop_out + drop, hop_out + drop + keep);
  emitted_ += keep;
}

void HopStream::Write(const float* in, size_t count, std::vector<float>* out) {
  while (count > 0) {
    const int take = static_cast<int>(std::min<size_t>(count, kHop - filled_));
    std::copy(in, in + take, pending_ + filled_);
    filled_ += take;
    written_ += take;
    in += take;
    count -= take;
    if (filled_ == kHop) RunHop(out);
  }
}

void HopStream::Finish(std::vector<float>* out) {
  while (emitted_ < written_) {
    std::fill(pending_ + filled_, pending_ + kHop, 0.0f);
    RunHop(out);
  }
}

}  // namespace zelva::audio
