// The kernel of Input layers: hands the tensor the caller fed in on to the layers behind it.
#pragma once

#include <memory>
#include <string>

#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

class Input_Fallback_M1 : public runtime::IKernel {
 public:
  std::string GetName() const override { return "Input_Fallback_M1"; }
  // The converters' test: 0 when description and parameters are both null, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  // Reads CheckSupport the other way round: 0 (nothing to describe the input) refuses, anything else
  // accepts. So this kernel needs a description, where a converter needs none.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  // The outputs are the inputs themselves: no copy.
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;
};

}  // namespace kernel
}  // namespace zelva
