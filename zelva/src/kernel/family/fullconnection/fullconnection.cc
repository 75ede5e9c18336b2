#include "zelva/src/kernel/family/fullconnection/fullconnection.h"

#include <cstddef>

#include "zelva/src/runtime/layout_convert.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {
namespace fc_detail {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

uint32_t BlockOf(FcWeight form) {
  switch (form) {
    case FcWeight::kRows:
      return 1;
    case FcWeight::kBlock4:
      return 4;
    case FcWeight::kBlock8:
    case FcWeight::kO8I8:
    case FcWeight::kOutRows8:
      return 8;
  }
  return 1;
}

int32_t CheckInputs(const runtime::TensorList& inputs, uint32_t layout, FcInput rule, uint32_t in_features) {
  if (CheckFloatTensors(inputs, 1) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const TensorShape& shape = inputs[0]->shape;
  if (layout != kFcAnyLayout && shape.layout != layout) return runtime::kKernelBadTensor;
  bool channels_match = false;
  switch (rule) {
    case FcInput::kElements:
      channels_match = static_cast<uint32_t>(shape.ElementCount()) == in_features;
      break;
    case FcInput::kFirstDim:
      channels_match = !shape.dims.empty() && shape.dims[0] == in_features;
      break;
    case FcInput::kBatchRows:
      channels_match = shape.dims.size() >= 2 && shape.dims[1] == in_features;
      break;
  }
  return channels_match ? runtime::kKernelOk : runtime::kKernelBadTensor;
}

TensorShape OutputShape(const TensorShape& in, FcInput rule, uint32_t out_features, const char* name) {
  TensorShape out({out_features}, DataType::FLOAT32, Layout::C, in.location, in.extra);
  if (rule == FcInput::kBatchRows) {
    ZV_ASSERT(in.dims.size() >= 2, "[%s] a batch input needs two dims, it has %zu.", name, in.dims.size());
    out.dims = {in.dims[0], out_features};
    out.layout = Layout::BC;
  } else if (rule == FcInput::kFirstDim && in.layout == Layout::FLEXIABLE && !in.dims.empty()) {
    // The channel-blocked members keep the input's dims and code, with out_features channels.
    out.dims = in.dims;
    out.dims[0] = out_features;
    out.layout = in.layout;
  }
  return out;
}

std::shared_ptr<runtime::Tensor> PackWeight(FcWeight form, const float* weight, uint32_t out_features,
                                            uint32_t in_features, runtime::DeviceCPU& device) {
  const uint32_t block = BlockOf(form);
  const uint32_t rows = out_features / block * block;
  const uint32_t cols = in_features / block * block;
  if (rows == 0 || cols == 0) return nullptr;
  std::shared_ptr<runtime::Tensor> plain;
  if (form == FcWeight::kRows) {
    device.CreateTensor(plain, TensorShape({rows, cols}, DataType::FLOAT32, Layout::OI), weight);
    return plain;
  }

  // The kept part, row-major, as the converters take it.
  std::vector<float> kept(static_cast<size_t>(rows) * cols);
  for (uint32_t o = 0; o < rows; ++o)
    for (uint32_t i = 0; i < cols; ++i)
      kept[static_cast<size_t>(o) * cols + i] = weight[static_cast<size_t>(o) * in_features + i];
  if (form == FcWeight::kO8I8) {
    device.CreateTensor(plain, TensorShape({rows, cols}, DataType::FLOAT32, Layout::OI), kept.data());
    return runtime::ConvertOIToO8I8o8i8(plain, device);
  }
  device.CreateTensor(plain, TensorShape({1, rows, cols, 1, 1}, DataType::FLOAT32, Layout::GNCHW),
                      kept.data());
  switch (form) {
    case FcWeight::kBlock4:
      return runtime::ConvertGNCHWToGN4C4HW4n4c(plain, device);
    case FcWeight::kBlock8:
      return runtime::ConvertGNCHWToGN8C8HW8n8c(plain, device);
    case FcWeight::kOutRows8:
      return runtime::ConvertGNCHWToGN8CHW8n(plain, device);
    default:
      return nullptr;
  }
}

void FullConnectionState::Configure(const std::shared_ptr<runtime::FullConnectionInfo>& info, FcWeight form,
                                    const std::shared_ptr<runtime::Context>& context, const char* name) {
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  param = ToParam(info);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  ZV_ASSERT(device != nullptr, "[%s] the context has no CPU device.", name);

  const size_t count = static_cast<size_t>(param.out_features) * param.in_features;
  const std::vector<float> w = runtime::DecodeWeights(info->weight);
  ZV_ASSERT(w.size() >= count, "[%s] layer %s: weight holds %zu values, %zu needed.", name, info->id.c_str(),
            w.size(), count);
  weight = PackWeight(form, w.data(), param.out_features, param.in_features, *device);

  bias.reset();
  if (param.if_bias != 0) {
    const std::vector<float> b = runtime::DecodeWeights(info->bias);
    ZV_ASSERT(b.size() >= param.out_features, "[%s] layer %s: bias holds %zu values, %u needed.", name,
              info->id.c_str(), b.size(), param.out_features);
    device->CreateVector(bias, param.out_features, b.data());
  }
}

void FullConnectionState::Precheck(bool configured, const runtime::TensorList& inputs,
                                   const runtime::Context* context, FcInput rule, const char* name) const {
  ZV_ASSERT(configured, "[%s] Forward before a successful Config.", name);
  ZV_ASSERT(inputs.size() == 1 && inputs[0] != nullptr, "[%s] needs one input tensor.", name);
  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  const TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32, "[%s] needs a float input.", name);
  const uint32_t in_features = param.in_features;
  uint32_t rows = 1;
  if (rule == FcInput::kBatchRows) {
    ZV_ASSERT(in.dims.size() >= 2 && in.dims[1] == in_features, "[%s] input rows are not of %u values.", name,
              in_features);
    rows = in.dims[0];
  }
  const uint32_t count = static_cast<uint32_t>(in.ElementCount());
  ZV_ASSERT(count == rows * in_features, "[%s] input holds %u values, %u expected.", name, count,
            rows * in_features);
}

void FullConnectionState::Run(const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                              FcInput rule, DenseCore core) const {
  const uint32_t in_features = param.in_features;
  const uint32_t out_features = param.out_features;
  const uint32_t rows = rule == FcInput::kBatchRows ? inputs[0]->shape.dims[0] : 1;
  const float* x = inputs[0]->Data<float>();
  float* y = outputs[0]->Data<float>();
  const float* w = weight != nullptr ? weight->Data<float>() : nullptr;
  const float* b = bias != nullptr ? bias->Data<float>() : nullptr;
  for (uint32_t r = 0; r < rows; ++r) {
    core(x + static_cast<size_t>(r) * in_features, static_cast<int32_t>(in_features),
         static_cast<int32_t>(out_features), w, b, y + static_cast<size_t>(r) * out_features);
  }
}

}  // namespace fc_detail
}  // namespace kernel
}  // namespace zelva
