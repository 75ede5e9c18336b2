// The exported logging controls: thin wrappers over the logger's state.
#include "zelva/src/utility/logging.h"
#include "zv2_common.h"

extern "C" {

ZV2_API _ZV2_Result ZV2_SetLogLevel(uint32_t mask) {
  if (mask == 0) return ZV2_RESULT_INVALID_ARGUMENT;
  zelva::utility::SetLogLevelMask(mask);
  return ZV2_RESULT_OK;
}

ZV2_API _ZV2_Result ZV2_GetLogLevel(uint32_t* mask) {
  if (mask == nullptr) return ZV2_RESULT_INVALID_ARGUMENT;
  *mask = zelva::utility::GetLogLevelMask();
  return ZV2_RESULT_OK;
}

ZV2_API _ZV2_Result ZV2_SetLogCallback(ZV2_LogCallback callback) {
  if (callback == nullptr) return ZV2_RESULT_FAILED;
  zelva::utility::SetLogCallback(callback);
  return ZV2_RESULT_OK;
}

ZV2_API _ZV2_Result ZV2_SetLogTag(const char* tag) {
  ZV_ASSERT(tag != nullptr, "log tag is null.");
  if (tag[0] == '\0') return ZV2_RESULT_FAILED;
  zelva::utility::SetLogTag(tag);
  return ZV2_RESULT_OK;
}

}  // extern "C"
