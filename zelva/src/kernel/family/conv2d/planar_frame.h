// The frame of the planar (CHW) convolution members, 2D and depthwise: the policy every CHW row of the
// convolution lists instantiates (ConvFrame<ConvLayout::kCHW>). Config flattens the description and keeps the
// weights as they come ("GNCHW" [groups, out/groups, in/groups, kernel_y, kernel_x]) with the bias ("GN"
// [groups, out/groups]) when the layer has one; Run pads a copy of the input (kept between calls) when the
// member's core asks for it and the layer pads, and runs the core on the output the kernel frame created; the
// core starts each output value from its bias (or zero) and accumulates.
//
// out_h = (H + padding_t + padding_b - (dilation_y * (kernel_y - 1) + 1)) / stride_y + 1, out_w likewise
// with the x fields; unsigned, truncating. The output is [out_channels, out_h, out_w] in CHW with the data
// type, location and extra of the input.
#pragma once

#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// What a planar convolution kernel keeps.
struct PlanarConvState {
  Conv2dParam param;
  std::shared_ptr<runtime::Tensor> weight;
  std::shared_ptr<runtime::Tensor> bias;
  Scratch padded;  // the zero-padded input of the cores that want one
};

// ---- The shared steps (planar_frame.cc)
// Output shape of a planar convolution; reports a padded input smaller than the dilated kernel, and a zero
// stride, instead of wrapping.
runtime::TensorShape PlanarConvOutputShape(const Conv2dParam& param, const runtime::TensorShape& input);
// The Configure hook: the record, then the weight and bias tensors on the context's device. Reports weight
// texts that hold fewer values than the layer's fields ask for, and channel counts that do not divide into
// the groups.
void ConfigPlanarConv(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                      const std::shared_ptr<runtime::Context>& context, PlanarConvState* state);
// One tensor, main memory, data type 0 or 1, layout CHW and in_channels channels.
int32_t CheckPlanarConvInputs(const Conv2dParam& param, const runtime::TensorList& inputs);
// One tensor, main memory, data type 0, layout CHW.
int32_t CheckPlanarConvOutputs(const runtime::TensorList& outputs);
// The cores read FLOAT32 [in_channels, H, W] with the configured weights; anything else is reported.
void AssertPlanarConvRunnable(const char* name, const PlanarConvState& state,
                              const runtime::TensorList& inputs);
void RunPlanarConv(const PlanarConvCore& core, PlanarConvState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context);
// Copies [channels, h, w] into [channels, h + t + b, w + l + r] with zero margins.
void PadPlanar(const float* src, uint32_t channels, uint32_t h, uint32_t w, uint32_t l, uint32_t r,
               uint32_t t, uint32_t b, float* dst);

struct PlanarConvSteps {
  using State = PlanarConvState;
  using Core = PlanarConvCore;
  static constexpr auto Configure = &ConfigPlanarConv;
  template <class AnyState>  // also the Winograd state
  static runtime::TensorShape OutputShape(const Conv2dRule&, const AnyState& state,
                                          const runtime::TensorShape& input) {
    return PlanarConvOutputShape(state.param, input);
  }
  template <class AnyState>
  static int32_t CheckInputs(const AnyState& state, const runtime::TensorList& inputs) {
    return CheckPlanarConvInputs(state.param, inputs);
  }
  static constexpr auto CheckOutputs = &CheckPlanarConvOutputs;
  static constexpr auto AssertRunnable = &AssertPlanarConvRunnable;
  static constexpr auto Run = &RunPlanarConv;
};

template <>
struct ConvFrame<ConvLayout::kCHW> : ConvFrameOf<PlanarConvSteps> {};

}  // namespace kernel
}  // namespace zelva
