// The frame of the channel-blocked (C4HW4, C8HW8) 2D convolution members: the policy their rows instantiate
// (ConvFrame<ConvLayout::kC4HW4> and <kC8HW8>). Config flattens the description, loads the weights and
// repacks them to GN4C4HW4n4c or GN8C8HW8n8c ([groups, out/B, in/B, kernel_y, kernel_x, B (input), B
// (output)], the output channel innermost) and keeps the bias when the layer has one. Run pads a copy of the
// input (kept between calls) when the layer pads, expands it into columns for the column cores, and runs the
// core once per group on the output the kernel frame created.
//
// The input is [in/B, H, W, B]; the output [out/B, out_h, out_w, B] in the member's layout, with the data
// type, location and extra of the input; out_w = (W + padding_l + padding_r - (dilation_x * (kernel_x - 1) +
// 1)) / stride_x + 1, out_h likewise. The square members compute out_h from kernel_x too, which their rule
// makes the same number as kernel_y. Every group's channel counts must be multiples of B: the rules of the
// fixed-size members test the layer's totals only, and Config reports a group that does not divide.
#pragma once

#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// What a blocked convolution kernel keeps: the planar state with the weight repacked, and the column
// expansion of the column cores.
struct BlockedConvState : PlanarConvState {
  Scratch columns;
};

// ---- The shared steps (blocked_frame.cc)
// Output shape; `square` computes out_h from kernel_x. Reports a padded input smaller than the kernel span.
runtime::TensorShape BlockedConvOutputShape(const Conv2dParam& param, uint32_t block, bool square,
                                            const runtime::TensorShape& input);
// The Configure hook: the planar steps, then the weight repacked for `block`.
void ConfigBlockedConv(const char* name, uint32_t block,
                       const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::Context>& context, BlockedConvState* state);
// One tensor, main memory, data type 0 or 1, the member's layout, [in_channels / block, H, W, block].
int32_t CheckBlockedConvInputs(const Conv2dParam& param, uint32_t block, const runtime::TensorList& inputs);
// One tensor, main memory, data type 0, the member's layout.
int32_t CheckBlockedConvOutputs(uint32_t block, const runtime::TensorList& outputs);
// The cores read FLOAT32 [in_channels / block, H, W, block] with the configured weights; anything else is
// reported.
void AssertBlockedConvRunnable(const char* name, uint32_t block, const BlockedConvState& state,
                               const runtime::TensorList& inputs);
void RunBlockedConv(const BlockedConvCore& core, BlockedConvState& state, const runtime::TensorList& inputs,
                    const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context);
// Copies [blocks, h, w, block] into [blocks, h + t + b, w + l + r, block] with zero margins: the planar pad
// of rows w * block floats wide.
inline void PadBlocked(const float* src, uint32_t blocks, uint32_t h, uint32_t w, uint32_t block, uint32_t l,
                       uint32_t r, uint32_t t, uint32_t b, float* dst) {
  PadPlanar(src, blocks, h, w * block, l * block, r * block, t, b, dst);
}
// The column expansion of one group's padded input [blocks, h, w, block]: for each input block and tap (i, j)
// in order, the out_h x out_w block vectors the tap meets, read at rows oy * stride_y + i * dilation_y and
// columns ox * stride_x + j * dilation_x.
void ExpandBlockedColumns(const float* src, uint32_t blocks, uint32_t h, uint32_t w, uint32_t block,
                          const Conv2dParam& param, uint32_t out_h, uint32_t out_w, float* dst);

template <uint32_t kBlock>
struct BlockedConvSteps {
  using State = BlockedConvState;
  using Core = BlockedConvCore;
  static void Configure(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, State* state) {
    ConfigBlockedConv(name, kBlock, layer_info, context, state);
  }
  static runtime::TensorShape OutputShape(const Conv2dRule& rule, const State& state,
                                          const runtime::TensorShape& input) {
    const bool square = rule.kernel_y == rule.kernel_x && rule.kernel_x != kConvAny;
    return BlockedConvOutputShape(state.param, kBlock, square, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckBlockedConvInputs(state.param, kBlock, inputs);
  }
  static int32_t CheckOutputs(const runtime::TensorList& outputs) {
    return CheckBlockedConvOutputs(kBlock, outputs);
  }
  static void AssertRunnable(const char* name, const State& state, const runtime::TensorList& inputs) {
    AssertBlockedConvRunnable(name, kBlock, state, inputs);
  }
  static constexpr auto Run = &RunBlockedConv;
};

template <>
struct ConvFrame<ConvLayout::kC4HW4> : ConvFrameOf<BlockedConvSteps<4>> {};
template <>
struct ConvFrame<ConvLayout::kC8HW8> : ConvFrameOf<BlockedConvSteps<8>> {};

}  // namespace kernel
}  // namespace zelva
