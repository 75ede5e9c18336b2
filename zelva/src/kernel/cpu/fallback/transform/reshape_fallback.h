// The reshape kernels of TensorReshapeInfo layers. A reshape changes the dims and keeps the logical order of
// the elements; out of a blocked layout that means unblocking.
//
// One class template, one instance per registered name (the aliases below). The forms:
//
//   form          new_shape accepted            output dims                       layout   Forward
//   kCnHWnToC     2 entries                     [ns1], -1 meaning all elements    C        CHW copied,
//   blocked kCnHWnToCL    3 entries, [1, >0|-1, >0|-1]  [ns1, ns2], -1 deduced            CL unblocked, other
//   kCLToCHW      4 entries, [1, >0|-1, ...]    [ns1, ns2, ns3], -1 deduced       CHW        layouts refused
//   kAny          any                           new_shape as given                input's  copy as stored
//   kToC          any                           resolved; [1, n] -> [n]           C        logical order
//   kToCHW        any                           resolved; [1, c, h, w] -> [c,h,w] CHW      logical order
//   kToSC         any                           resolved; [1, s, c] or [s, 1, c]  SC       logical order
//                                               -> [s, c]
//
// "-1 deduced" follows DeduceMinusOne; "resolved" follows ResolveNewShape with the product of the positive
// entries stored at Config. The batch entry of the first three never reaches the output. Every output takes
// location, data type and extra of the input.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

enum class ReshapeForm { kCnHWnToC, kCnHWnToCL, kCLToCHW, kAny, kToC, kToCHW, kToSC };

template <ReshapeForm F>
class ReshapeFallback : public runtime::IKernel {
 public:
  std::string GetName() const override;
  // -1 with an InferenceParam or a description that is no TensorReshapeInfo; then the entry rule of the form.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override;
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> net_extra_info,
              std::shared_ptr<runtime::Context> context) override;
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override;
  // The two CnHWn forms: one tensor in main memory, data type FLOAT32, FLOAT16 or INT16, layout CHW, C4HW4 or
  // C8HW8 and an element count equal to the output's; outputs alike with the form's output layout. The other
  // forms test nothing.
  int32_t CheckInputs(const runtime::TensorList& inputs) override;
  int32_t CheckOutputs(const runtime::TensorList& outputs) override;
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override;

 private:
  TensorReshapeParam param_;
  int32_t positive_product_ = 1;
};

using Reshape_Fallback_CnHWn_To_C_M1 = ReshapeFallback<ReshapeForm::kCnHWnToC>;
using Reshape_Fallback_CnHWn_To_CL_M1 = ReshapeFallback<ReshapeForm::kCnHWnToCL>;
using Reshape_Fallback_CL_To_CHW_M1 = ReshapeFallback<ReshapeForm::kCLToCHW>;
using Reshape_Fallback_Any_M1 = ReshapeFallback<ReshapeForm::kAny>;
using Reshape_Fallback_To_CHW_M1 = ReshapeFallback<ReshapeForm::kToCHW>;
using Reshape_Fallback_To_SC_M1 = ReshapeFallback<ReshapeForm::kToSC>;
using Reshape_Fallback_To_C_M1 = ReshapeFallback<ReshapeForm::kToC>;

extern template class ReshapeFallback<ReshapeForm::kCnHWnToC>;
extern template class ReshapeFallback<ReshapeForm::kCnHWnToCL>;
extern template class ReshapeFallback<ReshapeForm::kCLToCHW>;
extern template class ReshapeFallback<ReshapeForm::kAny>;
extern template class ReshapeFallback<ReshapeForm::kToC>;
extern template class ReshapeFallback<ReshapeForm::kToCHW>;
extern template class ReshapeFallback<ReshapeForm::kToSC>;

}  // namespace kernel
}  // namespace zelva
