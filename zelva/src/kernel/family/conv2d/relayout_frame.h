// The frame of the convolution members that change the layout on the way: a three-channel planar input
// (the first layer of an image net) convolved into a 4- or 8-blocked output, and an 8-blocked input
// convolved into a single planar output channel (the last layer). The policy every such row instantiates
// (ConvFrame<ConvLayout::kCHWToC4HW4>, kCHWToC8HW8, kC8HW8ToCHW).
//
// Config flattens the description and repacks the weights for the inner routine: planar input into blocked
// output as GN4CHW4n / GN8CHW8n [groups, out/B, in, kernel_y, kernel_x, B] (one vector load gives the weight
// of B output channels for one input channel and tap); blocked input into one output as "GNC8HW8c"
// [groups, out, in/8, kernel_y, kernel_x, 8] (one vector load gives the weight of eight input channels).
// Run pads a copy of the input in its own layout (kept between calls) and calls the core, which starts every
// output value from its bias, or 0.0.
//
// The blocked output is [out_channels / B, out_h, out_w, B], with out_w = (W + padding_l + padding_r -
// (dilation_x * (kernel_x - 1) + 1)) / stride_x + 1 and out_h = (H + padding_t + padding_b - (dilation_y *
// (kernel_x - 1) + 1)) / stride_y + 1: the height reads kernel_x, as in the blocked convolutions whose
// routine these members share; their kernels are square. The planar output is [1, out_h, out_w].
#pragma once

#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct RelayoutConvState {
  Conv2dParam param;
  std::shared_ptr<runtime::Tensor> weight;  // repacked
  std::shared_ptr<runtime::Tensor> bias;
  Scratch padded;
};

runtime::TensorShape RelayoutConvOutputShape(ConvLayout layout, const Conv2dParam& param,
                                             const runtime::TensorShape& input);
void ConfigRelayoutConv(ConvLayout layout, const char* name,
                        const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, RelayoutConvState* state);
// One tensor, main memory, data type 0 or 1, the member's input layout, and block count times block size
// equal to in_channels.
int32_t CheckRelayoutConvInputs(ConvLayout layout, const Conv2dParam& param,
                                const runtime::TensorList& inputs);
// One tensor, main memory, data type 0, the member's output layout.
int32_t CheckRelayoutConvOutputs(ConvLayout layout, const runtime::TensorList& outputs);
void AssertRelayoutConvRunnable(ConvLayout layout, const char* name, const RelayoutConvState& state,
                                const runtime::TensorList& inputs);
void RunRelayoutConv(const RelayoutConvCore& core, RelayoutConvState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                     const std::shared_ptr<runtime::Context>& context);

template <ConvLayout kLayout>
struct RelayoutConvSteps {
  using State = RelayoutConvState;
  using Core = RelayoutConvCore;
  static void Configure(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, State* state) {
    ConfigRelayoutConv(kLayout, name, layer_info, context, state);
  }
  static runtime::TensorShape OutputShape(const Conv2dRule&, const State& state,
                                          const runtime::TensorShape& input) {
    return RelayoutConvOutputShape(kLayout, state.param, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckRelayoutConvInputs(kLayout, state.param, inputs);
  }
  static int32_t CheckOutputs(const runtime::TensorList& outputs) {
    return CheckRelayoutConvOutputs(kLayout, outputs);
  }
  static void AssertRunnable(const char* name, const State& state, const runtime::TensorList& inputs) {
    AssertRelayoutConvRunnable(kLayout, name, state, inputs);
  }
  static constexpr auto Run = &RunRelayoutConv;
};

template <>
struct ConvFrame<ConvLayout::kCHWToC4HW4> : ConvFrameOf<RelayoutConvSteps<ConvLayout::kCHWToC4HW4>> {};
template <>
struct ConvFrame<ConvLayout::kCHWToC8HW8> : ConvFrameOf<RelayoutConvSteps<ConvLayout::kCHWToC8HW8>> {};
template <>
struct ConvFrame<ConvLayout::kC8HW8ToCHW> : ConvFrameOf<RelayoutConvSteps<ConvLayout::kC8HW8ToCHW>> {};

}  // namespace kernel
}  // namespace zelva
