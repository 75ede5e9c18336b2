#include "zelva/src/runtime/net_constructor.h"

#include <cstdlib>
#include <map>
#include <utility>
#include <vector>

#include "zelva/src/utility/environment_x86.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace runtime {

namespace {

// Converter kernels of one side of a layer, by the decimal position in each id of the set.
void CreateConverters(const std::shared_ptr<KernelCfgArr>& converters, const kernel::KernelRegistry& registry,
                      const std::shared_ptr<NetExtraInfo>& extra_info,
                      const std::shared_ptr<Context>& context, KernelByPosition& into) {
  if (converters == nullptr) return;
  for (const std::string& id : converters->kernel_ids) {
    std::shared_ptr<KernelCfg> cfg = converters->FindKernelCfg(id);
    ZV_ASSERT(cfg != nullptr, "converter [%s] is listed but has no configuration.", id.c_str());
    std::shared_ptr<IKernel> converter = CreateKernel(cfg, nullptr, registry, extra_info, context);
    const uint32_t position = static_cast<uint32_t>(std::strtoul(id.c_str(), nullptr, 10));
    into[position] = std::move(converter);
  }
}

// True for a kernel that executes AVX instructions. The registry keeps no instruction set per entry, but the
// naming scheme puts it between underscores (`<Op>_<shape tokens>_<instruction set>_<layout>_<type>_M<n>`),
// and every member of the AVX group, and no other, holds the token "_AVX_" (the registry test holds the
// groups to that). Deciding by the name keeps the registry as it is and covers converters alike.
bool NeedsAvx(const std::string& kernel_name) {
  return kernel_name.find("_AVX_") != std::string::npos;
}

}  // namespace

std::string LayerTypeName(uint16_t type) {
  switch (type) {
    case 0:
      return "Input";
    case 1:
      return "Activation";
    case 2:
      return "Conv2d";
    case 3:
      return "ConvTranspose2d";
    case 6:
      return "AvgPool2d";
    case 7:
      return "MaxPool2d";
    case 8:
      return "InstanceNorm2d";
    case 9:
      return "BatchNorm2d";
    case 10:
      return "Upsample2d";
    case 11:
      return "ElementWiseOperator";
    case 12:
      return "Concatenate";
    case 13:
      return "TensorReshape";
    case 14:
      return "TensorTranspose";
    case 15:
      return "TensorSqueeze";
    case 16:
      return "TensorUnSqueeze";
    case 17:
      return "FullConnection";
    case 21:
      return "PixelShuffle";
    case 22:
      return "TensorGetItem";
    case 29:
      return "Blob";
    case 36:
      return "LSTM";
    case 254:
      return "Blob";
    default:
      return "UnKnown";
  }
}

std::shared_ptr<IKernel> CreateKernel(std::shared_ptr<KernelCfg> kernel_cfg,
                                      std::shared_ptr<LayerInfo> layer_info,
                                      const kernel::KernelRegistry& registry,
                                      std::shared_ptr<NetExtraInfo> extra_info,
                                      std::shared_ptr<Context> context) {
  ZV_ASSERT(kernel_cfg != nullptr, "no kernel configuration.");
  const std::string& name = kernel_cfg->kernel_type;
  // An AVX kernel on a processor without usable AVX would be built and then fault on the first apply with an
  // illegal instruction: refuse it here, so that the load fails (a converter included, which a null result
  // alone would not do).
  if (NeedsAvx(name) && !utility::AvxUsableForKernels()) {
    ZV_LOG(utility::kLogError,
           "Kernel <%s> needs AVX, which this processor (or its operating system) does not offer.",
           name.c_str());
    ZV_ASSERT(false, nullptr);
  }
  std::shared_ptr<IKernel> kernel = kernel::LookupKernel(registry, name);
  ZV_LOG(utility::kLogTrace, "Create Kernel >> %s >> %s", name.c_str(), kernel != nullptr ? "ok" : "nullptr");
  if (kernel != nullptr && kernel->Config(std::move(layer_info), kernel_cfg->infer_param,
                                          std::move(extra_info), std::move(context))) {
    return kernel;
  }
  ZV_LOG(utility::kLogError, "Config Kernel <%s> failed. %s KERNEL REGISTRY", name.c_str(),
         kernel != nullptr ? "In" : "Not in");
  return nullptr;
}

std::shared_ptr<Net> CreateNet(std::shared_ptr<ZVModelInfo> model, std::shared_ptr<ZVModelCfg> config,
                               const kernel::KernelRegistry& registry, std::shared_ptr<Context> context) {
  ZV_ASSERT(model != nullptr, "no model.");
  ZV_ASSERT(config != nullptr, "no kernel configuration.");
  const std::vector<std::string> ids = model->squential_ids;
  auto extra_info = std::make_shared<NetExtraInfo>(model->extra_info);

  // A repeated id keeps its later index.
  std::map<std::string, uint32_t> index_of;
  for (uint32_t i = 0; i < ids.size(); ++i) index_of[ids[i]] = i;

  std::vector<std::shared_ptr<Layer>> layers;
  layers.reserve(ids.size());
  std::map<std::string, uint32_t> input_layers;
  for (uint32_t i = 0; i < ids.size(); ++i) {
    const std::string& id = ids[i];
    auto layer = std::make_shared<Layer>();
    std::shared_ptr<LayerInfo> info = model->FindLayerInfo(id);
    std::shared_ptr<LayerCfg>& cfg = config->layer_cfgs[id];  // inserts an empty entry for a missing id
    if (info == nullptr || cfg == nullptr) return nullptr;

    layer->name = LayerTypeName(info->type);
    if (info->type == kLayerInput) input_layers[id] = i;

    if (cfg->input_converters != nullptr && !cfg->input_converters->kernel_ids.empty())
      CreateConverters(cfg->input_converters, registry, extra_info, context, layer->input_converters);

    layer->kernel = CreateKernel(cfg->kernel, info, registry, extra_info, context);
    ZV_ASSERT(layer->kernel != nullptr, nullptr);

    if (cfg->output_converters != nullptr && !cfg->output_converters->kernel_ids.empty())
      CreateConverters(cfg->output_converters, registry, extra_info, context, layer->output_converters);

    // An input id the model doesn't list reads as index 0. Sources must stand before their consumers.
    for (uint32_t j = 0; j < info->input_ids.size(); ++j) {
      const uint32_t source = index_of[info->input_ids[j]];
      const uint32_t self = index_of[id];
      ZV_ASSERT(source < layers.size(),
                "layer [%s] (index %u) reads [%s] (index %u), which does not stand before it.", id.c_str(), i,
                info->input_ids[j].c_str(), source);
      layer->inputs.emplace_back(source, 0u);
      layers[source]->consumers.emplace_back(self, j);
    }
    layers.push_back(std::move(layer));
  }
  return std::make_shared<Net>(std::move(layers), std::move(input_layers));
}

}  // namespace runtime
}  // namespace zelva
