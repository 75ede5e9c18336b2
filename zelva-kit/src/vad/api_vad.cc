// Exported VAD entry points: a table and a lock of their own, the same checks as the denoise family.
#include "zelva-kit/src/handle_table.h"
#include "zelva-kit/src/vad/api_cxx_vad.h"
#include "zv2_vad.h"

namespace {
using Table = zelva::kit::HandleTable<zelva::dlvad::VAD>;
Table& VADHandleTable() {
  static Table table;
  return table;
}
}  // namespace

extern "C" {

_ZV2_Result ZV2_Create_VAD(uint32_t* handle, int32_t argc, const char** argv) {
  return VADHandleTable().Create(ZV_CALL_SITE, handle, argc, argv);
}

_ZV2_Result ZV2_Destory_VAD(uint32_t* handle) { return VADHandleTable().Destroy(ZV_CALL_SITE, handle); }

_ZV2_Result ZV2_Apply_VAD_CPU(uint32_t handle, const void* input, void* output) {
  return VADHandleTable().ApplyCpu(ZV_CALL_SITE, handle, input, output);
}

_ZV2_Result ZV2_ReSet_VAD_RNN_State_CPU(uint32_t handle) {
  return VADHandleTable().Reset(ZV_CALL_SITE, handle);
}

_ZV2_Result ZV2_Set_VAD(uint32_t handle, const char* name, const char* value) {
  return VADHandleTable().Set(ZV_CALL_SITE, handle, name, value);
}

_ZV2_Result ZV2_Get_VAD(uint32_t handle, const char* name, void* value) {
  return VADHandleTable().Get(ZV_CALL_SITE, handle, name, value);
}

}  // extern "C"

_ZV2_Result ZV_Apply_VAD_GPU(uint32_t handle, const void* input, void* output) {
  return VADHandleTable().ApplyGpu(ZV_CALL_SITE, handle, input, output);
}
