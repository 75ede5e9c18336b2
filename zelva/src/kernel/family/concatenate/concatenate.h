// The concatenation family: joins its inputs along the channel axis, planar (CHW) or blocked (C4HW4, C8HW8).
// The channel or block index is the leading dim of all three layouts, so the inputs stand one behind the
// other in the output with no interleaving: a byte copy of each input, in input order. A blocked join is
// correct only for channel counts that are multiples of the block, which the blocked layouts require anyway.
//
//   CheckSupport   no parameters, a ConcatenateInfo, "dim" 1 (the channel axis, the batch counted as 0);
//                  there is no kernel for another axis.
//   OutputShapes   the first input's shape with dim 0 the sum of every input's dim 0.
//   CheckInputs    the first tensor in main memory with layout CHW, C4HW4 or C8HW8 (0 to 3 but 1); every
//                  further one with the data type, layout, location and step_size of the first.
//   CheckOutputs   exactly one tensor, in main memory.
#pragma once

#include <memory>
#include <vector>

#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

int32_t CheckConcatenateSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                const std::shared_ptr<runtime::InferenceParam>& inference_param);
std::vector<runtime::TensorShape> ConcatenateOutputShapes(const char* name,
                                                          const std::vector<runtime::TensorShape>& inputs);
int32_t CheckConcatenateInputs(const runtime::TensorList& inputs);
int32_t CheckConcatenateOutputs(const runtime::TensorList& outputs);
// Inputs that differ from the first in data type, layout or trailing dims would not fill the output as one
// tensor of the first's kind: reported (the net does not call CheckInputs).
void AssertConcatenateRunnable(const char* name, const runtime::TensorList& inputs);
void RunConcatenate(const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const char* kName_>
struct ConcatenatePolicy : FramePolicy {
  static constexpr const char* kName = kName_;
  using State = NoState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckConcatenateSupport(layer_info, inference_param);
  }
  static void Configure(State&, const std::shared_ptr<runtime::LayerInfo>&,
                        const std::shared_ptr<runtime::Context>&) {}
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& inputs) {
    return ConcatenateOutputShapes(kName, inputs);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckConcatenateInputs(inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckConcatenateOutputs(outputs);
  }
  static void AssertRunnable(const State&, const runtime::TensorList& inputs) {
    AssertConcatenateRunnable(kName, inputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunConcatenate(inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the class of one line of the list.
#define ZV_DEFINE_CONCATENATE_MEMBER(group, isa, cls, accuracy) \
  inline constexpr char cls##_name[] = #cls;                    \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::ConcatenatePolicy<cls##_name>>;
