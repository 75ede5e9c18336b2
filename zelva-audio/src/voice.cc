#include "zelva/audio/voice.h"

#include <algorithm>
#include <stdexcept>

#include "zv2.h"

namespace zelva::audio {

VoiceDetector::VoiceDetector(const std::string& model, const std::string& config) {
  const char* argv[] = {model.c_str(), config.c_str()};
  if (ZV2_Create_VAD(&handle_, 2, argv) != ZV2_RESULT_OK)
    throw std::runtime_error("cannot create a VAD engine from " + model + " and " + config);
  // One hop of silence, then back to the first state: the engine makes its working memory and the code is
  // paged in here, not on the first hop of a live stream. (Reset restores the state exactly.)
  const float silence[kHop] = {};
  Process(silence);
  Reset();
}

VoiceDetector::~VoiceDetector() {
  if (handle_ != 0) ZV2_Destory_VAD(&handle_);
}

float VoiceDetector::Process(const float* hop) {
  features_.Push(hop);
  float probability = 0.0f;
  if (ZV2_Apply_VAD_CPU(handle_, features_.vad_block(), &probability) != ZV2_RESULT_OK)
    throw std::runtime_error("the VAD engine failed");
  return probability;
}

void VoiceDetector::Reset() {
  ZV2_ReSet_VAD_RNN_State_CPU(handle_);
  features_.Reset();
}

bool Segmenter::Push(float probability, Segment* closed) {
  const int64_t hop = hop_++;
  if (probability >= threshold_) {
    if (!open_) current_.start = hop;
    open_ = true;
    last_speech_ = hop;
    return false;
  }
  return hop - last_speech_ > hangover_ && Finish(closed);
}

bool Segmenter::Finish(Segment* closed) {
  if (!open_) return false;
  open_ = false;
  current_.end = std::min(last_speech_ + hangover_ + 1, hop_);
  *closed = current_;
  return true;
}

}  // namespace zelva::audio
