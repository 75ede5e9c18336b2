// Exported denoise entry points: handles to engines, argument checks, result codes.
#include "zelva-kit/src/audiodenoise/api_cxx_audiodenoise.h"
#include "zelva-kit/src/handle_table.h"
#include "zv2_audiodenoise.h"

namespace {
using Table = zelva::kit::HandleTable<zelva::dlaudiodenoise::AudioDenoise>;
Table& AudioDenoiseHandleTable() {
  static Table table;
  return table;
}
}  // namespace

extern "C" {

_ZV2_Result ZV2_Create_AudioDenoise(uint32_t* handle, int32_t argc, const char** argv) {
  return AudioDenoiseHandleTable().Create(ZV_CALL_SITE, handle, argc, argv);
}

_ZV2_Result ZV2_Destory_AudioDenoise(uint32_t* handle) {
  return AudioDenoiseHandleTable().Destroy(ZV_CALL_SITE, handle);
}

_ZV2_Result ZV2_Apply_AudioDenoise_CPU(uint32_t handle, const void* input, void* output) {
  return AudioDenoiseHandleTable().ApplyCpu(ZV_CALL_SITE, handle, input, output);
}

_ZV2_Result ZV2_ReSet_AudioDenoise_RNN_State_CPU(uint32_t handle) {
  return AudioDenoiseHandleTable().Reset(ZV_CALL_SITE, handle);
}

_ZV2_Result ZV2_Set_AudioDenoise(uint32_t handle, const char* name, const char* value) {
  return AudioDenoiseHandleTable().Set(ZV_CALL_SITE, handle, name, value);
}

_ZV2_Result ZV2_Get_AudioDenoise(uint32_t handle, const char* name, void* value) {
  return AudioDenoiseHandleTable().Get(ZV_CALL_SITE, handle, name, value);
}

}  // extern "C"

_ZV2_Result ZV_Apply_AudioDenoise_GPU(uint32_t handle, const void* input, void* output) {
  return AudioDenoiseHandleTable().ApplyGpu(ZV_CALL_SITE, handle, input, output);
}
