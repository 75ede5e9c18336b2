// The frame of the blocked depthwise members (C4HW4, C8HW8), and the frame of each layout of the depthwise
// list: DepthwiseFrame<layout>::Policy<rule, core>. Planar rows run on the planar convolution frame; blocked
// rows on the blocked depthwise steps:
//
//   Config         the record; the weights [groups, 1, 1, K, K] repacked into the channel-blocked order
//                  G4NCHW4g or G8NCHW8g ([groups / lanes, 1, 1, K, K, lanes]); the bias kept as it comes
//                  ([groups, 1], channel order). The rule tests multiples of the block alone; a layer whose
//                  in and out channels are not both its groups is reported here, as its weights would not
//                  be one kernel per channel.
//   OutputShape    [out_channels / lanes, out_h, out_w, lanes], out_h and out_w as the planar frame gives
//                  them; data type, location and extra of the input.
//   CheckInputs    one tensor, main memory, data type 0 or 1, the member's layout, blocks x lanes equal to
//                  in_channels. CheckOutputs: one tensor, main memory, data type 0, the member's layout.
//   Run            a zero-padded copy of the input (kept between calls) when the layer pads, then the core
//                  on the output the kernel frame made.
#pragma once

#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/family/depthwise/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct BlockedDepthwiseState {
  Conv2dParam param;
  std::shared_ptr<runtime::Tensor> weight;  // G4NCHW4g or G8NCHW8g
  std::shared_ptr<runtime::Tensor> bias;    // null without bias
  Scratch padded;
};

// ---- The steps (blocked_frame.cc); `lanes` is 4 or 8.
runtime::TensorShape BlockedDepthwiseOutputShape(const Conv2dParam& param, uint32_t lanes,
                                                 const runtime::TensorShape& input);
void ConfigBlockedDepthwise(const char* name, uint32_t lanes,
                            const std::shared_ptr<runtime::LayerInfo>& layer_info,
                            const std::shared_ptr<runtime::Context>& context, BlockedDepthwiseState* state);
int32_t CheckBlockedDepthwiseInputs(const Conv2dParam& param, uint32_t lanes,
                                    const runtime::TensorList& inputs);
int32_t CheckBlockedDepthwiseOutputs(uint32_t lanes, const runtime::TensorList& outputs);
void AssertBlockedDepthwiseRunnable(const char* name, uint32_t lanes, const BlockedDepthwiseState& state,
                                    const runtime::TensorList& inputs);
void RunBlockedDepthwise(const BlockedDepthwiseCore& core, uint32_t lanes, BlockedDepthwiseState& state,
                         const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                         const std::shared_ptr<runtime::Context>& context);

template <uint32_t kLanes>
struct BlockedDepthwiseSteps {
  using State = BlockedDepthwiseState;
  using Core = BlockedDepthwiseCore;
  static void Configure(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, State* state) {
    ConfigBlockedDepthwise(name, kLanes, layer_info, context, state);
  }
  static runtime::TensorShape OutputShape(const Conv2dRule&, const State& state,
                                          const runtime::TensorShape& input) {
    return BlockedDepthwiseOutputShape(state.param, kLanes, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckBlockedDepthwiseInputs(state.param, kLanes, inputs);
  }
  static int32_t CheckOutputs(const runtime::TensorList& outputs) {
    return CheckBlockedDepthwiseOutputs(kLanes, outputs);
  }
  static void AssertRunnable(const char* name, const State& state, const runtime::TensorList& inputs) {
    AssertBlockedDepthwiseRunnable(name, kLanes, state, inputs);
  }
  static void Run(const Core& core, State& state, const runtime::TensorList& inputs,
                  const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
    RunBlockedDepthwise(core, kLanes, state, inputs, outputs, context);
  }
};

template <ConvLayout L>
struct DepthwiseFrame;

template <>
struct DepthwiseFrame<ConvLayout::kCHW> : ConvFrameOf<PlanarConvSteps> {};
template <>
struct DepthwiseFrame<ConvLayout::kC4HW4> : ConvFrameOf<BlockedDepthwiseSteps<4>> {};
template <>
struct DepthwiseFrame<ConvLayout::kC8HW8> : ConvFrameOf<BlockedDepthwiseSteps<8>> {};

}  // namespace kernel
}  // namespace zelva

// One row of the depthwise list (columns as in conv2d/rule.h): the rule, and the class name as an alias of
// Kernel<the layout's depthwise policy over rule and core>.
// clang-format off
#define ZV_DEFINE_DEPTHWISE_MEMBER(group, isa, cls, accuracy, layout, ky, kx, sy, sx, dy, dx, channels, groups, \
                                   pl, pr, pt, pb, core)                                                        \
  inline constexpr ::zelva::kernel::Conv2dRule cls##_rule{                                                      \
      #cls, ky, kx, sy, sx, dy, dx, ::zelva::kernel::ConvChannels::channels,                                     \
      ::zelva::kernel::ConvGroups::groups, pl, pr, pt, pb};                                                      \
  using cls = ::zelva::kernel::Kernel<                                                                           \
      ::zelva::kernel::DepthwiseFrame<::zelva::kernel::ConvLayout::k##layout>::Policy<cls##_rule, core>>;
// clang-format on
