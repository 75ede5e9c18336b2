// The general reshape: new dims from the layer's new_shape, the elements copied in logical order (a blocked
// input is unblocked on the way).
//
// Output shape: new_shape with every entry below 1 replaced by (input element count) / (product of the
// entries of at least 1); then the leading batch entry is dropped when it is 1 and more entries follow.
// Layout by the rank that remains: 1 -> C, 2 -> CL, 3 -> CHW, any other -> FLEXIABLE. Location, data type and
// extra come from the input. The element count must stay the same.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

class Transform_MainMemory_Reshape_Fallback : public runtime::IKernel {
 public:
  std::string GetName() const override { return "Transform_MainMemory_Reshape_Fallback"; }
  // 0 when no parameters are given and the description is a TensorReshapeInfo, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override;
  // Exactly one FLOAT32 tensor in main memory.
  int32_t CheckInputs(const runtime::TensorList& inputs) override;
  int32_t CheckOutputs(const runtime::TensorList& outputs) override;
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;

 private:
  TensorReshapeParam param_;
  int32_t positive_product_ = 1;
};

}  // namespace kernel
}  // namespace zelva
