#include "zelva/src/kernel/cpu/fallback/input/input_fallback.h"

#include "zelva/src/kernel/functional/converter_support.h"

namespace zelva {
namespace kernel {

int32_t Input_Fallback_M1::CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                        const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return functional::CheckConverterSupport(layer_info, inference_param);
}

bool Input_Fallback_M1::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
                               std::shared_ptr<runtime::InferenceParam> inference_param,
                               std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
                               std::shared_ptr<runtime::Context> /*context*/) {
  configured = false;
  if (CheckSupport(layer_info, inference_param) == runtime::kKernelOk) return false;
  configured = true;
  return true;
}

void Input_Fallback_M1::Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
                                const std::shared_ptr<runtime::Context>& /*context*/) {
  outputs = inputs;
}

}  // namespace kernel
}  // namespace zelva
