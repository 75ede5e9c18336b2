// The frame of the transposed convolution family (ConvTranspose2dInfo): one policy over a member's rule and
// core. The arithmetic is that of cores.h.
//
//   CheckSupport  -1 with an InferenceParam or a description that is no ConvTranspose2dInfo; -1 unless the
//                 kernel size, dilation and groups are the rule's (a fixed value, or kConvTransposeNonZero:
//                 any but 0), the strides are non-zero, in and out channels are non-zero multiples of groups
//                 and, for a blocked layout, of its block.
//   Config        the record; the weights and bias kept as they come for a core of lanes 0, otherwise the
//                 weights repacked into [ceil(out / lanes), in, K, K, lanes] and the bias padded with zeros
//                 to whole blocks; weight texts shorter than the layer's fields ask for are reported.
//   OutputShape   [out, out_h, out_w] in CHW, or [out / lanes, out_h, out_w, lanes] in the member's blocked
//                 layout, with the data type, location and extra of the input; a crop that leaves no output,
//                 and an output of 2^29 values or more, are reported.
//   CheckInputs   one FLOAT32 tensor in main memory in the member's layout with in_channels channels;
//                 CheckOutputs one FLOAT32 tensor in main memory in the member's layout.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/convtranspose/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

constexpr uint32_t kConvTransposeNonZero = 0;  // any value but 0

struct ConvTransposeRule {
  const char* name;
  uint32_t layout;  // CHW, C4HW4 or C8HW8
  uint32_t kernel, dilation, groups;
};

struct ConvTransposeState {
  ConvTranspose2dParam param;
  std::shared_ptr<runtime::Tensor> weight;
  std::shared_ptr<runtime::Tensor> bias;
};

// ---- The steps (convtranspose.cc)
int32_t CheckConvTransposeSupport(const ConvTransposeRule& rule,
                                  const std::shared_ptr<runtime::LayerInfo>& info,
                                  const std::shared_ptr<runtime::InferenceParam>& inference_param);
void ConfigConvTranspose(const char* name, const ConvTransposeCore& core,
                         const std::shared_ptr<runtime::LayerInfo>& layer_info,
                         const std::shared_ptr<runtime::Context>& context, ConvTransposeState* state);
runtime::TensorShape ConvTransposeOutputShape(const ConvTranspose2dParam& param, uint32_t layout,
                                              const runtime::TensorShape& input);
int32_t CheckConvTransposeInputs(const ConvTranspose2dParam& param, uint32_t layout,
                                 const runtime::TensorList& inputs);
int32_t CheckConvTransposeOutputs(uint32_t layout, const runtime::TensorList& outputs);
void AssertConvTransposeRunnable(const char* name, uint32_t layout, const ConvTransposeState& state,
                                 const runtime::TensorList& inputs);
void RunConvTranspose(const ConvTransposeCore& core, const ConvTransposeState& state,
                      const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const ConvTransposeRule& kRule, const ConvTransposeCore& kCore>
struct ConvTransposePolicy : FramePolicy {
  static constexpr const char* kName = kRule.name;
  using State = ConvTransposeState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckConvTransposeSupport(kRule, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    ConfigConvTranspose(kName, kCore, layer_info, context, &state);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return ConvTransposeOutputShape(state.param, kRule.layout, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckConvTransposeInputs(state.param, kRule.layout, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckConvTransposeOutputs(kRule.layout, outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertConvTransposeRunnable(kName, kRule.layout, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunConvTranspose(kCore, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// One row of the list: X(group, isa, ClassName, accuracy, layout, kernel, dilation, groups, core); kernel and
// dilation hold along both axes.
// clang-format off
#define ZV_DEFINE_CONVTRANSPOSE_MEMBER(group, isa, cls, accuracy, layout, k, d, g, core)            \
  inline constexpr ::zelva::kernel::ConvTransposeRule cls##_rule{#cls, ::zelva::runtime::Layout::layout, \
                                                                 k, d, g};                           \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::ConvTransposePolicy<cls##_rule, core>>;
// clang-format on
