#include "zelva/src/kernel/family/batchnorm/batchnorm.h"

#include <string>
#include <vector>

#include "zelva/src/kernel/family/batchnorm/reference.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

// The decoded values of one weight text; fails when it holds fewer than `count`.
std::vector<float> DecodeChannels(const char* name, const std::string& text, uint32_t count, const char* what,
                                  const std::string& id) {
  std::vector<float> values = runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count, "[%s] layer %s: %s holds %zu values, %u needed.", name, id.c_str(), what,
            values.size(), count);
  return values;
}

}  // namespace

void ConfigBatchNorm(const char* name, BatchNormState* state,
                     const std::shared_ptr<runtime::LayerInfo>& layer_info,
                     const std::shared_ptr<runtime::Context>& context) {
  auto info = std::static_pointer_cast<runtime::BatchNorm2dInfo>(layer_info);
  state->param = ToParam(info);
  const uint32_t channels = state->param.num_features;

  const std::vector<float> mean = DecodeChannels(name, info->mean, channels, "mean", info->id);
  const std::vector<float> variance = DecodeChannels(name, info->variance, channels, "variance", info->id);
  // A layer without affine parameters (if_affine false) normalises by its running statistics alone, as
  // torch.nn.BatchNorm2d(affine=False) does in eval mode: it folds with scale 1 and shift 0, and its scale
  // and shift texts, empty or not, are not read.
  std::vector<float> scale(channels, 1.0f);
  std::vector<float> shift(channels, 0.0f);
  if (state->param.if_affine != 0) {
    scale = DecodeChannels(name, info->scale, channels, "scale", info->id);
    shift = DecodeChannels(name, info->shift, channels, "shift", info->id);
  }

  ZV_ASSERT(context != nullptr, "[%s] no context.", name);
  runtime::DeviceCPU* device = context->GetDeviceCPU();
  device->CreateZeroVector(state->folded_scale, channels);
  device->CreateZeroVector(state->folded_shift, channels);
  FoldBatchNorm(scale.data(), shift.data(), mean.data(), variance.data(), state->param.eps, channels,
                state->folded_scale->Data<float>(), state->folded_shift->Data<float>());
}

int32_t CheckBatchNormTensors(const runtime::TensorList& tensors) {
  if (CheckFloatTensors(tensors) != runtime::kKernelOk || tensors[0]->shape.layout != Layout::CHW)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertBatchNormRunnable(const char* name, const BatchNormState& state,
                             const runtime::TensorList& inputs) {
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && !in.dims.empty(),
            "[%s] needs a float tensor of at least one dim.", name);
  ZV_ASSERT(in.dims[0] == state.param.num_features, "[%s] %u channels, %u features.", name, in.dims[0],
            state.param.num_features);
  ZV_ASSERT(state.folded_scale != nullptr, "[%s] not configured.", name);
}

void RunBatchNorm(const BatchNormState& state, const runtime::TensorList& inputs,
                  const runtime::TensorList& outputs) {
  const runtime::TensorCPU* input = runtime::TensorCPU::Cast(inputs[0]);
  runtime::TensorCPU* out = runtime::TensorCPU::Cast(outputs[0]);
  const runtime::TensorShape& in = input->shape;
  uint32_t plane = 1;
  for (size_t d = 1; d < in.dims.size(); ++d) plane *= in.dims[d];
  const uint32_t src_stride = static_cast<uint32_t>(input->strides[0]);
  const uint32_t dst_stride = static_cast<uint32_t>(out->strides[0]);
  BatchNormPlanar(input->Data<float>(), src_stride, out->Data<float>(), dst_stride, in.dims[0], plane,
                  state.folded_scale->Data<float>(), state.folded_shift->Data<float>());
}

}  // namespace kernel
}  // namespace zelva
