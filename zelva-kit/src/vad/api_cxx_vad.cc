#include "zelva-kit/src/vad/api_cxx_vad.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "zelva-kit/src/generic_path.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/logging.h"
#include "zelva/src/utility/string_util.h"

namespace zelva {
namespace dlvad {

namespace {
constexpr uint64_t kPoolAlignment = 32;
constexpr uint64_t kMetricsEvery = 250;

// Paths are UTF-8; on this platform the narrow open takes them as they are.
bool CanOpenForReading(const char* path) {
  std::FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  std::fclose(file);
  return true;
}

// Durations of the applies since the last report, on the steady clock.
struct TimeStats {
  double min_seconds = static_cast<double>(std::numeric_limits<float>::max());
  double max_seconds = static_cast<double>(std::numeric_limits<float>::min());
  double total_seconds = 0.0;
  uint64_t count = 0;
  std::vector<double> samples;
  double started_at = 0.0;

  static double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
  }
  void Start() { started_at = Now(); }
  void Stop() {
    const double seconds = Now() - started_at;
    samples.push_back(seconds);
    if (seconds < min_seconds) min_seconds = seconds;
    if (seconds > max_seconds) max_seconds = seconds;
    ++count;
    total_seconds += seconds;
  }
  void Reset() {
    std::vector<double> keep;
    keep.swap(samples);
    keep.clear();
    *this = TimeStats();
    samples.swap(keep);  // keeps the capacity: the next 250 samples allocate nothing
  }
};
}  // namespace

struct VAD::PrivateMembers {
  kit::GenericPath generic;  // context, kernel registry, net, extra info, inputs, output ids
  std::vector<std::string> layer_names;
  std::vector<std::shared_ptr<runtime::IKernel>> rnn_kernels;
  TimeStats apply_timer;

  int32_t Load(int32_t argc, const char** argv) {
    if (argc != 2) {
      ZV_LOG_ERROR("VAD::Invalid parameter num.");
      return -3;
    }
    ZV_ASSERT(argv != nullptr && argv[0] != nullptr && argv[1] != nullptr, "Invaild model or config path.");
    auto model = std::make_shared<runtime::ZVModelInfo>();
    if (!CanOpenForReading(argv[0])) {
      ZV_LOG_ERROR("Load Model occur err: file %s not found", argv[0]);
      return -8;
    }
    const std::string model_path(argv[0]);
    if (utility::EndsWithChecked(model_path, ".json")) {
      model->FromFile(model_path, "json");
    } else {
      model->FromBin(model_path, "fp32");  // this engine reads binary weights at full precision
    }
    layer_names = model->squential_ids;

    generic.context = runtime::CreateCPUContext(kPoolAlignment);
    kernel::RegisterBaseKernels(generic.kernel_registry);
    kernel::RegisterFallbackKernels(generic.kernel_registry);
    kernel::RegisterSSEKernels(generic.kernel_registry);
    kernel::RegisterAVXKernels(generic.kernel_registry);
    kernel::RegisterSGEMMKernels(generic.kernel_registry);

    if (generic.net == nullptr) {
      auto configs = std::make_shared<runtime::ZVModelMultiBackendCfgs>();
      if (!CanOpenForReading(argv[1])) {
        ZV_LOG_ERROR("Load config occur err: file %s not found", argv[1]);
        return -8;
      }
      const std::string config_path(argv[1]);
      configs->FromFile(config_path, utility::EndsWithChecked(config_path, ".json") ? "json" : "bin");
      kit::BindModelIo(generic, *model);
      generic.net = runtime::CreateNet(model, configs->cpu_sse, generic.kernel_registry, generic.context);
      if (generic.net == nullptr) {
        generic.inputs.clear();
        generic.output_ids.clear();
        return -3;
      }
      generic.net_extra_info = model->extra_info;
      rnn_kernels = kit::CollectStatefulKernels(*generic.net);
    }
    ZV_LOG(utility::kLogTrace, "VAD::load done.");
    return 0;
  }

  void Apply_CPU(const void* input, void* output) {
    ZV_ASSERT(input != nullptr, "Invaild I/O data: i_src must not be nullptr.");
    ZV_ASSERT(output != nullptr, "Invaild I/O data: o_dst must not be nullptr.");
    apply_timer.Start();
    kit::RunBlock(generic, input, output);
    apply_timer.Stop();
  }

  void Apply_Log_Time_Metrics() {
    if (apply_timer.count % kMetricsEvery != 0) return;
    const double mean_ms = apply_timer.count == 0
                               ? 0.0
                               : apply_timer.total_seconds / static_cast<double>(apply_timer.count) * 1000.0;
    ZV_LOG(utility::kLogVerbose,
           "[Metircs] ----------------------------------------------------------------");
    ZV_LOG(utility::kLogVerbose, "[Metircs] apply_cpu_m0: %f ms", mean_ms);
    ZV_LOG(utility::kLogVerbose,
           "[Metircs] ----------------------------------------------------------------");
    apply_timer.Reset();
  }
};

VAD::VAD() : members_(new PrivateMembers()) {}
VAD::~VAD() {
  delete members_;
}

int32_t VAD::Load(int32_t argc, const char** argv) {
  try {
    return members_->Load(argc, argv);
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD load models failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Apply_Cpu(const void* input, void* output) {
  try {
    members_->Apply_CPU(input, output);
    members_->Apply_Log_Time_Metrics();
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD apply cpu failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Apply_Gpu() {
  ZV_ASSERT(false, "Not Implemented.");
  return -1;
}

int32_t VAD::Reset_RNN_State_Cpu() {
  try {
    for (const auto& kernel : members_->rnn_kernels) kernel->ResetState();
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("VAD(cpu) reset rnn state failed. Error: %s", e.what());
    return -1;
  }
}

int32_t VAD::Set_Attr(const char* /*name*/, const char* /*value*/) {
  return 0;
}
int32_t VAD::Get_Attr(const char* /*name*/, void* /*value*/) {
  return 0;
}

}  // namespace dlvad
}  // namespace zelva
