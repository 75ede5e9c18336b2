/*
 * zelva: the denoise engine's C interface.
 *
 * One handle follows one audio stream: the engine keeps recurrent state from block to block.
 * Threads: any thread may call any entry. All denoise entries share one process-wide lock, taken by spinning
 * and held for the whole call (loading and inference included), so at most one denoise call runs at a time,
 * across all handles. Denoise and VAD calls do not block each other.
 * Ownership: the library owns engines; the host owns every buffer it passes, for the length of the call.
 * Every failure is logged at the Error level (see zv2_common.h) and answered with a code.
 */
#ifndef ZV2_AUDIODENOISE_H_
#define ZV2_AUDIODENOISE_H_

#include "zv2_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Creates and loads an engine and writes its handle (never 0) to *handle.
 *   argv[0]  model file (".json" for JSON, anything else is read as binary with half-precision weights)
 *   argv[1]  kernel configuration file (".json" or binary)
 *   argv[2]  optional, when argc >= 3: exactly "1" selects the hand-fused path (1 x 7 x 80 floats in,
 *            80 floats out); any other text leaves the generic path.
 * Returns 0; -3 if argc < 1 ("argc(%d) must be > 0."); -1 if loading failed ("load model failed.").
 * On failure *handle is not touched. Handles of destroyed engines are reused, last freed first.
 */
ZV2_API _ZV2_Result ZV2_Create_AudioDenoise(uint32_t* handle, int32_t argc, const char** argv);

/* Not supported: reads nothing, logs nothing, always returns -1. */
ZV2_API _ZV2_Result ZV2_Create_AudioDenoise_DataStream(void);

/*
 * Destroys the engine named by *handle and writes 0 to *handle.
 * Returns 0; -4 if *handle is 0 or beyond the table ("handle(%u) not found.") or not live
 * ("handle(%u) mismatched."); -1 if its slot is empty ("context is NULL.").
 */
ZV2_API _ZV2_Result ZV2_Destory_AudioDenoise(uint32_t* handle);

/*
 * Runs one block. `input` holds the block of float32 features (the model's input shape), `output` receives
 * the model's first output (80 floats on the fused path); the caller sizes both.
 * Checks in order: input null -3, output null -3, handle 0/beyond -4, empty slot -1. Engine failure -1.
 */
ZV2_API _ZV2_Result ZV2_Apply_AudioDenoise_CPU(uint32_t handle, const void* input, void* output);

/*
 * Clears the recurrent state (call at a break in the stream). After it, the next block gives the result the
 * first block after creation gave. Returns 0, -4 / -1 for handle problems, -1 on engine failure.
 */
ZV2_API _ZV2_Result ZV2_ReSet_AudioDenoise_RNN_State_CPU(uint32_t handle);

/*
 * Sets an attribute. The one attribute is "UseHyperspecific": "1" selects the fused path, anything else the
 * generic path; other names are ignored. Checks in order: name null or empty -3, value null -3, handle -4/-1.
 * The fused path needs an engine created with argv[2] = "1": switching it on later makes the next apply or
 * reset fail with -1 until it is switched off again.
 */
ZV2_API _ZV2_Result ZV2_Set_AudioDenoise(uint32_t handle, const char* name, const char* value);

/* Accepted for any name; writes nothing and returns 0 (checks as for ZV2_Set_AudioDenoise). */
ZV2_API _ZV2_Result ZV2_Get_AudioDenoise(uint32_t handle, const char* name, void* value);

#ifdef __cplusplus
}

/*
 * GPU processing is not implemented. With bad arguments it returns -3 or -4 like the CPU entry; with a valid
 * handle it raises std::runtime_error("... Not Implemented.") out of the library and leaves the denoise lock
 * held, so every later denoise call of the process spins for ever. Do not call it with a valid handle.
 */
ZV2_API _ZV2_Result ZV_Apply_AudioDenoise_GPU(uint32_t handle, const void* input, void* output);
#endif

#endif /* ZV2_AUDIODENOISE_H_ */
