#include "zelva/src/kernel/family/conv2d/planar_frame.h"

#include <cstring>

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

// (size + pad_before + pad_after - (dilation * (kernel - 1) + 1)) / stride + 1, reported when the padded size
// does not hold the dilated kernel.
uint32_t OutputSize(uint32_t size, uint32_t pad_before, uint32_t pad_after, uint32_t kernel,
                    uint32_t dilation, uint32_t stride, char axis) {
  const uint64_t padded = static_cast<uint64_t>(size) + pad_before + pad_after;
  const uint64_t span = static_cast<uint64_t>(dilation) * (kernel - 1) + 1;
  ZV_ASSERT(stride != 0 && kernel != 0, "convolution with a zero stride or kernel along %c.", axis);
  ZV_ASSERT(padded >= span, "padded input of %llu along %c is smaller than the kernel span %llu.",
            static_cast<unsigned long long>(padded), axis, static_cast<unsigned long long>(span));
  return static_cast<uint32_t>((padded - span) / stride + 1);
}

void MakeTensor(runtime::DeviceCPU* device, std::shared_ptr<runtime::Tensor>* tensor, const std::string& text,
                std::vector<uint32_t> dims, uint32_t layout, const char* name, const char* what,
                const std::string& id) {
  const std::vector<float> values = runtime::DecodeWeights(text);
  uint64_t count = 1;
  for (const uint32_t d : dims) count *= d;
  ZV_ASSERT(values.size() >= count, "[%s] layer %s: %s holds %zu values, %llu needed.", name, id.c_str(),
            what, values.size(), static_cast<unsigned long long>(count));
  device->CreateTensor(*tensor, runtime::TensorShape(std::move(dims), DataType::FLOAT32, layout),
                       values.data());
}

}  // namespace

runtime::TensorShape PlanarConvOutputShape(const Conv2dParam& p, const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 3, "planar convolution input of rank %zu.", input.dims.size());
  const uint32_t out_h =
      OutputSize(input.dims[1], p.padding_t, p.padding_b, p.kernel_y, p.dilation_y, p.stride_y, 'y');
  const uint32_t out_w =
      OutputSize(input.dims[2], p.padding_l, p.padding_r, p.kernel_x, p.dilation_x, p.stride_x, 'x');
  return runtime::TensorShape({p.out_channels, out_h, out_w}, input.data_type, Layout::CHW, input.location,
                              input.extra);
}

void ConfigPlanarConv(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                      const std::shared_ptr<runtime::Context>& context, PlanarConvState* state) {
  auto info = std::static_pointer_cast<runtime::Conv2dInfo>(layer_info);
  state->param = ToParam(info);
  const Conv2dParam& p = state->param;
  ZV_ASSERT(p.in_channels_per_group * p.groups == p.in_channels &&
                p.out_channels_per_group * p.groups == p.out_channels,
            "[%s] layer %s: %u input and %u output channels do not divide into %u groups.", name,
            info->id.c_str(), p.in_channels, p.out_channels, p.groups);
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  MakeTensor(device, &state->weight, info->weight,
             {p.groups, p.out_channels_per_group, p.in_channels_per_group, p.kernel_y, p.kernel_x},
             Layout::GNCHW, name, "weight", info->id);
  state->bias.reset();
  if (p.if_bias != 0) {
    MakeTensor(device, &state->bias, info->bias, {p.groups, p.out_channels_per_group}, Layout::GN, name,
               "bias", info->id);
  }
}

int32_t CheckPlanarConvInputs(const Conv2dParam& param, const runtime::TensorList& inputs) {
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type > DataType::FLOAT16 || s.layout != Layout::CHW ||
      s.dims.empty() || s.dims[0] != param.in_channels)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckPlanarConvOutputs(const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = outputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type != DataType::FLOAT32 || s.layout != Layout::CHW)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void PadPlanar(const float* src, uint32_t channels, uint32_t h, uint32_t w, uint32_t l, uint32_t r,
               uint32_t t, uint32_t b, float* dst) {
  const size_t row = static_cast<size_t>(l) + w + r;
  for (uint32_t c = 0; c < channels; ++c) {
    const float* in = src + static_cast<size_t>(c) * h * w;
    float* out = dst + static_cast<size_t>(c) * (t + h + b) * row;
    std::memset(out, 0, sizeof(float) * row * t);
    out += row * t;
    for (uint32_t y = 0; y < h; ++y, out += row, in += w) {
      std::memset(out, 0, sizeof(float) * l);
      std::memcpy(out + l, in, sizeof(float) * w);
      std::memset(out + l + w, 0, sizeof(float) * r);
    }
    std::memset(out, 0, sizeof(float) * row * b);
  }
}

void AssertPlanarConvRunnable(const char* name, const PlanarConvState& state,
                              const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.dims.size() == 3 && in.dims[0] == state.param.in_channels,
            "[%s] needs a float tensor [%u, H, W].", name, state.param.in_channels);
}

void RunPlanarConv(const PlanarConvCore& core, PlanarConvState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
  const Conv2dParam& p = state.param;
  const runtime::Tensor& input = *inputs[0];
  const runtime::TensorShape& in = input.shape;
  runtime::Tensor& output = *outputs[0];

  PlanarConvArgs args;
  args.input = input.Data<float>();
  args.in_h = in.dims[1];
  args.in_w = in.dims[2];
  args.pad_l = p.padding_l;
  args.pad_r = p.padding_r;
  args.pad_t = p.padding_t;
  args.pad_b = p.padding_b;
  if (core.pads_input && (p.padding_l | p.padding_r | p.padding_t | p.padding_b) != 0) {
    const uint32_t h = in.dims[1] + p.padding_t + p.padding_b;
    const uint32_t w = in.dims[2] + p.padding_l + p.padding_r;
    float* padded = state.padded.Floats(*context->GetDeviceCPU(), p.in_channels * h * w);
    PadPlanar(input.Data<float>(), p.in_channels, in.dims[1], in.dims[2], p.padding_l, p.padding_r,
              p.padding_t, p.padding_b, padded);
    args.input = padded;
    args.in_h = h;
    args.in_w = w;
    args.pad_l = args.pad_r = args.pad_t = args.pad_b = 0;
  }
  args.out_h = output.shape.dims[1];
  args.out_w = output.shape.dims[2];
  args.output = output.Data<float>();
  args.weight = state.weight->Data<float>();
  args.bias = state.bias != nullptr ? state.bias->Data<float>() : nullptr;
  args.param = &p;
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
