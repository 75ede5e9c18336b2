// Streams on a shared model: the fused network's weights are read by every stream and written by none; a
// stream of a generic model owns a denoise engine of its own. No lock anywhere: a stream is one thread's at a
// time, the shared model is read-only after load, and the reference count is atomic (std::shared_ptr).
#include "zelva/stream.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "zelva-kit/src/audiodenoise/api_cxx_audiodenoise.h"
#include "zelva-kit/src/audiodenoise/revolver.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/string_util.h"

namespace {

using hyperspecific::audiodenoise_v4_final_cpu_sse::Revolver;
using hyperspecific::audiodenoise_v4_final_cpu_sse::RevolverBatchScratch;
using hyperspecific::audiodenoise_v4_final_cpu_sse::RevolverScratch;
using hyperspecific::audiodenoise_v4_final_cpu_sse::RevolverState;
using zelva::dlaudiodenoise::AudioDenoise;

// What every stream of one load shares.
struct Core {
  std::unique_ptr<const Revolver> revolver;  // the fused network, or null for a generic model
  std::string model_path;
  std::string config_path;
};

thread_local std::string last_error;

ZVS_Result Fail(ZVS_Result code, const char* format, ...) __attribute__((format(printf, 2, 3)));
ZVS_Result Fail(ZVS_Result code, const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  last_error = text;
  return code;
}

bool Misaligned(const void* p) {
  return reinterpret_cast<uintptr_t>(p) % alignof(float) != 0;
}

// One block's scratch per thread, made on the thread's first fused block.
RevolverScratch* ThreadScratch() {
  struct Holder {
    RevolverScratch* scratch = nullptr;
    ~Holder() { delete scratch; }
  };
  thread_local Holder holder;
  if (holder.scratch == nullptr) holder.scratch = new (std::nothrow) RevolverScratch();
  return holder.scratch;
}

RevolverBatchScratch& ThreadBatchScratch() {
  thread_local RevolverBatchScratch scratch;
  return scratch;
}

const char* FileFormat(const std::string& path) {
  return zelva::utility::EndsWithChecked(path, ".json") ? "json" : "bin";
}

}  // namespace

struct ZVS_Model {
  std::shared_ptr<const Core> core;
};

struct ZVS_Stream {
  RevolverState state;
  std::shared_ptr<const Core> core;
  std::unique_ptr<AudioDenoise> engine;  // a generic model's own engine
};

extern "C" {

ZVS_Result ZVS_LoadModel(const char* model_path, const char* config_path, int fused, ZVS_Model** model) {
  if (model == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_LoadModel: model is null.");
  if (model_path == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_LoadModel: model_path is null.");
  if (!fused && config_path == nullptr) {
    return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_LoadModel: a generic model needs config_path.");
  }
  try {
    auto core = std::make_shared<Core>();
    core->model_path = model_path;
    if (config_path != nullptr) core->config_path = config_path;
    if (fused) {
      auto info = std::make_shared<zelva::runtime::ZVModelInfo>();
      info->FromFile(core->model_path, FileFormat(core->model_path));
      core->revolver = std::make_unique<const Revolver>(info);  // the variant the denoise engine picks
    } else {
      // Build one engine now, so that a bad model fails here rather than at the first stream.
      AudioDenoise probe;
      const char* argv[] = {model_path, config_path};
      if (probe.Load(2, argv) != 0) {
        return Fail(ZVS_ERROR_LOAD_FAILED, "ZVS_LoadModel: the denoise engine could not load %s with %s.",
                    model_path, config_path);
      }
    }
    *model = new ZVS_Model{std::move(core)};
    return ZVS_OK;
  } catch (const std::bad_alloc&) {
    return Fail(ZVS_ERROR_OUT_OF_MEMORY, "ZVS_LoadModel: out of memory.");
  } catch (const std::exception& e) {
    return Fail(ZVS_ERROR_LOAD_FAILED, "ZVS_LoadModel: %s", e.what());
  }
}

void ZVS_ReleaseModel(ZVS_Model* model) {
  delete model;
}

int ZVS_ModelIsFused(const ZVS_Model* model) {
  return model != nullptr && model->core->revolver != nullptr ? 1 : 0;
}

const char* ZVS_ModelVariant(const ZVS_Model* model) {
  if (model == nullptr || model->core->revolver == nullptr) return "generic";
  return model->core->revolver->variant().Name();
}

size_t ZVS_StreamBytes(const ZVS_Model* model) {
  return ZVS_ModelIsFused(model) ? sizeof(ZVS_Stream) : 0;
}

ZVS_Result ZVS_CreateStream(ZVS_Model* model, ZVS_Stream** stream) {
  if (model == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_CreateStream: model is null.");
  if (stream == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_CreateStream: stream is null.");
  try {
    std::unique_ptr<ZVS_Stream> created(new ZVS_Stream());
    created->core = model->core;
    if (model->core->revolver == nullptr) {
      created->engine = std::make_unique<AudioDenoise>();
      const char* argv[] = {model->core->model_path.c_str(), model->core->config_path.c_str()};
      if (created->engine->Load(2, argv) != 0) {
        return Fail(ZVS_ERROR_LOAD_FAILED, "ZVS_CreateStream: the denoise engine could not load %s with %s.",
                    argv[0], argv[1]);
      }
    }
    *stream = created.release();
    return ZVS_OK;
  } catch (const std::bad_alloc&) {
    return Fail(ZVS_ERROR_OUT_OF_MEMORY, "ZVS_CreateStream: out of memory.");
  } catch (const std::exception& e) {
    return Fail(ZVS_ERROR_LOAD_FAILED, "ZVS_CreateStream: %s", e.what());
  }
}

void ZVS_DestroyStream(ZVS_Stream* stream) {
  delete stream;
}

ZVS_Result ZVS_Apply(ZVS_Stream* stream, const float* input, float* output) {
  if (stream == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: stream is null.");
  if (input == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: input is null.");
  if (output == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Apply: output is null.");
  if (Misaligned(input)) return Fail(ZVS_ERROR_MISALIGNED, "ZVS_Apply: input is not aligned to 4 bytes.");
  if (Misaligned(output)) return Fail(ZVS_ERROR_MISALIGNED, "ZVS_Apply: output is not aligned to 4 bytes.");
  const Revolver* revolver = stream->core->revolver.get();
  if (revolver == nullptr) {
    if (stream->engine->Apply_Cpu(input, output) != 0) {
      return Fail(ZVS_ERROR_FAILED, "ZVS_Apply: the generic model's engine failed on the block.");
    }
    return ZVS_OK;
  }
  RevolverScratch* scratch = ThreadScratch();
  if (scratch == nullptr) return Fail(ZVS_ERROR_OUT_OF_MEMORY, "ZVS_Apply: out of memory for the scratch.");
  revolver->Run(input, stream->state, *scratch, output);
  return ZVS_OK;
}

ZVS_Result ZVS_ApplyBatch(ZVS_Stream* const* streams, const float* const* inputs, float* const* outputs,
                          size_t count) {
  if (streams == nullptr || inputs == nullptr || outputs == nullptr) {
    return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_ApplyBatch: %s is null.",
                streams == nullptr  ? "streams"
                : inputs == nullptr ? "inputs"
                                    : "outputs");
  }
  if (count == 0) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_ApplyBatch: count is 0.");
  for (size_t i = 0; i < count; ++i) {
    if (streams[i] == nullptr)
      return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_ApplyBatch: streams[%zu] is null.", i);
    if (inputs[i] == nullptr)
      return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_ApplyBatch: inputs[%zu] is null.", i);
    if (outputs[i] == nullptr)
      return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_ApplyBatch: outputs[%zu] is null.", i);
    if (Misaligned(inputs[i])) {
      return Fail(ZVS_ERROR_MISALIGNED, "ZVS_ApplyBatch: inputs[%zu] is not aligned to 4 bytes.", i);
    }
    if (Misaligned(outputs[i])) {
      return Fail(ZVS_ERROR_MISALIGNED, "ZVS_ApplyBatch: outputs[%zu] is not aligned to 4 bytes.", i);
    }
    if (streams[i]->core != streams[0]->core) {
      return Fail(ZVS_ERROR_MIXED_MODELS,
                  "ZVS_ApplyBatch: streams[%zu] and streams[0] are of different models.", i);
    }
    for (size_t j = 0; j < i; ++j) {
      if (streams[j] == streams[i]) {
        return Fail(ZVS_ERROR_DUPLICATE_STREAM,
                    "ZVS_ApplyBatch: streams[%zu] and streams[%zu] are one stream.", j, i);
      }
    }
  }
  const Revolver* revolver = streams[0]->core->revolver.get();
  if (revolver == nullptr) {
    return Fail(ZVS_ERROR_NOT_FUSED, "ZVS_ApplyBatch: batches are for the fused network; use ZVS_Apply.");
  }
  try {
    // The states in one list, kept per thread: it grows to the largest batch, then allocates nothing.
    thread_local std::vector<RevolverState*> states;
    states.resize(count);
    for (size_t i = 0; i < count; ++i) states[i] = &streams[i]->state;
    if (revolver->RunBatch(count, inputs, states.data(), outputs, ThreadBatchScratch())) return ZVS_OK;
  } catch (const std::bad_alloc&) {
    // reported below
  }
  return Fail(ZVS_ERROR_OUT_OF_MEMORY, "ZVS_ApplyBatch: out of memory for the scratch of %zu streams.",
              count);
}

ZVS_Result ZVS_Reset(ZVS_Stream* stream) {
  if (stream == nullptr) return Fail(ZVS_ERROR_INVALID_ARGUMENT, "ZVS_Reset: stream is null.");
  if (stream->engine != nullptr) {
    if (stream->engine->Reset_RNN_State_Cpu() != 0) {
      return Fail(ZVS_ERROR_FAILED, "ZVS_Reset: the generic model's engine failed to reset.");
    }
    return ZVS_OK;
  }
  std::memset(&stream->state, 0, sizeof(stream->state));
  return ZVS_OK;
}

const char* ZVS_LastError(void) {
  return last_error.c_str();
}

}  // extern "C"
