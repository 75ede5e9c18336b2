#include "zelva/src/kernel/cpu/fallback/transform/transform_reshape_fallback.h"

#include "zelva/src/kernel/cpu/fallback/transform/reshape_rules.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

int32_t CheckOneFloatTensor(const runtime::TensorList& tensors) {
  if (tensors.size() != 1 || tensors[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = tensors[0]->shape;
  if (shape.location != Location::MainMemory || shape.data_type != DataType::FLOAT32)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

}  // namespace

int32_t Transform_MainMemory_Reshape_Fallback::CheckSupport(
    const std::shared_ptr<runtime::LayerInfo>& layer_info,
    const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  if (std::dynamic_pointer_cast<runtime::TensorReshapeInfo>(layer_info) == nullptr)
    return runtime::kKernelNotSupported;
  return runtime::kKernelOk;
}

bool Transform_MainMemory_Reshape_Fallback::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
                                                   std::shared_ptr<runtime::InferenceParam> inference_param,
                                                   std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
                                                   std::shared_ptr<runtime::Context> /*context*/) {
  configured = false;
  if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
  param_ = ToParam(std::static_pointer_cast<runtime::TensorReshapeInfo>(layer_info));
  positive_product_ = PositiveProduct(param_.new_shape);
  configured = true;
  return true;
}

std::vector<runtime::TensorShape> Transform_MainMemory_Reshape_Fallback::GetOutputShapes(
    const std::vector<runtime::TensorShape>& input_shapes) {
  ZV_ASSERT(!input_shapes.empty(), "[Transform_MainMemory_Reshape_Fallback] no input shape.");
  const runtime::TensorShape& in = input_shapes[0];
  const int32_t total = in.ElementCount();
  std::vector<int32_t> resolved = ResolveNewShape(param_.new_shape, positive_product_, total);
  if (resolved.size() > 1 && resolved[0] == 1) resolved.erase(resolved.begin());

  std::vector<uint32_t> dims(resolved.begin(), resolved.end());
  uint32_t count = 1;
  for (const uint32_t d : dims) count *= d;
  ZV_ASSERT(count == static_cast<uint32_t>(total),
            "[Transform_MainMemory_Reshape_Fallback] new shape holds %u values, the input %u.", count,
            static_cast<uint32_t>(total));

  uint32_t layout = Layout::FLEXIABLE;
  switch (dims.size()) {
    case 1:
      layout = Layout::C;
      break;
    case 2:
      layout = Layout::CL;
      break;
    case 3:
      layout = Layout::CHW;
      break;
    default:
      break;
  }
  return {runtime::TensorShape(std::move(dims), in.data_type, layout, in.location, in.extra)};
}

int32_t Transform_MainMemory_Reshape_Fallback::CheckInputs(const runtime::TensorList& inputs) {
  return CheckOneFloatTensor(inputs);
}

int32_t Transform_MainMemory_Reshape_Fallback::CheckOutputs(const runtime::TensorList& outputs) {
  return CheckOneFloatTensor(outputs);
}

void Transform_MainMemory_Reshape_Fallback::Forward(const runtime::TensorList& inputs,
                                                    runtime::TensorList& outputs,
                                                    const std::shared_ptr<runtime::Context>& context) {
  ZV_ASSERT(!inputs.empty(), "[Transform_MainMemory_Reshape_Fallback] no input tensor.");
  runtime::TensorCPU* input = runtime::TensorCPU::Cast(inputs[0]);
  std::vector<runtime::TensorShape> shapes = GetOutputShapes({input->shape});
  std::shared_ptr<runtime::Tensor> output;
  context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));

  CopyInLogicalOrder(*input, output->data);
  outputs.clear();
  outputs.push_back(std::move(output));
}

}  // namespace kernel
}  // namespace zelva
