#include "zelva/src/kernel/family/conv2d/winograd_frame.h"

#include <algorithm>

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;

void WinogradTransformKernel(const float* g, float* u) {
  // Gg: 4 rows of 3, G = [1 0 0; .5 .5 .5; .5 -.5 .5; 0 0 1].
  float gg[4][3];
  for (int c = 0; c < 3; ++c) {
    gg[0][c] = g[c];
    gg[1][c] = 0.5f * (g[c] + g[3 + c] + g[6 + c]);
    gg[2][c] = 0.5f * (g[c] - g[3 + c] + g[6 + c]);
    gg[3][c] = g[6 + c];
  }
  // (Gg) G^T: 4 by 4.
  for (int r = 0; r < 4; ++r) {
    u[r * 4 + 0] = gg[r][0];
    u[r * 4 + 1] = 0.5f * (gg[r][0] + gg[r][1] + gg[r][2]);
    u[r * 4 + 2] = 0.5f * (gg[r][0] - gg[r][1] + gg[r][2]);
    u[r * 4 + 3] = gg[r][2];
  }
}

void ConfigWinogradConv(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, WinogradConvState* state) {
  PlanarConvState plain;
  ConfigPlanarConv(name, layer_info, context, &plain);
  const Conv2dParam& p = plain.param;
  state->param = p;
  state->bias = plain.bias;
  const uint32_t pairs = p.out_channels * p.in_channels_per_group;
  context->GetDeviceCPU()->CreateTensor(
      state->transformed,
      runtime::TensorShape({p.out_channels, p.in_channels_per_group, 16}, DataType::FLOAT32, Layout::CHW));
  const float* g = plain.weight->Data<float>();
  float* u = state->transformed->Data<float>();
  for (uint32_t k = 0; k < pairs; ++k) WinogradTransformKernel(g + k * 9, u + k * 16);
}

void AssertWinogradConvRunnable(const char* name, const WinogradConvState& state,
                                const runtime::TensorList& inputs) {
  ZV_ASSERT(state.transformed != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.dims.size() == 3 && in.dims[0] == state.param.in_channels,
            "[%s] needs a float tensor [%u, H, W].", name, state.param.in_channels);
}

void RunWinogradConv(const WinogradConvCore& core, WinogradConvState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                     const std::shared_ptr<runtime::Context>& context) {
  const Conv2dParam& p = state.param;
  const runtime::TensorShape& in = inputs[0]->shape;
  runtime::Tensor& output = *outputs[0];
  runtime::DeviceCPU& device = *context->GetDeviceCPU();
  WinogradConvArgs a;
  a.out_h = output.shape.dims[1];
  a.out_w = output.shape.dims[2];
  const uint32_t even_h = (a.out_h + 1) & ~1u, even_w = (a.out_w + 1) & ~1u;
  a.in_h = even_h + 2;
  a.in_w = even_w + 2;
  // The padded rows the layer's padding gives are out_h + 2; the rest of the bottom and right is the second
  // padding.
  float* padded = state.padded.Floats(device, p.in_channels * a.in_h * a.in_w);
  PadPlanar(inputs[0]->Data<float>(), p.in_channels, in.dims[1], in.dims[2], p.padding_l,
            a.in_w - in.dims[2] - p.padding_l, p.padding_t, a.in_h - in.dims[1] - p.padding_t, padded);
  a.input = padded;
  a.output = output.Data<float>();
  const size_t plane = static_cast<size_t>(a.out_h) * a.out_w;
  for (uint32_t oc = 0; oc < p.out_channels; ++oc) {
    std::fill(a.output + oc * plane, a.output + (oc + 1) * plane,
              state.bias != nullptr ? state.bias->Data<float>()[oc] : 0.0f);
  }
  a.transformed = state.transformed->Data<float>();
  a.param = &p;
  a.work = state.work.Floats(device, core.work_floats(p, (even_h / 2) * (even_w / 2)));
  core.run(a);
}

}  // namespace kernel
}  // namespace zelva
