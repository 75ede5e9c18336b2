#include "zelva-kit/src/generic_path.h"

#include <cstring>
#include <string>
#include <unordered_map>

#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kit {

void BindModelIo(GenericPath& path, const runtime::ZVModelInfo& model) {
  // Place of every id in the model's layer list: the layer index of the net. A repeated id keeps its last
  // place, as in the net.
  std::unordered_map<std::string, uint32_t> index_of;
  for (uint32_t i = 0; i < model.squential_ids.size(); ++i) index_of[model.squential_ids[i]] = i;

  path.inputs.clear();
  for (const std::string& id : model.GetInputLayerIds()) {
    auto it = index_of.find(id);
    ZV_ASSERT(it != index_of.end(), "Input layer [%s] is not in the layer list.", id.c_str());
    path.inputs.emplace(it->second, nullptr);
  }
  path.output_ids.clear();
  for (const std::string& id : model.squential_output_ids) {
    auto it = index_of.find(id);
    ZV_ASSERT(it != index_of.end(), "Output layer [%s] is not in the layer list.", id.c_str());
    path.output_ids.push_back(it->second);
  }
}

std::vector<std::shared_ptr<runtime::IKernel>> CollectStatefulKernels(const runtime::Net& net) {
  std::vector<std::shared_ptr<runtime::IKernel>> stateful;
  for (const auto& layer : net.layers) {
    if (layer->kernel->ResetState() != runtime::kKernelNoState) stateful.push_back(layer->kernel);
  }
  return stateful;
}

void RunBlock(GenericPath& path, const void* input, void* output) {
  ZV_ASSERT(path.net != nullptr, "no network is loaded.");
  ZV_ASSERT(!path.inputs.empty(), "the model has no input layer.");
  std::shared_ptr<runtime::Tensor> block;
  path.context->GetDeviceCPU()->WrapPlanar(
      block, {1, path.net_extra_info.model_base_h, path.net_extra_info.model_base_w},
      const_cast<void*>(input));
  // Only the first Input layer is fed; a second one keeps a null tensor.
  path.inputs.begin()->second = std::move(block);

  path.net->Forward(path.results, path.inputs, path.output_ids, path.context, nullptr, nullptr);
  path.inputs.begin()->second.reset();  // the host's memory is not ours beyond this call

  if (!path.results.empty()) {
    const auto& first = path.results.begin()->second;
    if (!first.empty() && first[0] != nullptr) {
      std::memcpy(output, first[0]->data, static_cast<size_t>(first[0]->shape.ByteSize()));
    }
  }
  path.results.clear();
}

}  // namespace kit
}  // namespace zelva
