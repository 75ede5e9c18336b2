#include "zelva-kit/src/audiodenoise/api_cxx_audiodenoise.h"

#include <cstring>
#include <exception>

#include "zelva/src/utility/logging.h"
#include "zelva/src/utility/string_util.h"

namespace zelva {
namespace dlaudiodenoise {

namespace {
constexpr const char* kUseHyperspecific = "UseHyperspecific";
bool IsOn(const char* value) { return value != nullptr && std::strcmp(value, "1") == 0; }
}  // namespace

struct AudioDenoise::PrivateMembers {
  bool use_hyperspecific = false;

  int32_t Load(int32_t argc, const char** argv) {
    ZV_ASSERT(argv != nullptr && argv[0] != nullptr, "Invaild model path.");
    if (argc >= 3) use_hyperspecific = IsOn(argv[2]);
    const std::string model_path(argv[0]);
    const bool json = utility::EndsWithChecked(model_path, ".json");
    (void)json;
    ZV_ASSERT(false, "reading model files is not available in this build.");
    return 0;
  }
};

AudioDenoise::AudioDenoise() : members_(new PrivateMembers()) {}
AudioDenoise::~AudioDenoise() { delete members_; }

int32_t AudioDenoise::Load(int32_t argc, const char** argv) {
  try {
    return members_->Load(argc, argv);
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise load models failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Apply_Cpu(const void* input, void* output) {
  try {
    ZV_ASSERT(input != nullptr, "Invaild input data.");
    ZV_ASSERT(output != nullptr, "Invaild output data.");
    ZV_ASSERT(false, "no network is loaded.");
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise apply cpu failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Apply_Gpu() {
  ZV_ASSERT(false, "Not Implemented.");
  return -1;
}

int32_t AudioDenoise::Reset_RNN_State_Cpu() {
  try {
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise(cpu) reset rnn state failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Set_Attr(const char* name, const char* value) {
  try {
    ZV_ASSERT(name != nullptr && value != nullptr, "Invaild attribute.");
    if (std::strcmp(name, kUseHyperspecific) == 0) members_->use_hyperspecific = IsOn(value);
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise set attribute failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Get_Attr(const char* /*name*/, void* /*value*/) {
  // The engine has no attribute to read: accepted for every name, nothing written.
  return 0;
}

}  // namespace dlaudiodenoise
}  // namespace zelva
