// Batch normalisation of a planar float tensor with running statistics folded into one scale and one shift
// per channel at Config.
#pragma once

#include <memory>
#include <string>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

class BatchNorm2d_Fallback_Float_M1 : public runtime::IKernel {
 public:
  std::string GetName() const override { return "BatchNorm2d_Fallback_Float_M1"; }
  // 0 when no parameters are given and the description is a BatchNorm2dInfo, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  // Folds scale, shift, mean and variance into `folded_scale` and `folded_shift`. A layer without affine
  // parameters (if_affine false) folds with scale 1 and shift 0.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  // One planar FLOAT32 tensor in main memory; the same test serves both sides.
  int32_t CheckInputs(const runtime::TensorList& inputs) override;
  int32_t CheckOutputs(const runtime::TensorList& outputs) override;
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;

  const std::shared_ptr<runtime::Tensor>& folded_scale() const { return folded_scale_; }
  const std::shared_ptr<runtime::Tensor>& folded_shift() const { return folded_shift_; }

 private:
  BatchNorm2dParam param_;
  std::shared_ptr<runtime::Tensor> folded_scale_;
  std::shared_ptr<runtime::Tensor> folded_shift_;
};

}  // namespace kernel
}  // namespace zelva
