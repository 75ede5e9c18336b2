/*
 * zelva streams: many independent audio streams on one loaded model.
 *
 * A model is loaded once and shared read-only by every stream created from it; a stream holds only what
 * must persist from block to block. Plain C; no function raises.
 *
 * Two kinds of model:
 *   - the fused denoise network (1 x 7 x 80 floats in, 80 floats out per block): its weights are loaded once
 *     and never copied; a stream is its three recurrent hidden vectors (ZVS_StreamBytes). Blocks of several
 *     streams can be applied in one pass over the weights (ZVS_ApplyBatch). Every output is bit for bit
 *     what the denoise engine's fused path (ZV2_Apply_AudioDenoise_CPU with "UseHyperspecific" "1") gives for
 *     the same model and blocks.
 *   - any other model the denoise engine runs (generic): each stream builds its own net from the model's
 *     files, exactly as a denoise engine does, and its blocks are that engine's blocks.
 *
 * Ownership: ZVS_LoadModel returns a model the caller releases with ZVS_ReleaseModel; ZVS_CreateStream
 * returns a stream the caller destroys with ZVS_DestroyStream. A stream keeps its model alive: a model may
 * be released while streams of it live, and its memory goes with the last of them. Buffers passed to a call
 * stay the caller's; none is kept after the call returns.
 *
 * Threads: there is no process-wide lock. A stream is used by one thread at a time (the caller ensures it);
 * different streams, of one model or of several, may be used on different threads at the same time. Loading,
 * releasing, creating and destroying may run on any thread, except that a stream must not be destroyed while
 * another thread uses it. The working memory of a block is kept per thread (about 90 KiB for ZVS_Apply,
 * plus about 6.5 KiB per stream of the largest batch a thread has run), allocated on a thread's first call
 * and reused after that.
 *
 * What the calls check: null pointers, a zero count, float buffers that are not aligned to 4 bytes, a batch
 * mixing models, a batch holding one stream twice, a batch of a generic model. What they cannot tell: a
 * buffer shorter than a block, buffers that overlap (an output must not overlap an input, another output or
 * any stream), a pointer that is not a live stream or model (one already destroyed or released included),
 * and two threads using one stream at once.
 *
 * On failure a call returns a negative code and leaves nothing changed (a failed ZVS_ApplyBatch has applied
 * no block); ZVS_LastError then returns a message for the calling thread's last failure.
 */
#ifndef ZELVA_STREAM_H_
#define ZELVA_STREAM_H_

#include <stddef.h>
#include <stdint.h>

#define ZVS_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZVS_Model ZVS_Model;
typedef struct ZVS_Stream ZVS_Stream;

typedef enum ZVS_Result {
  ZVS_OK = 0,
  ZVS_ERROR_INVALID_ARGUMENT = -1, /* a null pointer or a zero count */
  ZVS_ERROR_MISALIGNED = -2,       /* a float buffer not aligned to 4 bytes */
  ZVS_ERROR_LOAD_FAILED = -3,      /* the model or configuration could not be read or built */
  ZVS_ERROR_OUT_OF_MEMORY = -4,
  ZVS_ERROR_MIXED_MODELS = -5,     /* a batch holds streams of different models */
  ZVS_ERROR_DUPLICATE_STREAM = -6, /* a batch holds one stream twice */
  ZVS_ERROR_NOT_FUSED = -7,        /* a batch of streams of a generic model */
  ZVS_ERROR_FAILED = -8            /* a generic model's engine failed on a block */
} ZVS_Result;

/* Floats per block of the fused network. */
#define ZVS_FUSED_INPUT_FLOATS 560
#define ZVS_FUSED_OUTPUT_FLOATS 80

/*
 * Loads a model. `fused` non-zero: the fused denoise network from the weights of `model_path` (the
 * configuration is not read and may be null). `fused` zero: a generic model; `config_path` is required, and
 * both files are read again by each stream. A path ending in ".json" is JSON, anything else binary (whose
 * weights the denoise engine reads as half precision). On success *model is set.
 */
ZVS_API ZVS_Result ZVS_LoadModel(const char* model_path, const char* config_path, int fused,
                                 ZVS_Model** model);

/* Gives up the caller's reference; the model lives on while streams of it do. A null model is accepted. */
ZVS_API void ZVS_ReleaseModel(ZVS_Model* model);

/* 1 for the fused network, 0 for a generic model or a null pointer. */
ZVS_API int ZVS_ModelIsFused(const ZVS_Model* model);

/* How the fused network runs on this processor ("sse fp32", "avx2+f16c half", ...); "generic" otherwise. */
ZVS_API const char* ZVS_ModelVariant(const ZVS_Model* model);

/* Bytes one stream of the model holds beyond the shared model (the fused network only; 0 otherwise). */
ZVS_API size_t ZVS_StreamBytes(const ZVS_Model* model);

/* Creates a stream in its reset state. On success *stream is set. */
ZVS_API ZVS_Result ZVS_CreateStream(ZVS_Model* model, ZVS_Stream** stream);

/* Destroys a stream (and its model, if it was the last reference). A null stream is accepted. */
ZVS_API void ZVS_DestroyStream(ZVS_Stream* stream);

/* Applies one block: reads the input block, updates the stream, writes the output block. */
ZVS_API ZVS_Result ZVS_Apply(ZVS_Stream* stream, const float* input, float* output);

/*
 * Applies one block to each of `count` streams of one fused model: inputs[i] to streams[i], written to
 * outputs[i]. Each stream's output and state are bit for bit those of ZVS_Apply. The streams must be
 * distinct and of the same model. Checked before any block runs.
 */
ZVS_API ZVS_Result ZVS_ApplyBatch(ZVS_Stream* const* streams, const float* const* inputs,
                                  float* const* outputs, size_t count);

/* Clears the stream's recurrent state, as a new stream's. */
ZVS_API ZVS_Result ZVS_Reset(ZVS_Stream* stream);

/* The message of the calling thread's last failed call ("" if none); valid until its next call. */
ZVS_API const char* ZVS_LastError(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZELVA_STREAM_H_ */
