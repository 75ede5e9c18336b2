#include "zelva/src/kernel/family/conv2d/relayout_frame.h"

#include <cstring>

#include "zelva/src/kernel/family/conv2d/blocked_frame.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"
#include "zelva/src/runtime/layout_convert.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

uint32_t InBlock(ConvLayout layout) {
  return layout == ConvLayout::kC8HW8ToCHW ? 8 : 1;
}
uint32_t OutBlock(ConvLayout layout) {
  return layout == ConvLayout::kCHWToC4HW4 ? 4 : layout == ConvLayout::kCHWToC8HW8 ? 8 : 1;
}

uint32_t OutputSize(uint32_t size, uint32_t pad_before, uint32_t pad_after, uint32_t kernel,
                    uint32_t dilation, uint32_t stride, char axis) {
  const uint64_t padded = static_cast<uint64_t>(size) + pad_before + pad_after;
  const uint64_t span = static_cast<uint64_t>(dilation) * (kernel - 1) + 1;
  ZV_ASSERT(padded >= span, "padded input of %llu along %c is smaller than the kernel span %llu.",
            static_cast<unsigned long long>(padded), axis, static_cast<unsigned long long>(span));
  return static_cast<uint32_t>((padded - span) / stride + 1);
}

}  // namespace

runtime::TensorShape RelayoutConvOutputShape(ConvLayout layout, const Conv2dParam& p,
                                             const runtime::TensorShape& input) {
  const uint32_t in_block = InBlock(layout), out_block = OutBlock(layout);
  ZV_ASSERT(input.dims.size() == (in_block == 1 ? 3u : 4u), "convolution input of rank %zu.",
            input.dims.size());
  ZV_ASSERT(p.stride_x != 0 && p.stride_y != 0 && p.kernel_x != 0,
            "convolution with a zero stride or kernel.");
  const uint32_t out_h =
      OutputSize(input.dims[1], p.padding_t, p.padding_b, p.kernel_x, p.dilation_y, p.stride_y, 'y');
  const uint32_t out_w =
      OutputSize(input.dims[2], p.padding_l, p.padding_r, p.kernel_x, p.dilation_x, p.stride_x, 'x');
  if (out_block == 1) {
    return runtime::TensorShape({p.out_channels, out_h, out_w}, input.data_type, Layout::CHW, input.location,
                                input.extra);
  }
  const uint32_t shift = out_block == 4 ? 2 : 3;
  return runtime::TensorShape({(p.out_channels + out_block - 1) >> shift, out_h, out_w, out_block},
                              input.data_type, ConvOutputLayout(layout), input.location, input.extra);
}

void ConfigRelayoutConv(ConvLayout layout, const char* name,
                        const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context, RelayoutConvState* state) {
  PlanarConvState plain;
  ConfigPlanarConv(name, layer_info, context, &plain);
  state->param = plain.param;
  state->bias = plain.bias;
  runtime::DeviceCPU& device = *context->GetDeviceCPU();
  switch (layout) {
    case ConvLayout::kCHWToC4HW4:
      state->weight = runtime::ConvertGNCHWToGN4CHW4n(plain.weight, device);
      break;
    case ConvLayout::kCHWToC8HW8:
      state->weight = runtime::ConvertGNCHWToGN8CHW8n(plain.weight, device);
      break;
    default:
      state->weight = runtime::ConvertGNCHWToGNC8HW8c(plain.weight, device);
      break;
  }
}

int32_t CheckRelayoutConvInputs(ConvLayout layout, const Conv2dParam& param,
                                const runtime::TensorList& inputs) {
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  const uint32_t block = InBlock(layout);
  if (s.location != Location::MainMemory || s.data_type > DataType::FLOAT16 ||
      s.layout != ConvInputLayout(layout) || s.dims.size() != (block == 1 ? 3u : 4u) ||
      s.dims[0] * (block == 1 ? 1 : s.dims[3]) != param.in_channels)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckRelayoutConvOutputs(ConvLayout layout, const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = outputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type != DataType::FLOAT32 ||
      s.layout != ConvOutputLayout(layout))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertRelayoutConvRunnable(ConvLayout layout, const char* name, const RelayoutConvState& state,
                                const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  const uint32_t block = InBlock(layout);
  const bool planar = block == 1;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.layout == ConvInputLayout(layout) &&
                in.dims.size() == (planar ? 3u : 4u) && (planar || in.dims[3] == block) &&
                in.dims[0] * block == state.param.in_channels,
            "[%s] needs a float %s tensor of %u channels.", name, planar ? "planar" : "8-blocked",
            state.param.in_channels);
}

void RunRelayoutConv(const RelayoutConvCore& core, RelayoutConvState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                     const std::shared_ptr<runtime::Context>& context) {
  const Conv2dParam& p = state.param;
  const runtime::Tensor& input = *inputs[0];
  const runtime::TensorShape& in = input.shape;
  const bool planar = in.layout == Layout::CHW;
  const uint32_t lanes = planar ? 1 : 8, channels = planar ? in.dims[0] : in.dims[0] * 8;
  const uint32_t h = in.dims[1] + p.padding_t + p.padding_b, w = in.dims[2] + p.padding_l + p.padding_r;
  float* padded = state.padded.Floats(*context->GetDeviceCPU(), channels * h * w);
  if (planar) {
    PadPlanar(input.Data<float>(), channels, in.dims[1], in.dims[2], p.padding_l, p.padding_r, p.padding_t,
              p.padding_b, padded);
  } else {
    PadBlocked(input.Data<float>(), channels / lanes, in.dims[1], in.dims[2], lanes, p.padding_l, p.padding_r,
               p.padding_t, p.padding_b, padded);
  }
  runtime::Tensor& output = *outputs[0];
  RelayoutConvArgs args;
  args.input = padded;
  args.in_h = h;
  args.in_w = w;
  args.output = output.Data<float>();
  args.out_h = output.shape.dims[1];
  args.out_w = output.shape.dims[2];
  args.weight = state.weight->Data<float>();
  args.bias = state.bias != nullptr ? state.bias->Data<float>() : nullptr;
  args.param = &p;
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
