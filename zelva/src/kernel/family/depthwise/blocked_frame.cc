#include "zelva/src/kernel/family/depthwise/blocked_frame.h"

#include <vector>

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

uint32_t BlockedLayout(uint32_t lanes) {
  return lanes == 8 ? Layout::C8HW8 : Layout::C4HW4;
}

// (size + pads - (dilation * (kernel - 1) + 1)) / stride + 1, reported when the padded size is smaller than
// the dilated kernel.
uint32_t OutputSize(uint32_t size, uint32_t pads, uint32_t kernel, uint32_t dilation, uint32_t stride,
                    char axis) {
  const uint64_t padded = static_cast<uint64_t>(size) + pads;
  const uint64_t span = static_cast<uint64_t>(dilation) * (kernel - 1) + 1;
  ZV_ASSERT(stride != 0 && kernel != 0, "depthwise convolution with a zero stride or kernel along %c.", axis);
  ZV_ASSERT(padded >= span, "padded input of %llu along %c is smaller than the kernel span %llu.",
            static_cast<unsigned long long>(padded), axis, static_cast<unsigned long long>(span));
  return static_cast<uint32_t>((padded - span) / stride + 1);
}

std::vector<float> Values(const std::string& text, uint64_t count, const char* name, const char* what,
                          const std::string& id) {
  std::vector<float> values = runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count, "[%s] layer %s: %s holds %zu values, %llu needed.", name, id.c_str(),
            what, values.size(), static_cast<unsigned long long>(count));
  return values;
}

}  // namespace

runtime::TensorShape BlockedDepthwiseOutputShape(const Conv2dParam& p, uint32_t lanes,
                                                 const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 4, "blocked depthwise input of rank %zu.", input.dims.size());
  const uint32_t out_h =
      OutputSize(input.dims[1], p.padding_t + p.padding_b, p.kernel_y, p.dilation_y, p.stride_y, 'y');
  const uint32_t out_w =
      OutputSize(input.dims[2], p.padding_l + p.padding_r, p.kernel_x, p.dilation_x, p.stride_x, 'x');
  const uint32_t blocks = (p.out_channels + lanes - 1) >> (lanes == 8 ? 3 : 2);
  return runtime::TensorShape({blocks, out_h, out_w, lanes}, input.data_type, BlockedLayout(lanes),
                              input.location, input.extra);
}

void ConfigBlockedDepthwise(const char* name, uint32_t lanes,
                            const std::shared_ptr<runtime::LayerInfo>& layer_info,
                            const std::shared_ptr<runtime::Context>& context, BlockedDepthwiseState* state) {
  auto info = std::static_pointer_cast<runtime::Conv2dInfo>(layer_info);
  state->param = ToParam(info);
  const Conv2dParam& p = state->param;
  ZV_ASSERT(p.in_channels == p.groups && p.out_channels == p.groups,
            "[%s] layer %s: %u input and %u output channels in %u groups is no depthwise layer.", name,
            info->id.c_str(), p.in_channels, p.out_channels, p.groups);
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  runtime::DeviceCPU* device = context->GetDeviceCPU();

  // [groups, 1, 1, K, K] -> [groups / lanes, 1, 1, K, K, lanes]: tap t of channel b * lanes + l at
  // (b * taps + t) * lanes + l.
  const uint32_t taps = p.kernel_y * p.kernel_x, blocks = p.groups / lanes;
  const std::vector<float> w =
      Values(info->weight, static_cast<uint64_t>(p.groups) * taps, name, "weight", info->id);
  std::vector<float> packed(static_cast<size_t>(p.groups) * taps);
  for (uint32_t c = 0; c < p.groups; ++c) {
    for (uint32_t t = 0; t < taps; ++t) {
      packed[(static_cast<size_t>(c / lanes) * taps + t) * lanes + c % lanes] =
          w[static_cast<size_t>(c) * taps + t];
    }
  }
  device->CreateTensor(state->weight,
                       runtime::TensorShape({blocks, 1, 1, p.kernel_y, p.kernel_x, lanes}, DataType::FLOAT32,
                                            lanes == 8 ? Layout::G8NCHW8g : Layout::G4NCHW4g),
                       packed.data());
  state->bias.reset();
  if (p.if_bias != 0) {
    const std::vector<float> b = Values(info->bias, p.groups, name, "bias", info->id);
    device->CreateTensor(state->bias, runtime::TensorShape({p.groups, 1}, DataType::FLOAT32, Layout::GN),
                         b.data());
  }
}

int32_t CheckBlockedDepthwiseInputs(const Conv2dParam& param, uint32_t lanes,
                                    const runtime::TensorList& inputs) {
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type > DataType::FLOAT16 ||
      s.layout != BlockedLayout(lanes) || s.dims.size() != 4 || s.dims[0] * s.dims[3] != param.in_channels)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckBlockedDepthwiseOutputs(uint32_t lanes, const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = outputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type != DataType::FLOAT32 ||
      s.layout != BlockedLayout(lanes))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertBlockedDepthwiseRunnable(const char* name, uint32_t lanes, const BlockedDepthwiseState& state,
                                    const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.dims.size() == 4 && in.dims[3] == lanes &&
                in.dims[0] * lanes == state.param.in_channels,
            "[%s] needs a float tensor [%u, H, W, %u].", name, state.param.in_channels / lanes, lanes);
}

void RunBlockedDepthwise(const BlockedDepthwiseCore& core, uint32_t lanes, BlockedDepthwiseState& state,
                         const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                         const std::shared_ptr<runtime::Context>& context) {
  const Conv2dParam& p = state.param;
  const runtime::Tensor& input = *inputs[0];
  const std::vector<uint32_t>& dims = input.shape.dims;
  runtime::Tensor& output = *outputs[0];

  BlockedDepthwiseArgs args;
  args.input = input.Data<float>();
  args.in_h = dims[1];
  args.in_w = dims[2];
  if ((p.padding_l | p.padding_r | p.padding_t | p.padding_b) != 0) {
    args.in_h = dims[1] + p.padding_t + p.padding_b;
    args.in_w = dims[2] + p.padding_l + p.padding_r;
    float* padded = state.padded.Floats(*context->GetDeviceCPU(), dims[0] * args.in_h * args.in_w * lanes);
    // A row of a block is in_w x lanes floats; padding a pixel is padding its lanes.
    PadPlanar(input.Data<float>(), dims[0], dims[1], dims[2] * lanes, p.padding_l * lanes,
              p.padding_r * lanes, p.padding_t, p.padding_b, padded);
    args.input = padded;
  }
  args.output = output.Data<float>();
  args.out_h = output.shape.dims[1];
  args.out_w = output.shape.dims[2];
  args.blocks = output.shape.dims[0];
  args.weight = state.weight->Data<float>();
  args.bias = state.bias != nullptr ? state.bias->Data<float>() : nullptr;
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
