/*
 * zelva: CPU neural-network inference for real-time audio.
 *
 * Common part of the public C interface: result codes, logging controls and processor checks.
 * Every function here is plain C and never raises. See zv2_audiodenoise.h and zv2_vad.h for the engines,
 * zv2_image_process.h for the image operations, or include zv2.h for everything.
 */
#ifndef ZV2_COMMON_H_
#define ZV2_COMMON_H_

#include <stdint.h>

#if defined(_WIN32)
#if defined(ZV2_BUILDING_LIBRARY)
#define ZV2_API __declspec(dllexport)
#else
#define ZV2_API __declspec(dllimport)
#endif
#else
#define ZV2_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Result of every exported function. -2 is never produced; the gap is kept.
 */
typedef enum _ZV2_Result {
  ZV2_RESULT_OK = 0,                /* the call did what it was asked */
  ZV2_RESULT_FAILED = -1,           /* the engine failed, the slot was empty, or the entry is a stub */
  ZV2_RESULT_INVALID_ARGUMENT = -3, /* a null pointer, argc below 1, or an empty name */
  ZV2_RESULT_HANDLE_NOT_FOUND = -4  /* handle 0, beyond the table, or (destroy) not a live handle */
} _ZV2_Result;

/* Log levels are bits of a mask, not a threshold. Level 2 exists for trace lines and is never shown. */
#define ZV2_LOG_VERBOSE 1u
#define ZV2_LOG_INFO 4u
#define ZV2_LOG_WARNNING 8u
#define ZV2_LOG_ERROR 16u
#define ZV2_LOG_DEFAULT_MASK 30u

/*
 * Log sink: receives one zero-terminated line (valid only during the call); the return value is ignored.
 * It runs on the calling thread, inside the entry point and with that product family's lock held: a sink
 * must not call back into an entry of the same family (it would spin for ever).
 */
typedef int32_t (*ZV2_LogCallback)(const char* text);

/*
 * Sets the mask of shown levels. 0 returns -3 and changes nothing; any other value is stored as it is.
 * Like every logging control, it may be called from any thread at any time.
 */
ZV2_API _ZV2_Result ZV2_SetLogLevel(uint32_t mask);

/* Writes the current mask to *mask (30 in a fresh process). A null pointer returns -3. */
ZV2_API _ZV2_Result ZV2_GetLogLevel(uint32_t* mask);

/*
 * Replaces the log sink (by default: standard output, a newline, a flush). A null callback returns -1 and
 * changes nothing, so the default sink cannot be restored once replaced.
 */
ZV2_API _ZV2_Result ZV2_SetLogCallback(ZV2_LogCallback callback);

/*
 * Sets the tag in front of every line (default "ZELVA"). The text is copied. An empty text returns -1 and
 * changes nothing. `tag` must not be null.
 */
ZV2_API _ZV2_Result ZV2_SetLogTag(const char* tag);

/*
 * Returns 0 if the processor has AVX and the operating system saves the YMM state, otherwise -1.
 * Logs the processor report at the Info level on every call (under a lock of its own; any thread).
 */
ZV2_API _ZV2_Result ZV2_CheckIsaAVX(void);

/*
 * Sets bit 0 of *isa_flags when the processor has SSE; clears nothing, so initialise the variable first.
 * Always returns 0. `isa_flags` must not be null. Logs the processor report at the Info level.
 */
ZV2_API _ZV2_Result ZV2_CheckIsaSupported(uint32_t* isa_flags);

#ifdef __cplusplus
}
#endif

#endif /* ZV2_COMMON_H_ */
