// The frame of the one-dimensional convolution family (Conv1dInfo on the CL layout): one policy over a
// member's rule and core. The arithmetic is that of cores.h.
//
//   CheckSupport  -1 with an InferenceParam or a description that is no Conv1dInfo; -1 unless kernel size,
//                 stride, dilation and groups are the rule's (a fixed value, or kConv1dNonZero: any but 0),
//                 in and out channels are non-zero multiples of groups and the weights fit the layer.
//   Config        the record; the weights [out, in / groups, kernel] and the bias [out] as they come; weight
//                 texts shorter than the layer's fields ask for are reported.
//   OutputShape   [out_channels, out_len] in CL, with the data type, location and extra of the input; an
//                 input whose padded length does not hold the dilated kernel is reported.
//   CheckInputs   one FLOAT32 tensor in main memory, layout CL, [in_channels, length]; CheckOutputs one
//                 FLOAT32 tensor in main memory, layout CL.
//   Run           the padded copy of the input (kept between calls), then the core.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv1d/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

constexpr uint32_t kConv1dNonZero = 0;  // any value but 0

struct Conv1dRule {
  const char* name;
  uint32_t kernel, stride, dilation, groups;
};

struct Conv1dState {
  Conv1dParam param;
  std::shared_ptr<runtime::Tensor> weight;
  std::shared_ptr<runtime::Tensor> bias;
  Scratch padded;
};

// ---- The steps (conv1d.cc)
int32_t CheckConv1dSupport(const Conv1dRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param);
void ConfigConv1d(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                  const std::shared_ptr<runtime::Context>& context, Conv1dState* state);
runtime::TensorShape Conv1dOutputShape(const Conv1dParam& param, const runtime::TensorShape& input);
int32_t CheckConv1dInputs(const Conv1dParam& param, const runtime::TensorList& inputs);
int32_t CheckConv1dOutputs(const runtime::TensorList& outputs);
void AssertConv1dRunnable(const char* name, const Conv1dState& state, const runtime::TensorList& inputs);
void RunConv1d(const Conv1dCore& core, Conv1dState& state, const runtime::TensorList& inputs,
               const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context);

template <const Conv1dRule& kRule, const Conv1dCore& kCore>
struct Conv1dPolicy : FramePolicy {
  static constexpr const char* kName = kRule.name;
  using State = Conv1dState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckConv1dSupport(kRule, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    ConfigConv1d(kName, layer_info, context, &state);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return Conv1dOutputShape(state.param, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckConv1dInputs(state.param, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckConv1dOutputs(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertConv1dRunnable(kName, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& context) {
    RunConv1d(kCore, state, inputs, outputs, context);
  }
};

}  // namespace kernel
}  // namespace zelva

// One row of the list: X(group, isa, ClassName, accuracy, kernel, stride, dilation, groups, core).
// clang-format off
#define ZV_DEFINE_CONV1D_MEMBER(group, isa, cls, accuracy, k, s, d, g, core)                   \
  inline constexpr ::zelva::kernel::Conv1dRule cls##_rule{#cls, k, s, d, g};                    \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::Conv1dPolicy<cls##_rule, core>>;
// clang-format on
