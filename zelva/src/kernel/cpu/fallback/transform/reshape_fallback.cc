#include "zelva/src/kernel/cpu/fallback/transform/reshape_fallback.h"

#include <cstring>

#include "zelva/src/kernel/cpu/fallback/transform/reshape_rules.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

constexpr bool IsCnHWn(ReshapeForm f) {
  return f == ReshapeForm::kCnHWnToC || f == ReshapeForm::kCnHWnToCL;
}

// new_shape of exactly `rank` entries, the first 1 and each other positive or -1.
bool FixedRank(const std::vector<int16_t>& new_shape, size_t rank) {
  if (new_shape.size() != rank || new_shape[0] != 1) return false;
  for (size_t i = 1; i < rank; ++i) {
    if (new_shape[i] <= 0 && new_shape[i] != -1) return false;
  }
  return true;
}

// FLOAT32, FLOAT16 or INT16.
bool AcceptedType(uint32_t data_type) {
  return data_type <= DataType::INT16 && data_type != DataType::INT32;
}

std::vector<uint32_t> Dims(std::vector<int32_t>::const_iterator begin,
                           std::vector<int32_t>::const_iterator end) {
  return std::vector<uint32_t>(begin, end);
}

}  // namespace

template <ReshapeForm F>
std::string ReshapeFallback<F>::GetName() const {
  switch (F) {
    case ReshapeForm::kCnHWnToC:
      return "Reshape_Fallback_CnHWn_To_C_M1";
    case ReshapeForm::kCnHWnToCL:
      return "Reshape_Fallback_CnHWn_To_CL_M1";
    case ReshapeForm::kCLToCHW:
      return "Reshape_Fallback_CL_To_CHW_M1";
    case ReshapeForm::kAny:
      return "Reshape_Fallback_Any_M1";
    case ReshapeForm::kToC:
      return "Reshape_Fallback_To_C_M1";
    case ReshapeForm::kToCHW:
      return "Reshape_Fallback_To_CHW_M1";
    case ReshapeForm::kToSC:
      return "Reshape_Fallback_To_SC_M1";
  }
  return std::string();
}

template <ReshapeForm F>
int32_t ReshapeFallback<F>::CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                         const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  auto info = std::dynamic_pointer_cast<runtime::TensorReshapeInfo>(layer_info);
  if (info == nullptr) return runtime::kKernelNotSupported;
  bool accepted = true;
  switch (F) {
    case ReshapeForm::kCnHWnToC:
      accepted = info->new_shape.size() == 2;
      break;
    case ReshapeForm::kCnHWnToCL:
      accepted = FixedRank(info->new_shape, 3);
      break;
    case ReshapeForm::kCLToCHW:
      accepted = FixedRank(info->new_shape, 4);
      break;
    default:
      break;
  }
  return accepted ? runtime::kKernelOk : runtime::kKernelNotSupported;
}

template <ReshapeForm F>
bool ReshapeFallback<F>::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
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

template <ReshapeForm F>
std::vector<runtime::TensorShape> ReshapeFallback<F>::GetOutputShapes(
    const std::vector<runtime::TensorShape>& input_shapes) {
  ZV_ASSERT(!input_shapes.empty(), "[%s] no input shape.", GetName().c_str());
  const runtime::TensorShape& in = input_shapes[0];
  const std::vector<int32_t>& ns = param_.new_shape;
  const int32_t total = in.ElementCount();
  std::vector<uint32_t> dims;
  uint32_t layout = in.layout;

  switch (F) {
    case ReshapeForm::kCnHWnToC:
      ZV_ASSERT(ns.size() == 2, "[%s] not configured.", GetName().c_str());
      dims = {static_cast<uint32_t>(ns[1] == -1 ? total : ns[1])};
      layout = Layout::C;
      break;
    case ReshapeForm::kCnHWnToCL:
    case ReshapeForm::kCLToCHW: {
      const size_t rank = F == ReshapeForm::kCnHWnToCL ? 3 : 4;
      ZV_ASSERT(ns.size() == rank, "[%s] not configured.", GetName().c_str());
      const std::vector<int32_t> deduced = DeduceMinusOne(ns, total);
      dims = Dims(deduced.begin() + 1, deduced.end());
      layout = F == ReshapeForm::kCnHWnToCL ? Layout::CL : Layout::CHW;
      break;
    }
    case ReshapeForm::kAny:
      dims = Dims(ns.begin(), ns.end());
      break;
    case ReshapeForm::kToC:
    case ReshapeForm::kToCHW:
    case ReshapeForm::kToSC: {
      std::vector<int32_t> resolved = ResolveNewShape(ns, positive_product_, total);
      if (F == ReshapeForm::kToC) {
        if (resolved.size() == 2) {
          ZV_ASSERT(resolved[0] == 1, nullptr);
          resolved.erase(resolved.begin());
        }
        layout = Layout::C;
      } else if (F == ReshapeForm::kToCHW) {
        if (resolved.size() == 4) {
          ZV_ASSERT(resolved[0] == 1, nullptr);
          resolved.erase(resolved.begin());
        }
        layout = Layout::CHW;
      } else {
        if (resolved.size() == 3) {
          if (resolved[0] == 1) {
            resolved.erase(resolved.begin());
          } else {
            ZV_ASSERT(resolved[1] == 1, "[Reshape_Fallback_To_SC_M1] batch of new shape != 1");
            resolved.erase(resolved.begin() + 1);
          }
        }
        layout = Layout::SC;
      }
      dims = Dims(resolved.begin(), resolved.end());
      break;
    }
  }
  return {runtime::TensorShape(std::move(dims), in.data_type, layout, in.location, in.extra)};
}

template <ReshapeForm F>
int32_t ReshapeFallback<F>::CheckInputs(const runtime::TensorList& inputs) {
  if (!IsCnHWn(F)) return runtime::kKernelOk;
  if (inputs.size() != 1 || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = inputs[0]->shape;
  if (shape.location != Location::MainMemory || !AcceptedType(shape.data_type) ||
      shape.layout > Layout::C8HW8 || shape.layout == Layout::HWC)
    return runtime::kKernelBadTensor;
  // The element count is compared with the configured output; before Config there is nothing to match.
  if (!configured || GetOutputShapes({shape})[0].ElementCount() != shape.ElementCount())
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

template <ReshapeForm F>
int32_t ReshapeFallback<F>::CheckOutputs(const runtime::TensorList& outputs) {
  if (!IsCnHWn(F)) return runtime::kKernelOk;
  if (outputs.size() != 1 || outputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = outputs[0]->shape;
  const uint32_t layout = F == ReshapeForm::kCnHWnToC ? Layout::C : Layout::CL;
  if (shape.location != Location::MainMemory || !AcceptedType(shape.data_type) || shape.layout != layout)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

template <ReshapeForm F>
void ReshapeFallback<F>::Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
                                 const std::shared_ptr<runtime::Context>& context) {
  ZV_ASSERT(!inputs.empty(), "[%s] no input tensor.", GetName().c_str());
  runtime::TensorCPU* input = runtime::TensorCPU::Cast(inputs[0]);
  const runtime::TensorShape& in = input->shape;
  std::vector<runtime::TensorShape> shapes = GetOutputShapes({in});
  // A new shape that holds another number of values than the input would copy past one of the two.
  ZV_ASSERT(shapes[0].ElementCount() == in.ElementCount(), "[%s] new shape holds %u values, the input %u.",
            GetName().c_str(), static_cast<uint32_t>(shapes[0].ElementCount()),
            static_cast<uint32_t>(in.ElementCount()));
  std::shared_ptr<runtime::Tensor> output;
  context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));

  if (IsCnHWn(F)) {
    if (in.layout == Layout::CHW) {
      std::memcpy(output->data, input->data, static_cast<size_t>(static_cast<uint32_t>(in.ByteSize())));
    } else {
      ZV_ASSERT(in.layout == Layout::C4HW4 || in.layout == Layout::C8HW8, "Invalid input tensor layout");
      CopyInLogicalOrder(*input, output->data);
    }
  } else if (F == ReshapeForm::kCLToCHW || F == ReshapeForm::kAny) {
    std::memcpy(output->data, input->data, static_cast<size_t>(static_cast<uint32_t>(in.ByteSize())));
  } else {
    CopyInLogicalOrder(*input, output->data);
  }
  outputs.clear();
  outputs.push_back(std::move(output));
}

template class ReshapeFallback<ReshapeForm::kCnHWnToC>;
template class ReshapeFallback<ReshapeForm::kCnHWnToCL>;
template class ReshapeFallback<ReshapeForm::kCLToCHW>;
template class ReshapeFallback<ReshapeForm::kAny>;
template class ReshapeFallback<ReshapeForm::kToC>;
template class ReshapeFallback<ReshapeForm::kToCHW>;
template class ReshapeFallback<ReshapeForm::kToSC>;

}  // namespace kernel
}  // namespace zelva
