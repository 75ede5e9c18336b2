// The voice-activity engine behind a VAD handle: one generic net, the first output copied to the caller,
// and statistics of its own apply time.
#pragma once

#include <cstdint>

namespace zelva {
namespace dlvad {

class VAD {
 public:
  VAD();
  ~VAD();
  VAD(const VAD&) = delete;
  VAD& operator=(const VAD&) = delete;

  // argv[0] model, argv[1] configuration; argc must be 2. 0, -3 (argument count), -8 (missing file), -1.
  int32_t Load(int32_t argc, const char** argv);
  int32_t Apply_Cpu(const void* input, void* output);
  // Not implemented: raises std::runtime_error to the caller (no catch of its own).
  int32_t Apply_Gpu();
  int32_t Reset_RNN_State_Cpu();
  // No attribute exists: both accept any name and do nothing.
  int32_t Set_Attr(const char* name, const char* value);
  int32_t Get_Attr(const char* name, void* value);

  struct PrivateMembers;

 private:
  PrivateMembers* members_;
};

}  // namespace dlvad
}  // namespace zelva
