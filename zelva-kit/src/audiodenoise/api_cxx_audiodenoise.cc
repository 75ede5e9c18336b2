#include "zelva-kit/src/audiodenoise/api_cxx_audiodenoise.h"

#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "zelva-kit/src/audiodenoise/revolver.h"
#include "zelva-kit/src/generic_path.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/logging.h"
#include "zelva/src/utility/string_util.h"

namespace zelva {
namespace dlaudiodenoise {

namespace {
constexpr const char* kUseHyperspecific = "UseHyperspecific";
constexpr uint64_t kPoolAlignment = 4096;
constexpr size_t kFusedOutputBytes = 320;  // 80 floats
using hyperspecific::audiodenoise_v4_final_cpu_sse::HyperspecificTensor;
using hyperspecific::audiodenoise_v4_final_cpu_sse::HyperspecificTensorMap;
using hyperspecific::audiodenoise_v4_final_cpu_sse::Revolver;

// Only the exact text "1" switches the fused path on.
bool IsOn(const char* value) {
  return value != nullptr && std::strcmp(value, "1") == 0;
}

// ".json" (exact, case-sensitive) is JSON; anything else is the binary form.
const char* FileFormat(const std::string& path) {
  return utility::EndsWithChecked(path, ".json") ? "json" : "bin";
}
}  // namespace

struct AudioDenoise::PrivateMembers {
  kit::GenericPath generic;  // context, kernel registry, net, extra info, inputs, output ids
  std::vector<std::shared_ptr<runtime::IKernel>> rnn_kernels;
  bool use_hyperspecific = false;
  std::shared_ptr<Revolver> revolver;  // built at load only when the fused path is asked for then
  // The fused path's argument and result records, kept so that a block allocates nothing.
  std::vector<HyperspecificTensor> fused_inputs{HyperspecificTensor{{1, 7, 80}, 4, 0, nullptr}};
  HyperspecificTensorMap fused_outputs;

  int32_t Load(int32_t argc, const char** argv) {
    ZV_ASSERT(argv != nullptr && argv[0] != nullptr, "Invaild model path.");
    if (argc >= 3) use_hyperspecific = IsOn(argv[2]);

    auto model = std::make_shared<runtime::ZVModelInfo>();
    const std::string model_path(argv[0]);
    model->FromFile(model_path, FileFormat(model_path));  // binary models carry half-precision weights

    if (use_hyperspecific) {
      ZV_LOG_ERROR("using hyper specific audio denoise model");
      revolver = std::make_shared<Revolver>(model);
    }

    generic.context = runtime::CreateCPUContext(kPoolAlignment);
    kernel::RegisterBaseKernels(generic.kernel_registry);
    kernel::RegisterFallbackKernels(generic.kernel_registry);
    kernel::RegisterSGEMMKernels(generic.kernel_registry);
    kernel::RegisterSSEKernels(generic.kernel_registry);
    kernel::RegisterAVXKernels(generic.kernel_registry);

    if (generic.net == nullptr) {
      ZV_ASSERT(argc >= 2 && argv[1] != nullptr, "Invaild config path.");
      auto configs = std::make_shared<runtime::ZVModelMultiBackendCfgs>();
      const std::string config_path(argv[1]);
      configs->FromFile(config_path, FileFormat(config_path));

      kit::BindModelIo(generic, *model);
      // The SSE configuration names every kernel, whatever the processor.
      generic.net = runtime::CreateNet(model, configs->cpu_sse, generic.kernel_registry, generic.context);
      ZV_ASSERT(generic.net != nullptr, "The configuration lacks a layer of the model.");
      generic.net_extra_info = model->extra_info;
      rnn_kernels = kit::CollectStatefulKernels(*generic.net);
    }
    ZV_LOG_INFO("AudioDenoise::load done.");
    return 0;
  }

  void Apply(const void* input, void* output) {
    if (use_hyperspecific) {
      RequireRevolver();
      fused_inputs[0].data = input;
      // The table is kept from call to call: Forward overwrites its one entry "25" in place, so a steady
      // stream of blocks allocates nothing (clearing it would allocate the entry and its shape every block).
      revolver->Forward(fused_outputs, fused_inputs, false);
      std::memcpy(output, fused_outputs["25"].data, kFusedOutputBytes);
      return;
    }
    ZV_ASSERT(input != nullptr, "Invaild input data.");
    ZV_ASSERT(output != nullptr, "Invaild output data.");
    kit::RunBlock(generic, input, output);
  }

  // The flag can be switched on after a load that did not build the fused network.
  void RequireRevolver() const {
    ZV_ASSERT(revolver != nullptr,
              "The fused network is not loaded: create the engine with UseHyperspecific \"1\" to use it.");
  }

  void Reset() {
    if (use_hyperspecific) {
      RequireRevolver();
      revolver->ResetRnnState();
      return;
    }
    for (const auto& kernel : rnn_kernels) kernel->ResetState();
  }
};

AudioDenoise::AudioDenoise() : members_(new PrivateMembers()) {}
AudioDenoise::~AudioDenoise() {
  delete members_;
}

int32_t AudioDenoise::Load(int32_t argc, const char** argv) {
  try {
    return members_->Load(argc, argv);
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise load models failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Apply_Cpu(const void* input, void* output) {
  try {
    members_->Apply(input, output);
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise apply cpu failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Apply_Gpu() {
  ZV_ASSERT(false, "Not Implemented.");
  return -1;
}

int32_t AudioDenoise::Reset_RNN_State_Cpu() {
  try {
    members_->Reset();
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise(cpu) reset rnn state failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Set_Attr(const char* name, const char* value) {
  try {
    ZV_ASSERT(name != nullptr && value != nullptr, "Invaild attribute.");
    if (std::strcmp(name, kUseHyperspecific) == 0) members_->use_hyperspecific = IsOn(value);
    return 0;
  } catch (const std::exception& e) {
    ZV_LOG_ERROR("AudioDenoise set attribute failed. Error: %s", e.what());
    return -1;
  }
}

int32_t AudioDenoise::Get_Attr(const char* /*name*/, void* /*value*/) {
  // The engine has no attribute to read: accepted for every name, nothing written.
  return 0;
}

}  // namespace dlaudiodenoise
}  // namespace zelva
