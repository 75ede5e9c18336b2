#include "zelva/src/kernel/cpu/fallback/batchnorm/batchnorm2d_fallback.h"

#include <vector>

#include "zelva/src/kernel/cpu/fallback/batchnorm/batchnorm_core.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

int32_t CheckPlanarFloat(const runtime::TensorList& tensors) {
  if (tensors.size() != 1 || tensors[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = tensors[0]->shape;
  if (shape.location != Location::MainMemory || shape.data_type != DataType::FLOAT32 ||
      shape.layout != Layout::CHW)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

// The decoded values of one weight text; fails when it holds fewer than `count`.
std::vector<float> DecodeChannels(const std::string& text, uint32_t count, const char* what,
                                  const std::string& id) {
  std::vector<float> values = runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count,
            "[BatchNorm2d_Fallback_Float_M1] layer %s: %s holds %zu values, %u needed.", id.c_str(), what,
            values.size(), count);
  return values;
}

}  // namespace

int32_t BatchNorm2d_Fallback_Float_M1::CheckSupport(
    const std::shared_ptr<runtime::LayerInfo>& layer_info,
    const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  if (std::dynamic_pointer_cast<runtime::BatchNorm2dInfo>(layer_info) == nullptr)
    return runtime::kKernelNotSupported;
  return runtime::kKernelOk;
}

bool BatchNorm2d_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
                                           std::shared_ptr<runtime::InferenceParam> inference_param,
                                           std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
                                           std::shared_ptr<runtime::Context> context) {
  configured = false;
  if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
  auto info = std::static_pointer_cast<runtime::BatchNorm2dInfo>(layer_info);
  param_ = ToParam(info);
  const uint32_t channels = param_.num_features;

  const std::vector<float> mean = DecodeChannels(info->mean, channels, "mean", info->id);
  const std::vector<float> variance = DecodeChannels(info->variance, channels, "variance", info->id);
  std::vector<float> scale(channels, 1.0f);
  std::vector<float> shift(channels, 0.0f);
  if (param_.if_affine != 0) {
    scale = DecodeChannels(info->scale, channels, "scale", info->id);
    shift = DecodeChannels(info->shift, channels, "shift", info->id);
  }

  ZV_ASSERT(context != nullptr, "[BatchNorm2d_Fallback_Float_M1] no context.");
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  device->CreateZeroVector(folded_scale_, channels);
  device->CreateZeroVector(folded_shift_, channels);
  FoldBatchNorm(scale.data(), shift.data(), mean.data(), variance.data(), param_.eps, channels,
                folded_scale_->Data<float>(), folded_shift_->Data<float>());

  configured = true;
  return true;
}

int32_t BatchNorm2d_Fallback_Float_M1::CheckInputs(const runtime::TensorList& inputs) {
  return CheckPlanarFloat(inputs);
}

int32_t BatchNorm2d_Fallback_Float_M1::CheckOutputs(const runtime::TensorList& outputs) {
  return CheckPlanarFloat(outputs);
}

void BatchNorm2d_Fallback_Float_M1::Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
                                            const std::shared_ptr<runtime::Context>& context) {
  ZV_ASSERT(!inputs.empty(), "[BatchNorm2d_Fallback_Float_M1] no input tensor.");
  runtime::TensorCPU* input = runtime::TensorCPU::Cast(inputs[0]);
  const runtime::TensorShape& in = input->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && !in.dims.empty(),
            "[BatchNorm2d_Fallback_Float_M1] needs a float tensor of at least one dim.");
  ZV_ASSERT(in.dims[0] == param_.num_features, "[BatchNorm2d_Fallback_Float_M1] %u channels, %u features.",
            in.dims[0], param_.num_features);

  std::vector<runtime::TensorShape> shapes = GetOutputShapes({in});
  std::shared_ptr<runtime::Tensor> output;
  context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));
  runtime::TensorCPU* out = runtime::TensorCPU::Cast(output);

  uint32_t plane = 1;
  for (size_t d = 1; d < in.dims.size(); ++d) plane *= in.dims[d];
  const uint32_t src_stride = static_cast<uint32_t>(input->strides[0]);
  const uint32_t dst_stride = static_cast<uint32_t>(out->strides[0]);
  BatchNormPlanar(input->Data<float>(), src_stride, out->Data<float>(), dst_stride, in.dims[0], plane,
                  folded_scale_->Data<float>(), folded_shift_->Data<float>());
  outputs.clear();
  outputs.push_back(std::move(output));
}

}  // namespace kernel
}  // namespace zelva
