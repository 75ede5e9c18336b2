/*
 * zelva: the voice-activity engine's C interface.
 *
 * Same shape as the denoise interface (zv2_audiodenoise.h), with a table and a lock of its own: VAD handles
 * are numbered apart from denoise handles, and a VAD call never waits for a denoise call.
 * Threads: all VAD entries share one lock, taken by spinning and held for the whole call.
 * Ownership: the library owns engines; the host owns every buffer it passes, for the length of the call.
 */
#ifndef ZV2_VAD_H_
#define ZV2_VAD_H_

#include "zv2_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Creates and loads an engine and writes its handle to *handle. argc must be exactly 2:
 *   argv[0]  model file (".json" for JSON, anything else binary at full precision)
 *   argv[1]  kernel configuration file (".json" or binary)
 * Returns 0; -3 if argc < 1; -1 if loading failed (wrong argc, a missing file, a bad file), with the
 * engine's own Error line before "load model failed.". On failure *handle is not touched.
 */
ZV2_API _ZV2_Result ZV2_Create_VAD(uint32_t* handle, int32_t argc, const char** argv);

/* Not supported: reads nothing, logs nothing, always returns -1. */
ZV2_API _ZV2_Result ZV2_Create_VAD_DataStream(void);

/* Destroys the engine named by *handle and writes 0 there. Codes as ZV2_Destory_AudioDenoise. */
ZV2_API _ZV2_Result ZV2_Destory_VAD(uint32_t* handle);

/*
 * Runs one block: `input` float32 features, `output` receives the model's first output. Checks in order:
 * input null -3, output null -3, handle 0/beyond -4, empty slot -1. Engine failure -1.
 * Every 250th successful apply logs the mean apply time at the Verbose level.
 */
ZV2_API _ZV2_Result ZV2_Apply_VAD_CPU(uint32_t handle, const void* input, void* output);

/* Clears the recurrent state. Codes as ZV2_ReSet_AudioDenoise_RNN_State_CPU. */
ZV2_API _ZV2_Result ZV2_ReSet_VAD_RNN_State_CPU(uint32_t handle);

/* The VAD engine has no attribute: any name is accepted and ignored (argument checks as for denoise). */
ZV2_API _ZV2_Result ZV2_Set_VAD(uint32_t handle, const char* name, const char* value);

/* The VAD engine has no attribute: writes nothing, returns 0 (argument checks as for denoise). */
ZV2_API _ZV2_Result ZV2_Get_VAD(uint32_t handle, const char* name, void* value);

#ifdef __cplusplus
}

/*
 * Not implemented. Bad arguments give -3 or -4; a valid handle raises std::runtime_error out of the library
 * and leaves the VAD lock held for good. Do not call it with a valid handle.
 */
ZV2_API _ZV2_Result ZV_Apply_VAD_GPU(uint32_t handle, const void* input, void* output);
#endif

#endif /* ZV2_VAD_H_ */
