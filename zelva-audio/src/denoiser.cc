#include "zelva/audio/denoiser.h"

#include <stdexcept>

#include "zv2.h"

namespace zelva::audio {

Denoiser::Denoiser(const std::string& model, const std::string& config, bool fused) {
  const char* argv[] = {model.c_str(), config.c_str(), "1"};
  if (ZV2_Create_AudioDenoise(&handle_, fused ? 3 : 2, argv) != ZV2_RESULT_OK)
    throw std::runtime_error("cannot create a denoise engine from " + model + " and " + config);
  // One hop of silence, then back to the first state: the engine makes its working memory and the code is
  // paged in here, not on the first hop of a live stream. (Reset restores the state exactly.)
  const float silence[kHop] = {};
  float out[kHop];
  Process(silence, out);
  Reset();
}

Denoiser::~Denoiser() {
  if (handle_ != 0) ZV2_Destory_AudioDenoise(&handle_);
}

void Denoiser::Process(const float* hop_in, float* hop_out) {
  features_.Push(hop_in);
  if (ZV2_Apply_AudioDenoise_CPU(handle_, features_.denoise_block(), gains_) != ZV2_RESULT_OK)
    throw std::runtime_error("the denoise engine failed");
  synthesis_.Push(gains_, features_.spectrum(), hop_out);
}

void Denoiser::Reset() {
  ZV2_ReSet_AudioDenoise_RNN_State_CPU(handle_);
  features_.Reset();
  synthesis_.Reset();
}

}  // namespace zelva::audio
