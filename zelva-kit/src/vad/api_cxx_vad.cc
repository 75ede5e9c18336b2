#include "zelva-kit/src/vad/api_cxx_vad.h"

#include <cstdio>
#include <exception>
#include <string>

#include "zelva/src/utility/logging.h"
#include "zelva/src/utility/string_util.h"

namespace zelva {
namespace dlvad {

namespace {
// Paths are UTF-8; on this platform the narrow open takes them as they are.
bool CanOpenForReading(const char* path) {
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  std::fclose(file);
  return true;
}
}  // namespace

struct VAD::PrivateMembers {
  int32_t Load(int32_t argc, const char** argv) {
    if (argc != 2) {
      ZV_LOG_ERROR("VAD::Invalid parameter num.");
      return -3;
    }
    ZV_ASSERT(argv != nullptr && argv[0] != nullptr && argv[1] != nullptr, "Invaild model or config path.");
    if (!CanOpenForReading(argv[0])) {
      ZV_LOG_ERROR("Load Model occur err: file %s not found", argv[0]);
      return -8;
    }
    const std::string model_path(argv[0]);
    const bool json = utility::EndsWithChecked(model_path, ".json");
    (void)json;
    ZV_ASSERT(false, "reading model files is not available in this build.");
    return 0;
  }
};

VAD::VAD() : members_(new PrivateMembers()) {}
VAD::~VAD() { delete members_; }

int32_t VAD::Load(int32_t argc, const char** argv) {
  try {
    return members_->Load(argc, argv);
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD load models failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Apply_Cpu(const void* input, void* output) {
  try {
    ZV_ASSERT(input != nullptr, "Invaild I/O data: i_src must not be nullptr.");
    ZV_ASSERT(output != nullptr, "Invaild I/O data: o_dst must not be nullptr.");
    ZV_ASSERT(false, "no network is loaded.");
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD apply cpu failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Apply_Gpu() {
  ZV_ASSERT(false, "Not Implemented.");
  return -1;
}

int32_t VAD::Reset_RNN_State_Cpu() {
  try {
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD(cpu) reset rnn state failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Set_Attr(const char* /*name*/, const char* /*value*/) { return 0; }
int32_t VAD::Get_Attr(const char* /*name*/, void* /*value*/) { return 0; }

}  // namespace dlvad
}  // namespace zelva
