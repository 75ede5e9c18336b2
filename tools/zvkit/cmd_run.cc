// zvkit run: streams a raw float32 file through an engine block by block, through the public C API exactly as
// a host does. Only the block sizes come from the internal library (the C API does not tell them).
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tools/zvkit/host_io.h"
#include "tools/zvkit/model_files.h"
#include "tools/zvkit/zvkit.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/string_util.h"
#include "zv2.h"

namespace zvkit {

namespace {

constexpr size_t kFusedInputFloats = 7 * 80;
constexpr size_t kFusedOutputFloats = 80;

struct RunOptions {
  std::string model, config, input, output, compare;
  std::string engine = "denoise";
  bool fused = false;
  long reset_every = 0;
  bool quiet = false;
};

bool ParseRunOptions(const std::vector<std::string>& args, RunOptions* o, std::string* error) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string* out) {
      if (i + 1 >= args.size()) {
        *error = a + " needs a value";
        return false;
      }
      *out = args[++i];
      return true;
    };
    std::string number;
    if (a == "--model") {
      if (!value(&o->model)) return false;
    } else if (a == "--config") {
      if (!value(&o->config)) return false;
    } else if (a == "--input") {
      if (!value(&o->input)) return false;
    } else if (a == "--output") {
      if (!value(&o->output)) return false;
    } else if (a == "--compare") {
      if (!value(&o->compare)) return false;
    } else if (a == "--engine") {
      if (!value(&o->engine)) return false;
      if (o->engine != "denoise" && o->engine != "vad") {
        *error = "--engine is denoise or vad";
        return false;
      }
    } else if (a == "--fused") {
      o->fused = true;
    } else if (a == "--quiet") {
      o->quiet = true;
    } else if (a == "--reset-every") {
      if (!value(&number)) return false;
      o->reset_every = std::strtol(number.c_str(), nullptr, 10);
      if (o->reset_every < 0) {
        *error = "--reset-every must be 0 or more";
        return false;
      }
    } else {
      *error = "unknown option " + a;
      return false;
    }
  }
  if (o->model.empty() || o->config.empty() || o->input.empty()) {
    *error = "--model, --config and --input are required";
    return false;
  }
  if (o->fused && o->engine != "denoise") {
    *error = "--fused is a denoise option";
    return false;
  }
  return true;
}

}  // namespace

bool BlockSizes(const std::string& model_path, const std::string& config_path, bool fused, bool vad,
                size_t* in_floats, size_t* out_floats, std::string* error) {
  using namespace zelva::runtime;
  // The library's failures come back as its own words (its error line), not as a decorated exception text.
  bool ok = false;
  const std::string reason = Guarded(
      [&] {
        ok = [&]() -> bool {
          auto model = std::make_shared<ZVModelInfo>();
          // The engines' suffix rule: ".json" is JSON, anything else binary.
          auto format = [](const std::string& p) {
            return zelva::utility::EndsWithChecked(p, ".json") ? "json" : "bin";
          };
          // Binary weights at the precision the engine reads: the VAD engine fp32, the denoise engine fp16.
          if (std::string(format(model_path)) == "json") {
            model->FromFile(model_path, "json");
          } else {
            model->FromBin(model_path, vad ? "fp32" : "fp16");
          }
          if (fused) {
            *in_floats = kFusedInputFloats;
            *out_floats = kFusedOutputFloats;
            return true;
          }
          *in_floats = static_cast<size_t>(model->extra_info.model_base_h) * model->extra_info.model_base_w;
          // The first output's size is known once the net has run: build it and run one block of zeros.
          auto configs = std::make_shared<ZVModelMultiBackendCfgs>();
          configs->FromFile(config_path, format(config_path));
          zelva::kernel::KernelRegistry registry;
          zelva::kernel::RegisterBaseKernels(registry);
          zelva::kernel::RegisterFallbackKernels(registry);
          zelva::kernel::RegisterSGEMMKernels(registry);
          zelva::kernel::RegisterSSEKernels(registry);
          zelva::kernel::RegisterAVXKernels(registry);
          auto context = CreateCPUContext(64);
          auto net = CreateNet(model, configs->cpu_sse, registry, context);
          if (net == nullptr) {
            *error = "the configuration does not cover every layer of the model";
            return false;
          }
          std::vector<float> zeros(*in_floats, 0.0f);
          NetInputs inputs;
          std::vector<uint32_t> output_ids;
          for (size_t i = 0; i < model->squential_ids.size(); ++i) {
            const std::string& id = model->squential_ids[i];
            if (net->layers[i]->name == "Input" && inputs.empty()) {
              std::shared_ptr<Tensor> t;
              context->GetDeviceCPU()->WrapPlanar(
                  t, {1, model->extra_info.model_base_h, model->extra_info.model_base_w}, zeros.data());
              inputs[static_cast<uint32_t>(i)] = t;
            }
            for (const auto& out : model->squential_output_ids)
              if (out == id) output_ids.push_back(static_cast<uint32_t>(i));
          }
          NetOutputs outputs;
          net->Forward(outputs, inputs, output_ids, context, nullptr, nullptr);
          if (outputs.empty() || outputs.begin()->second.empty()) {
            *error = "the net produced no output";
            return false;
          }
          *out_floats = static_cast<size_t>(outputs.begin()->second[0]->shape.ByteSize()) / sizeof(float);
          return true;
        }();
      },
      nullptr);
  if (!reason.empty()) {
    *error = "cannot use " + model_path + " and " + config_path + ": " + reason;
    return false;
  }
  return ok;
}

namespace {

struct Engine {
  _ZV2_Result (*create)(uint32_t*, int32_t, const char**);
  _ZV2_Result (*apply)(uint32_t, const void*, void*);
  _ZV2_Result (*reset)(uint32_t);
  _ZV2_Result (*destroy)(uint32_t*);
};

}  // namespace

int CmdRun(const std::vector<std::string>& args) {
  RunOptions o;
  std::string error;
  if (!ParseRunOptions(args, &o, &error)) {
    std::fprintf(stderr, "zvkit run: %s (see zvkit run --help)\n", error.c_str());
    return 2;
  }
  size_t in_floats = 0, out_floats = 0;
  if (!BlockSizes(o.model, o.config, o.fused, o.engine == "vad", &in_floats, &out_floats, &error)) {
    std::fprintf(stderr, "zvkit run: %s\n", error.c_str());
    return 1;
  }
  std::vector<float> input;
  if (!ReadFloats(o.input, &input)) {
    std::fprintf(stderr, "zvkit run: cannot read %s\n", o.input.c_str());
    return 1;
  }
  if (in_floats == 0 || input.size() % in_floats != 0) {
    std::fprintf(stderr, "zvkit run: %s holds %zu floats, not a whole number of %zu-float blocks\n",
                 o.input.c_str(), input.size(), in_floats);
    return 1;
  }
  const size_t blocks = input.size() / in_floats;

  const Engine engine =
      o.engine == "vad"
          ? Engine{ZV2_Create_VAD, ZV2_Apply_VAD_CPU, ZV2_ReSet_VAD_RNN_State_CPU, ZV2_Destory_VAD}
          : Engine{ZV2_Create_AudioDenoise, ZV2_Apply_AudioDenoise_CPU, ZV2_ReSet_AudioDenoise_RNN_State_CPU,
                   ZV2_Destory_AudioDenoise};
  LogProblemsToStderr();
  const char* argv[] = {o.model.c_str(), o.config.c_str(), "1"};
  uint32_t handle = 0;
  if (engine.create(&handle, o.fused ? 3 : 2, argv) != ZV2_RESULT_OK) {
    std::fprintf(stderr, "zvkit run: the engine could not be created\n");
    return 1;
  }

  std::vector<float> output(blocks * out_floats);
  std::vector<double> micros(blocks);
  int status = 0;
  for (size_t b = 0; b < blocks; ++b) {
    if (o.reset_every > 0 && b > 0 && b % static_cast<size_t>(o.reset_every) == 0) engine.reset(handle);
    const auto t0 = std::chrono::steady_clock::now();
    const _ZV2_Result r = engine.apply(handle, input.data() + b * in_floats, output.data() + b * out_floats);
    micros[b] = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
    if (r != ZV2_RESULT_OK) {
      std::fprintf(stderr, "zvkit run: block %zu failed (%d)\n", b, r);
      status = 1;
      break;
    }
    if (!o.quiet && blocks >= 1000 && (b + 1) % 1000 == 0) {
      std::fprintf(stderr, "  %zu / %zu blocks\n", b + 1, blocks);
    }
  }
  engine.destroy(&handle);
  if (status != 0) return status;

  if (!o.output.empty()) {
    std::FILE* f = std::fopen(o.output.c_str(), "wb");
    if (f == nullptr || std::fwrite(output.data(), sizeof(float), output.size(), f) != output.size()) {
      std::fprintf(stderr, "zvkit run: cannot write %s\n", o.output.c_str());
      if (f != nullptr) std::fclose(f);
      return 1;
    }
    std::fclose(f);
  }
  const TimeSummary times = Summarise(micros);
  std::printf("%s%s: %zu blocks of %zu floats in, %zu out; mean %.1f us, p99 %.1f us per block\n",
              o.engine.c_str(), o.fused ? " (fused)" : "", blocks, in_floats, out_floats, times.mean,
              times.p99);
  if (!o.compare.empty()) {
    // The largest difference from another run's outputs (e.g. the other path of the same network).
    std::vector<float> other;
    if (!ReadFloats(o.compare, &other) || other.size() != output.size()) {
      std::fprintf(stderr, "zvkit run: %s does not hold %zu floats\n", o.compare.c_str(), output.size());
      return 1;
    }
    double largest = 0.0;
    size_t where = 0;
    for (size_t i = 0; i < output.size(); ++i) {
      const double d = std::fabs(static_cast<double>(output[i]) - static_cast<double>(other[i]));
      if (d > largest || d != d) {
        largest = d;
        where = i;
        if (d != d) break;
      }
    }
    std::printf("largest difference from %s: %.3g (block %zu, value %zu)\n", o.compare.c_str(), largest,
                out_floats ? where / out_floats : 0, out_floats ? where % out_floats : 0);
  }
  return 0;
}

}  // namespace zvkit
