#include "zelva/src/kernel/family/conv1d/conv1d.h"

#include <cstring>
#include <string>
#include <vector>

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

bool Matches(uint32_t rule, uint32_t value) {
  return rule == kConv1dNonZero ? value != 0 : value == rule;
}

void KeepWeights(runtime::DeviceCPU* device, std::shared_ptr<runtime::Tensor>* tensor,
                 const std::string& text, std::vector<uint32_t> dims, uint32_t layout, const char* name,
                 const char* what, const std::string& id) {
  const std::vector<float> values = runtime::DecodeWeights(text);
  uint64_t count = 1;
  for (const uint32_t d : dims) count *= d;
  ZV_ASSERT(values.size() >= count, "[%s] layer %s: %s holds %zu values, %llu needed.", name, id.c_str(),
            what, values.size(), static_cast<unsigned long long>(count));
  device->CreateTensor(*tensor, runtime::TensorShape(std::move(dims), DataType::FLOAT32, layout),
                       values.data());
}

}  // namespace

int32_t CheckConv1dSupport(const Conv1dRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return SupportFor<runtime::Conv1dInfo>(
      layer_info, inference_param, [&rule](const runtime::Conv1dInfo& info) {
        const bool pass = Matches(rule.kernel, info.kernel_size) && Matches(rule.stride, info.stride) &&
                          Matches(rule.dilation, info.dilation) && Matches(rule.groups, info.groups) &&
                          info.groups != 0 && info.in_channels != 0 && info.out_channels != 0 &&
                          info.in_channels % info.groups == 0 && info.out_channels % info.groups == 0;
        return pass ? runtime::kKernelOk : runtime::kKernelNotSupported;
      });
}

void ConfigConv1d(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                  const std::shared_ptr<runtime::Context>& context, Conv1dState* state) {
  auto info = std::static_pointer_cast<runtime::Conv1dInfo>(layer_info);
  state->param = ToParam(info);
  const Conv1dParam& p = state->param;
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  KeepWeights(device, &state->weight, info->weight, {p.out_channels, p.in_channels_per_group, p.kernel_size},
              Layout::FLEXIABLE, name, "weight", info->id);
  state->bias.reset();
  if (p.if_bias != 0)
    KeepWeights(device, &state->bias, info->bias, {p.out_channels}, Layout::C, name, "bias", info->id);
}

runtime::TensorShape Conv1dOutputShape(const Conv1dParam& p, const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 2, "one-dimensional convolution input of rank %zu.", input.dims.size());
  const uint64_t padded = static_cast<uint64_t>(input.dims[1]) + p.padding_f + p.padding_b;
  const uint64_t span = static_cast<uint64_t>(p.dilation) * (p.kernel_size - 1) + 1;
  ZV_ASSERT(p.stride != 0 && p.kernel_size != 0, "one-dimensional convolution with a zero stride or kernel.");
  ZV_ASSERT(padded >= span, "padded input of length %llu is shorter than the kernel span %llu.",
            static_cast<unsigned long long>(padded), static_cast<unsigned long long>(span));
  const uint32_t out_len = static_cast<uint32_t>((padded - span) / p.stride + 1);
  return runtime::TensorShape({p.out_channels, out_len}, input.data_type, Layout::CL, input.location,
                              input.extra);
}

int32_t CheckConv1dInputs(const Conv1dParam& p, const runtime::TensorList& inputs) {
  if (CheckFloatTensors(inputs) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  if (s.layout != Layout::CL || s.dims.size() != 2 || s.dims[0] != p.in_channels)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckConv1dOutputs(const runtime::TensorList& outputs) {
  if (CheckFloatTensors(outputs) != runtime::kKernelOk || outputs[0]->shape.layout != Layout::CL)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertConv1dRunnable(const char* name, const Conv1dState& state, const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && in.dims.size() == 2 && in.dims[0] == state.param.in_channels,
            "[%s] needs a float tensor [%u, L].", name, state.param.in_channels);
}

void RunConv1d(const Conv1dCore& core, Conv1dState& state, const runtime::TensorList& inputs,
               const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
  const Conv1dParam& p = state.param;
  const runtime::Tensor& input = *inputs[0];
  const uint32_t len = input.shape.dims[1], padded_len = len + p.padding_f + p.padding_b;
  const float* src = input.Data<float>();
  if (p.padding_f != 0 || p.padding_b != 0) {
    float* padded = state.padded.Floats(*context->GetDeviceCPU(), p.in_channels * padded_len);
    for (uint32_t c = 0; c < p.in_channels; ++c) {
      float* row = padded + static_cast<size_t>(c) * padded_len;
      std::memset(row, 0, sizeof(float) * p.padding_f);
      std::memcpy(row + p.padding_f, src + static_cast<size_t>(c) * len, sizeof(float) * len);
      std::memset(row + p.padding_f + len, 0, sizeof(float) * p.padding_b);
    }
    src = padded;
  }
  Conv1dArgs args{src,
                  padded_len,
                  outputs[0]->Data<float>(),
                  outputs[0]->shape.dims[1],
                  state.weight->Data<float>(),
                  state.bias != nullptr ? state.bias->Data<float>() : nullptr,
                  p.in_channels,
                  p.out_channels,
                  p.groups,
                  p.kernel_size,
                  p.stride,
                  p.dilation};
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
