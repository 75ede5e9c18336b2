// The scalar members of the elementwise and broadcast family: the same-shape kernel that dispatches on the
// operation name, and the broadcast of any rank through the elementwise function table.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/functional/elementwise_table.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// out = a op b over two tensors of one shape; the op by name: "Add", "Sub", "Mul", "Div" (compared on their
// full length of 3). An empty or unknown name computes nothing: the output is made and left as it came.
class Elementwise_Fallback_Float_M1 : public runtime::IKernel {
 public:
  std::string GetName() const override { return "Elementwise_Fallback_Float_M1"; }
  // 0 for an ElementWiseOperatorInfo and no InferenceParam, -1 otherwise. Any op_type: an unknown one is
  // logged when Config converts it.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  // One output of the first input's shape.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& shapes) override;
  // Exactly two FLOAT32 tensors in main memory.
  int32_t CheckInputs(const runtime::TensorList& inputs) override;
  int32_t CheckOutputs(const runtime::TensorList& outputs) override;
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;

  const ElementWiseOperatorParam& param() const { return param_; }

 private:
  ElementWiseOperatorParam param_;
};

// out = a op b with a and b broadcast to a common shape of any rank: shapes are aligned at their last dim,
// and two dims fit when they are equal or one of them is 1. The op comes from the elementwise function
// table by the layer's op_type (0 to 3 as named, 4 maximum, 5 minimum).
class BroadcastOperator_Fallback_Float_M1 : public runtime::IKernel {
 public:
  std::string GetName() const override { return "BroadcastOperator_Fallback_Float_M1"; }
  // 0 for a BroadcastOperatorInfo whose op_type the table holds and no InferenceParam, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  // The broadcast shape, of the larger rank; type, layout and location of the first input. Raises for
  // shapes that do not fit.
  std::vector<runtime::TensorShape> GetOutputShapes(const std::vector<runtime::TensorShape>& shapes) override;
  // Two FLOAT32 tensors in main memory whose shapes fit; -2 otherwise.
  int32_t CheckInputs(const runtime::TensorList& inputs) override;
  int32_t CheckOutputs(const runtime::TensorList& outputs) override;
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;

  const BroadcastOperatorParam& param() const { return param_; }

 private:
  BroadcastOperatorParam param_;
  const functional::ElementwiseFunction* function_ = nullptr;
};

// Whether two dim lists fit for broadcasting: compared from the last dim backwards over the shorter rank,
// each pair equal or one of them 1.
bool BroadcastShapesFit(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b);

// Scalar broadcast core: `a` of dims `ad`, `b` of dims `bd`, `out` of dims `od` (the broadcast shape, rank
// at least that of each input).
void BroadcastFallback(const functional::ElementwiseFunction& op, const float* a,
                       const std::vector<uint32_t>& ad, const float* b, const std::vector<uint32_t>& bd,
                       float* out, const std::vector<uint32_t>& od);

}  // namespace kernel
}  // namespace zelva
