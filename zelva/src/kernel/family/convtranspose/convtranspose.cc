#include "zelva/src/kernel/family/convtranspose/convtranspose.h"

#include <string>
#include <vector>

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

uint32_t LanesOf(uint32_t layout) {
  return layout == Layout::C4HW4 ? 4u : layout == Layout::C8HW8 ? 8u : 1u;
}

bool Matches(uint32_t rule, uint32_t value) {
  return rule == kConvTransposeNonZero ? value != 0 : value == rule;
}

std::vector<float> Decode(const std::string& text, uint64_t count, const char* name, const char* what,
                          const std::string& id) {
  std::vector<float> values = runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count, "[%s] layer %s: %s holds %zu values, %llu needed.", name, id.c_str(),
            what, values.size(), static_cast<unsigned long long>(count));
  return values;
}

// (size - 1) * stride + dilation * (kernel - 1) + 1 - before - after, reported when nothing is left.
uint32_t OutputSize(uint32_t size, uint32_t stride, uint32_t dilation, uint32_t kernel, int32_t before,
                    int32_t after, char axis) {
  ZV_ASSERT(size != 0, "transposed convolution of an empty input along %c.", axis);
  const int64_t full =
      (static_cast<int64_t>(size) - 1) * stride + static_cast<int64_t>(dilation) * (kernel - 1) + 1;
  const int64_t out = full - before - after;
  ZV_ASSERT(out > 0, "transposed convolution output of %lld along %c after cropping.",
            static_cast<long long>(out), axis);
  return static_cast<uint32_t>(out);
}

}  // namespace

int32_t CheckConvTransposeSupport(const ConvTransposeRule& rule,
                                  const std::shared_ptr<runtime::LayerInfo>& info,
                                  const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  const uint32_t lanes = LanesOf(rule.layout);
  return SupportFor<runtime::ConvTranspose2dInfo>(
      info, inference_param, [&rule, lanes](const runtime::ConvTranspose2dInfo& i) {
        const bool pass = Matches(rule.kernel, i.kernel_y) && Matches(rule.kernel, i.kernel_x) &&
                          Matches(rule.dilation, i.dilation_y) && Matches(rule.dilation, i.dilation_x) &&
                          Matches(rule.groups, i.groups) && i.groups != 0 && i.stride_y != 0 &&
                          i.stride_x != 0 && i.in_channels != 0 && i.out_channels != 0 &&
                          i.in_channels % i.groups == 0 && i.out_channels % i.groups == 0 &&
                          i.in_channels % lanes == 0 && i.out_channels % lanes == 0;
        return pass ? runtime::kKernelOk : runtime::kKernelNotSupported;
      });
}

void ConfigConvTranspose(const char* name, const ConvTransposeCore& core,
                         const std::shared_ptr<runtime::LayerInfo>& layer_info,
                         const std::shared_ptr<runtime::Context>& context, ConvTransposeState* state) {
  auto info = std::static_pointer_cast<runtime::ConvTranspose2dInfo>(layer_info);
  state->param = ToParam(info);
  const ConvTranspose2dParam& p = state->param;
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  const uint32_t n = p.in_channels_per_group, c = p.out_channels_per_group, taps = p.kernel_y * p.kernel_x;
  const std::vector<float> weight =
      Decode(info->weight, static_cast<uint64_t>(p.in_channels) * c * taps, name, "weight", info->id);
  std::vector<float> bias;
  if (p.if_bias != 0) bias = Decode(info->bias, p.out_channels, name, "bias", info->id);
  state->bias.reset();
  if (core.lanes == 0) {
    device->CreateTensor(
        state->weight,
        runtime::TensorShape({p.groups, n, c, p.kernel_y, p.kernel_x}, DataType::FLOAT32, Layout::GNCHW),
        weight.data());
    if (p.if_bias != 0)
      device->CreateTensor(state->bias, runtime::TensorShape({p.out_channels}, DataType::FLOAT32, Layout::C),
                           bias.data());
    return;
  }
  // One group: weight (i, o, tap) goes to [o / lanes][i][tap][o % lanes]; lanes past out stay 0.
  const uint32_t L = core.lanes, blocks = (p.out_channels + L - 1) / L;
  std::vector<float> packed(static_cast<size_t>(blocks) * p.in_channels * taps * L, 0.0f);
  for (uint32_t i = 0; i < p.in_channels; ++i)
    for (uint32_t o = 0; o < p.out_channels; ++o)
      for (uint32_t t = 0; t < taps; ++t)
        packed[((static_cast<size_t>(o / L) * p.in_channels + i) * taps + t) * L + o % L] =
            weight[(static_cast<size_t>(i) * p.out_channels + o) * taps + t];
  device->CreateTensor(state->weight,
                       runtime::TensorShape({blocks, p.in_channels, p.kernel_y, p.kernel_x, L},
                                            DataType::FLOAT32, Layout::FLEXIABLE),
                       packed.data());
  if (p.if_bias != 0) {
    bias.resize(p.out_channels);
    bias.resize(static_cast<size_t>(blocks) * L, 0.0f);
    device->CreateTensor(state->bias, runtime::TensorShape({blocks * L}, DataType::FLOAT32, Layout::C),
                         bias.data());
  }
}

runtime::TensorShape ConvTransposeOutputShape(const ConvTranspose2dParam& p, uint32_t layout,
                                              const runtime::TensorShape& input) {
  const uint32_t lanes = LanesOf(layout);
  ZV_ASSERT(input.dims.size() == (lanes == 1 ? 3u : 4u), "transposed convolution input of rank %zu.",
            input.dims.size());
  const uint32_t out_h =
      OutputSize(input.dims[1], p.stride_y, p.dilation_y, p.kernel_y, p.padding_t, p.padding_b, 'y');
  const uint32_t out_w =
      OutputSize(input.dims[2], p.stride_x, p.dilation_x, p.kernel_x, p.padding_l, p.padding_r, 'x');
  const uint64_t values = static_cast<uint64_t>(p.out_channels) * out_h * out_w;
  ZV_ASSERT(values < (1ull << 29), "transposed convolution output of %llu values is too large.",
            static_cast<unsigned long long>(values));
  std::vector<uint32_t> dims = {p.out_channels, out_h, out_w};
  if (lanes != 1) dims = {p.out_channels / lanes, out_h, out_w, lanes};
  return runtime::TensorShape(std::move(dims), input.data_type, layout, input.location, input.extra);
}

int32_t CheckConvTransposeInputs(const ConvTranspose2dParam& p, uint32_t layout,
                                 const runtime::TensorList& inputs) {
  if (CheckFloatTensors(inputs) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  const uint32_t lanes = LanesOf(layout);
  if (s.layout != layout || s.dims.size() != (lanes == 1 ? 3u : 4u) || s.dims[0] * lanes != p.in_channels ||
      (lanes != 1 && s.dims[3] != lanes))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckConvTransposeOutputs(uint32_t layout, const runtime::TensorList& outputs) {
  if (CheckFloatTensors(outputs) != runtime::kKernelOk || outputs[0]->shape.layout != layout)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertConvTransposeRunnable(const char* name, uint32_t layout, const ConvTransposeState& state,
                                 const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  ZV_ASSERT(CheckConvTransposeInputs(state.param, layout, inputs) == runtime::kKernelOk,
            "[%s] needs one float tensor of %u channels in its layout.", name, state.param.in_channels);
}

void RunConvTranspose(const ConvTransposeCore& core, const ConvTransposeState& state,
                      const runtime::TensorList& inputs, const runtime::TensorList& outputs) {
  const ConvTranspose2dParam& p = state.param;
  const runtime::TensorShape& in = inputs[0]->shape;
  const runtime::TensorShape& out = outputs[0]->shape;
  ConvTransposeArgs args{inputs[0]->Data<float>(),
                         in.dims[1],
                         in.dims[2],
                         outputs[0]->Data<float>(),
                         out.dims[1],
                         out.dims[2],
                         state.weight->Data<float>(),
                         state.bias != nullptr ? state.bias->Data<float>() : nullptr,
                         p.in_channels,
                         p.out_channels,
                         p.groups,
                         p.kernel_y,
                         p.kernel_x,
                         p.stride_y,
                         p.stride_x,
                         p.dilation_y,
                         p.dilation_x,
                         p.padding_t,
                         p.padding_l};
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
