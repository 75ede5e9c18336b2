#include "zelva/src/kernel/family/conv2d/blocked_frame.h"

#include <cstring>

#include "zelva/src/runtime/layout_convert.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

uint32_t LayoutOf(uint32_t block) {
  return block == 4 ? Layout::C4HW4 : Layout::C8HW8;
}

}  // namespace

runtime::TensorShape BlockedConvOutputShape(const Conv2dParam& param, uint32_t block, bool square,
                                            const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 4, "blocked convolution input of rank %zu.", input.dims.size());
  Conv2dParam p = param;
  if (square) p.kernel_y = p.kernel_x;
  const runtime::TensorShape planar = PlanarConvOutputShape(
      p, runtime::TensorShape({input.dims[0] * block, input.dims[1], input.dims[2]}, input.data_type,
                              Layout::CHW, input.location, input.extra));
  return runtime::TensorShape(
      {(param.out_channels + block - 1) / block, planar.dims[1], planar.dims[2], block}, input.data_type,
      LayoutOf(block), input.location, input.extra);
}

void ConfigBlockedConv(const char* name, uint32_t block,
                       const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::Context>& context, BlockedConvState* state) {
  ConfigPlanarConv(name, layer_info, context, state);
  const Conv2dParam& p = state->param;
  ZV_ASSERT(p.in_channels_per_group % block == 0 && p.out_channels_per_group % block == 0,
            "[%s] %u input and %u output channels a group are not multiples of %u.", name,
            p.in_channels_per_group, p.out_channels_per_group, block);
  runtime::DeviceCPU& device = *context->GetDeviceCPU();
  state->weight = block == 4 ? runtime::ConvertGNCHWToGN4C4HW4n4c(state->weight, device)
                             : runtime::ConvertGNCHWToGN8C8HW8n8c(state->weight, device);
}

int32_t CheckBlockedConvInputs(const Conv2dParam& param, uint32_t block, const runtime::TensorList& inputs) {
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type > DataType::FLOAT16 || s.layout != LayoutOf(block) ||
      s.dims.size() != 4 || s.dims[3] != block || s.dims[0] * block != param.in_channels)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckBlockedConvOutputs(uint32_t block, const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = outputs[0]->shape;
  if (s.location != Location::MainMemory || s.data_type != DataType::FLOAT32 || s.layout != LayoutOf(block))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertBlockedConvRunnable(const char* name, uint32_t block, const BlockedConvState& state,
                               const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.dims.size() == 4 && in.dims[3] == block &&
                in.dims[0] * block == state.param.in_channels,
            "[%s] needs a float tensor [%u, H, W, %u].", name, state.param.in_channels / block, block);
}

void ExpandBlockedColumns(const float* src, uint32_t blocks, uint32_t h, uint32_t w, uint32_t block,
                          const Conv2dParam& p, uint32_t out_h, uint32_t out_w, float* dst) {
  const size_t row = static_cast<size_t>(w) * block;
  const size_t step = static_cast<size_t>(p.stride_x) * block;
  const size_t bytes = sizeof(float) * block;
  for (uint32_t c = 0; c < blocks; ++c) {
    const float* plane = src + static_cast<size_t>(c) * h * row;
    for (uint32_t i = 0; i < p.kernel_y; ++i) {
      for (uint32_t j = 0; j < p.kernel_x; ++j) {
        const float* tap = plane + static_cast<size_t>(i) * p.dilation_y * row +
                           static_cast<size_t>(j) * p.dilation_x * block;
        for (uint32_t oy = 0; oy < out_h; ++oy) {
          const float* s = tap + static_cast<size_t>(oy) * p.stride_y * row;
          for (uint32_t ox = 0; ox < out_w; ++ox, s += step, dst += block) std::memcpy(dst, s, bytes);
        }
      }
    }
  }
}

void RunBlockedConv(const BlockedConvCore& core, BlockedConvState& state, const runtime::TensorList& inputs,
                    const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
  const Conv2dParam& p = state.param;
  const uint32_t block = core.block;
  const runtime::Tensor& input = *inputs[0];
  runtime::Tensor& output = *outputs[0];
  runtime::DeviceCPU& device = *context->GetDeviceCPU();

  const float* src = input.Data<float>();
  uint32_t h = input.shape.dims[1], w = input.shape.dims[2];
  if ((p.padding_l | p.padding_r | p.padding_t | p.padding_b) != 0) {
    const uint32_t blocks = input.shape.dims[0];
    const uint32_t ph = h + p.padding_t + p.padding_b, pw = w + p.padding_l + p.padding_r;
    float* padded = state.padded.Floats(device, blocks * ph * pw * block);
    PadBlocked(src, blocks, h, w, block, p.padding_l, p.padding_r, p.padding_t, p.padding_b, padded);
    src = padded;
    h = ph;
    w = pw;
  }

  const uint32_t in_blocks = p.in_channels_per_group / block, out_blocks = p.out_channels_per_group / block;
  const uint32_t out_h = output.shape.dims[1], out_w = output.shape.dims[2];
  const size_t taps = static_cast<size_t>(p.kernel_y) * p.kernel_x;
  const bool expand = core.columns && !(taps == 1 && p.stride_y == 1 && p.stride_x == 1);
  const float* bias = state.bias != nullptr ? state.bias->Data<float>() : nullptr;
  for (uint32_t g = 0; g < p.groups; ++g) {
    BlockedConvArgs args;
    args.input = src + static_cast<size_t>(g) * in_blocks * h * w * block;
    args.in_blocks = in_blocks;
    args.in_h = h;
    args.in_w = w;
    args.output = output.Data<float>() + static_cast<size_t>(g) * out_blocks * out_h * out_w * block;
    args.out_blocks = out_blocks;
    args.out_h = out_h;
    args.out_w = out_w;
    args.weight =
        state.weight->Data<float>() + static_cast<size_t>(g) * out_blocks * in_blocks * taps * block * block;
    args.bias = bias != nullptr ? bias + static_cast<size_t>(g) * p.out_channels_per_group : nullptr;
    if (expand) {
      float* columns =
          state.columns.Floats(device, static_cast<uint32_t>(in_blocks * taps * out_h * out_w * block));
      ExpandBlockedColumns(args.input, in_blocks, h, w, block, p, out_h, out_w, columns);
      args.input = columns;
      args.in_blocks = static_cast<uint32_t>(in_blocks * taps);
      args.in_h = out_h;
      args.in_w = out_w;
    }
    core.run(args);
  }
}

}  // namespace kernel
}  // namespace zelva
