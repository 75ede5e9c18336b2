// The frame of the 16-bit integer 1x1 convolution (Conv2dInfo layers with an InferenceParamConv2DQuant).
// Its one row instantiates Conv2dInt16Policy.
//
//   CheckSupport   0 only with an InferenceParamConv2DQuant (this is the one kernel that requires a
//   parameter)
//                  whose weight_step_size and output_step_size lie in [-16, 30], and a Conv2dInfo with the
//                  name's geometry: kernel 1x1, stride 1x1, dilation 1x1, groups 1, no padding, in and out
//                  channels non-zero multiples of 8. -1 otherwise.
//   Config         the record; the weights [out, in, 1, 1] quantised at weight_step_size (cores.h) and packed
//                  for the core; the bias kept as float (zeros without bias); the input step is
//                  output_step_size, the step of the activations that enter the layer.
//   OutputShape    [out_channels / 8, H, W, 8], FLOAT32 C8HW8; location and extra of the input.
//   CheckInputs    one FLOAT32 C8HW8 tensor in main memory of in_channels / 8 blocks; else -2. CheckOutputs:
//                  one FLOAT32 C8HW8 tensor.
//   Run            the input quantised into the kernel's int16 buffer (kept between calls), then the core.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d_int16/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct Conv2dInt16Row {
  const char* name;
  void (*core)(const Conv2dInt16Args& args);
};

struct Conv2dInt16State {
  Conv2dParam param;
  int32_t weight_step = 0, input_step = 0;
  std::shared_ptr<runtime::Tensor> weight;  // INT16, packed for the core
  std::shared_ptr<runtime::Tensor> bias;    // FLOAT32 [out_channels]
  std::vector<int16_t> quantized;           // the quantised input, kept between calls
};

// ---- The steps (conv2d_int16.cc)
int32_t CheckConv2dInt16Support(const std::shared_ptr<runtime::LayerInfo>& info,
                                const std::shared_ptr<runtime::InferenceParam>& param);
void ConfigConv2dInt16(const char* name, Conv2dInt16State* state,
                       const std::shared_ptr<runtime::LayerInfo>& info,
                       const std::shared_ptr<runtime::InferenceParam>& param,
                       const std::shared_ptr<runtime::Context>& context);
runtime::TensorShape Conv2dInt16OutputShape(const char* name, const Conv2dInt16State& state,
                                            const runtime::TensorShape& input);
int32_t CheckConv2dInt16Inputs(const Conv2dInt16State& state, const runtime::TensorList& inputs);
int32_t CheckConv2dInt16Outputs(const runtime::TensorList& outputs);
void AssertConv2dInt16Runnable(const char* name, const Conv2dInt16State& state,
                               const runtime::TensorList& inputs);
void RunConv2dInt16(const Conv2dInt16Row& row, Conv2dInt16State& state, const runtime::TensorList& inputs,
                    const runtime::TensorList& outputs);

template <const Conv2dInt16Row& kRow>
struct Conv2dInt16Policy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = Conv2dInt16State;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                              const std::shared_ptr<runtime::InferenceParam>& param) {
    return CheckConv2dInt16Support(info, param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& info,
                        const std::shared_ptr<runtime::InferenceParam>& param,
                        const std::shared_ptr<runtime::Context>& context) {
    ConfigConv2dInt16(kName, &state, info, param, context);
  }
  static void Refused(State& state) { state.weight.reset(); }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return Conv2dInt16OutputShape(kName, state, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckConv2dInt16Inputs(state, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckConv2dInt16Outputs(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertConv2dInt16Runnable(kName, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunConv2dInt16(kRow, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_CONV2D_INT16_MEMBER(group, isa, cls, accuracy, core)    \
  inline constexpr ::zelva::kernel::Conv2dInt16Row cls##_row{#cls, core}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::Conv2dInt16Policy<cls##_row>>;
