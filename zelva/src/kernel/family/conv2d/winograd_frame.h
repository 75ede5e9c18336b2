// The frame of the Winograd members: a planar 3x3 stride 1 convolution by F(2x2, 3x3), output tiles of 2 by 2
// from input tiles of 4 by 4 (ConvFrame<ConvLayout::kWinogradCHW>).
//
// Config flattens the description and transforms the weights once, U = G g G^T for each pair of output and
// input channel of a group, into a tensor [out_channels, in_channels / groups, 16] (row-major 4 by 4); the
// untransformed weights are not kept. Run pads the input into a copy of even_h + 2 rows and even_w + 2
// columns, where even_* is the output size rounded up to even: the layer's own padding on the top and left,
// and on the bottom and right the layer's padding plus one more zero row or column where the output size is
// odd, so that the tile loop has no edge case (the layer's padding and that second padding in one copy). It
// then sets every output plane to its bias (or zero) and the core adds the tiles in, dropping the second row
// or column of a tile that lies beyond an odd output height or width. The output shape is the planar one.
#pragma once

#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/cores.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/kernel/family/conv2d/rule.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct WinogradConvState {
  Conv2dParam param;
  std::shared_ptr<runtime::Tensor> transformed;  // [out_channels, in_channels / groups, 16]
  std::shared_ptr<runtime::Tensor> bias;
  Scratch padded;
  Scratch work;
};

// U = G g G^T of one 3x3 kernel g (row-major), into u[16] (row-major), with G of F(2, 3).
void WinogradTransformKernel(const float* g, float* u);
void ConfigWinogradConv(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, WinogradConvState* state);
void AssertWinogradConvRunnable(const char* name, const WinogradConvState& state,
                                const runtime::TensorList& inputs);
void RunWinogradConv(const WinogradConvCore& core, WinogradConvState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                     const std::shared_ptr<runtime::Context>& context);

// The planar steps but for configuring, checking the weights and running.
struct WinogradConvSteps : PlanarConvSteps {
  using State = WinogradConvState;
  using Core = WinogradConvCore;
  static constexpr auto Configure = &ConfigWinogradConv;
  static constexpr auto AssertRunnable = &AssertWinogradConvRunnable;
  static constexpr auto Run = &RunWinogradConv;
};

template <>
struct ConvFrame<ConvLayout::kWinogradCHW> : ConvFrameOf<WinogradConvSteps> {};

}  // namespace kernel
}  // namespace zelva
