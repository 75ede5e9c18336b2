// Data-stream creation is not supported by either product: one function, exported under both names.
// It reads nothing, takes no lock, logs nothing and returns -1.
#include "zv2_audiodenoise.h"
#include "zv2_vad.h"

extern "C" {

_ZV2_Result ZV2_Create_AudioDenoise_DataStream(void) { return ZV2_RESULT_FAILED; }

_ZV2_Result ZV2_Create_VAD_DataStream(void) __attribute__((alias("ZV2_Create_AudioDenoise_DataStream")));

}  // extern "C"
