// Exported logging controls: the host's side of the logger (zelva/src/utility/logging).
#include "zelva/src/utility/logging.h"
#include "zv2_common.h"

extern "C" {

_ZV2_Result ZV2_SetLogLevel(uint32_t mask) {
  if (mask == 0) return ZV2_RESULT_INVALID_ARGUMENT;
  zelva::utility::SetLogLevelMask(mask);
  return ZV2_RESULT_OK;
}

_ZV2_Result ZV2_GetLogLevel(uint32_t* mask) {
  if (mask == nullptr) return ZV2_RESULT_INVALID_ARGUMENT;
  *mask = zelva::utility::GetLogLevelMask();
  return ZV2_RESULT_OK;
}

_ZV2_Result ZV2_SetLogCallback(ZV2_LogCallback callback) {
  if (callback == nullptr) return ZV2_RESULT_FAILED;
  zelva::utility::SetLogCallback(callback);
  return ZV2_RESULT_OK;
}

_ZV2_Result ZV2_SetLogTag(const char* tag) {
  // The tag pointer itself is the host's contract; an empty text is refused.
  if (tag == nullptr || tag[0] == '\0') return ZV2_RESULT_FAILED;
  zelva::utility::SetLogTag(tag);
  return ZV2_RESULT_OK;
}

}  // extern "C"
