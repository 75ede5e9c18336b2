#include "zelva/src/kernel/family/conv2d_int16/conv2d_int16.h"

#include <cmath>

#include "zelva/src/kernel/family/conv2d_int16/reference.h"
#include "zelva/src/runtime/tensor.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;

namespace {

constexpr int32_t kMinStep = -16, kMaxStep = 30;

bool StepInRange(int32_t s) {
  return s >= kMinStep && s <= kMaxStep;
}

bool C8Float(const runtime::TensorList& t) {
  return CheckFloatTensors(t) == runtime::kKernelOk && t[0]->shape.layout == Layout::C8HW8 &&
         t[0]->shape.dims.size() == 4 && t[0]->shape.dims[3] == 8;
}

}  // namespace

int32_t CheckConv2dInt16Support(const std::shared_ptr<runtime::LayerInfo>& info,
                                const std::shared_ptr<runtime::InferenceParam>& param) {
  const auto* quant = dynamic_cast<const runtime::InferenceParamConv2DQuant*>(param.get());
  const auto* conv = dynamic_cast<const runtime::Conv2dInfo*>(info.get());
  if (quant == nullptr || conv == nullptr) return runtime::kKernelNotSupported;
  if (!StepInRange(quant->weight_step_size) || !StepInRange(quant->output_step_size))
    return runtime::kKernelNotSupported;
  const runtime::Conv2dInfo& c = *conv;
  const bool geometry = c.kernel_x == 1 && c.kernel_y == 1 && c.stride_x == 1 && c.stride_y == 1 &&
                        c.dilation_x == 1 && c.dilation_y == 1 && c.groups == 1 && c.padding_l == 0 &&
                        c.padding_r == 0 && c.padding_t == 0 && c.padding_b == 0;
  const bool channels =
      c.in_channels != 0 && c.out_channels != 0 && c.in_channels % 8 == 0 && c.out_channels % 8 == 0;
  return geometry && channels ? runtime::kKernelOk : runtime::kKernelNotSupported;
}

void ConfigConv2dInt16(const char* name, Conv2dInt16State* state,
                       const std::shared_ptr<runtime::LayerInfo>& info,
                       const std::shared_ptr<runtime::InferenceParam>& param,
                       const std::shared_ptr<runtime::Context>& context) {
  auto conv = std::static_pointer_cast<runtime::Conv2dInfo>(info);
  const auto& quant = static_cast<const runtime::InferenceParamConv2DQuant&>(*param);
  state->param = ToParam(conv);
  state->weight_step = quant.weight_step_size;
  state->input_step = quant.output_step_size;
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  const uint32_t in = state->param.in_channels, out = state->param.out_channels;
  const std::vector<float> w = runtime::DecodeWeights(conv->weight);
  ZV_ASSERT(w.size() >= static_cast<size_t>(in) * out, "[%s] layer %s: weight holds %zu values, %zu needed.",
            name, conv->id.c_str(), w.size(), static_cast<size_t>(in) * out);

  // [out, in] -> [out / 8, in / 8, pair k, half h, 8]: lane 2q + e of (k, h) holds w[8 ob + 4h + q][8 ib + 2k
  // + e].
  const uint32_t ob_count = out / 8, ib_count = in / 8;
  std::vector<int16_t> packed(static_cast<size_t>(in) * out);
  size_t at = 0;
  for (uint32_t ob = 0; ob < ob_count; ++ob)
    for (uint32_t ib = 0; ib < ib_count; ++ib)
      for (uint32_t k = 0; k < 4; ++k)
        for (uint32_t h = 0; h < 2; ++h)
          for (uint32_t q = 0; q < 4; ++q)
            for (uint32_t e = 0; e < 2; ++e)
              packed[at++] = QuantizeInt16(
                  w[static_cast<size_t>(8 * ob + 4 * h + q) * in + 8 * ib + 2 * k + e], state->weight_step);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  device->CreateTensor(
      state->weight, runtime::TensorShape({ob_count, ib_count, 4, 2, 8}, DataType::INT16, Layout::FLEXIABLE),
      packed.data());
  std::vector<float> bias(out, 0.0f);
  if (state->param.if_bias != 0) {
    const std::vector<float> b = runtime::DecodeWeights(conv->bias);
    ZV_ASSERT(b.size() >= out, "[%s] layer %s: bias holds %zu values, %u needed.", name, conv->id.c_str(),
              b.size(), out);
    bias.assign(b.begin(), b.begin() + out);
  }
  device->CreateTensor(state->bias, runtime::TensorShape({out}, DataType::FLOAT32, Layout::C), bias.data());
}

runtime::TensorShape Conv2dInt16OutputShape(const char* name, const Conv2dInt16State& state,
                                            const runtime::TensorShape& input) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  ZV_ASSERT(input.dims.size() == 4 && input.layout == Layout::C8HW8, "[%s] wants a C8HW8 input.", name);
  return runtime::TensorShape({state.param.out_channels / 8, input.dims[1], input.dims[2], 8},
                              DataType::FLOAT32, Layout::C8HW8, input.location, input.extra);
}

int32_t CheckConv2dInt16Inputs(const Conv2dInt16State& state, const runtime::TensorList& inputs) {
  if (!C8Float(inputs)) return runtime::kKernelBadTensor;
  return state.weight == nullptr || inputs[0]->shape.dims[0] * 8 == state.param.in_channels
             ? runtime::kKernelOk
             : runtime::kKernelBadTensor;
}

int32_t CheckConv2dInt16Outputs(const runtime::TensorList& outputs) {
  return C8Float(outputs) ? runtime::kKernelOk : runtime::kKernelBadTensor;
}

void AssertConv2dInt16Runnable(const char* name, const Conv2dInt16State& state,
                               const runtime::TensorList& inputs) {
  ZV_ASSERT(state.weight != nullptr, "[%s] not configured.", name);
  ZV_ASSERT(CheckConv2dInt16Inputs(state, inputs) == runtime::kKernelOk,
            "[%s] wants one FLOAT32 C8HW8 tensor of %u channels in main memory.", name,
            state.param.in_channels);
}

void RunConv2dInt16(const Conv2dInt16Row& row, Conv2dInt16State& state, const runtime::TensorList& inputs,
                    const runtime::TensorList& outputs) {
  const auto& d = inputs[0]->shape.dims;
  const uint32_t pixels = d[1] * d[2];
  const size_t count = static_cast<size_t>(d[0]) * pixels * 8;
  if (state.quantized.size() < count) state.quantized.resize(count);
  QuantizeInt16Sse(inputs[0]->Data<float>(), state.quantized.data(), static_cast<uint32_t>(count),
                   state.input_step);
  Conv2dInt16Args a{};
  a.input = state.quantized.data();
  a.weight = state.weight->Data<int16_t>();
  a.bias = state.bias->Data<float>();
  a.output = outputs[0]->Data<float>();
  a.in_blocks = d[0];
  a.out_blocks = state.param.out_channels / 8;
  a.pixels = pixels;
  a.scale = std::ldexp(1.0f, -(state.weight_step + state.input_step));
  row.core(a);
}

}  // namespace kernel
}  // namespace zelva
