// The denoise engine behind a denoise handle: owns a model, the generic net built from it and, on request,
// the hand-fused network. One Apply_Cpu call takes one block of features and writes one block of output.
#pragma once

#include <cstdint>

namespace zelva {
namespace dlaudiodenoise {

class AudioDenoise {
 public:
  AudioDenoise();
  ~AudioDenoise();
  AudioDenoise(const AudioDenoise&) = delete;
  AudioDenoise& operator=(const AudioDenoise&) = delete;

  // argv[0] model, argv[1] configuration, argv[2] (argc >= 3) "UseHyperspecific". 0 or -1.
  int32_t Load(int32_t argc, const char** argv);
  int32_t Apply_Cpu(const void* input, void* output);
  // Not implemented: raises std::runtime_error to the caller (no catch of its own).
  int32_t Apply_Gpu();
  int32_t Reset_RNN_State_Cpu();
  int32_t Set_Attr(const char* name, const char* value);
  int32_t Get_Attr(const char* name, void* value);

  struct PrivateMembers;

 private:
  PrivateMembers* members_;
};

}  // namespace dlaudiodenoise
}  // namespace zelva
