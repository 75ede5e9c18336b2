#include "zelva/src/kernel/cpu/fallback/elementwise/elementwise_fallback.h"

#include <cstring>

#include "zelva/src/kernel/cpu/fallback/elementwise/elementwise_kernel.h"

namespace zelva {
namespace kernel {

using runtime::DataType;

// ---- Elementwise_Fallback_Float_M1 -----------------------------------------------------------------------

int32_t Elementwise_Fallback_Float_M1::CheckSupport(
    const std::shared_ptr<runtime::LayerInfo>& layer_info,
    const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  if (std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info) == nullptr)
    return runtime::kKernelNotSupported;
  return runtime::kKernelOk;
}

bool Elementwise_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
                                           std::shared_ptr<runtime::InferenceParam> inference_param,
                                           std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
                                           std::shared_ptr<runtime::Context> /*context*/) {
  configured = false;
  if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
  param_ = ToParam(std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info));
  configured = true;
  return true;
}

std::vector<runtime::TensorShape> Elementwise_Fallback_Float_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& shapes) {
  ZV_ASSERT(!shapes.empty(), "[Elementwise_Fallback_Float_M1] no input shape.");
  return {shapes[0]};
}

int32_t Elementwise_Fallback_Float_M1::CheckInputs(const runtime::TensorList& inputs) {
  return elementwise_detail::CheckTwoFloatInputs(inputs);
}

int32_t Elementwise_Fallback_Float_M1::CheckOutputs(const runtime::TensorList& outputs) {
  return elementwise_detail::CheckOneFloatOutput(outputs);
}

void Elementwise_Fallback_Float_M1::Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
                                            const std::shared_ptr<runtime::Context>& context) {
  ZV_ASSERT(inputs.size() == 2 && inputs[0] != nullptr && inputs[1] != nullptr,
            "[Elementwise_Fallback_Float_M1] needs two inputs.");
  runtime::TensorCPU* a = runtime::TensorCPU::Cast(inputs[0]);
  runtime::TensorCPU* b = runtime::TensorCPU::Cast(inputs[1]);
  ZV_ASSERT(a->shape.data_type == DataType::FLOAT32 && b->shape.data_type == DataType::FLOAT32,
            "[Elementwise_Fallback_Float_M1] needs float tensors.");
  ZV_ASSERT(context != nullptr, "[Elementwise_Fallback_Float_M1] no context.");
  std::vector<runtime::TensorShape> shapes = GetOutputShapes({a->shape, b->shape});
  const uint32_t count = static_cast<uint32_t>(shapes[0].ElementCount());
  ZV_ASSERT(static_cast<uint32_t>(b->shape.ElementCount()) == count,
            "[Elementwise_Fallback_Float_M1] %u elements against %d.", count, b->shape.ElementCount());
  std::shared_ptr<runtime::Tensor> output;
  context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));

  const float* x = a->Data<float>();
  const float* y = b->Data<float>();
  float* z = output->Data<float>();
  const char* name = param_.op_name.c_str();
  if (strncmp(name, "Add", 3) == 0) {
    for (uint32_t i = 0; i < count; ++i) z[i] = x[i] + y[i];
  } else if (strncmp(name, "Sub", 3) == 0) {
    for (uint32_t i = 0; i < count; ++i) z[i] = x[i] - y[i];
  } else if (strncmp(name, "Mul", 3) == 0) {
    for (uint32_t i = 0; i < count; ++i) z[i] = x[i] * y[i];
  } else if (strncmp(name, "Div", 3) == 0) {
    for (uint32_t i = 0; i < count; ++i) z[i] = x[i] / y[i];
  }
  outputs.clear();
  outputs.push_back(std::move(output));
}

// ---- BroadcastOperator_Fallback_Float_M1 -----------------------------------------------------------------

bool BroadcastShapesFit(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t k = 1; k <= common; ++k) {
    const uint32_t x = a[a.size() - k], y = b[b.size() - k];
    if (x != y && x != 1 && y != 1) return false;
  }
  return true;
}

namespace {

// `dims` with ones in front up to `rank`.
std::vector<uint32_t> PadFront(const std::vector<uint32_t>& dims, size_t rank) {
  std::vector<uint32_t> padded(rank - dims.size(), 1u);
  padded.insert(padded.end(), dims.begin(), dims.end());
  return padded;
}

constexpr size_t kMaxBroadcastRank = 8;

// `dims` with ones in front up to `rank`, and the element strides of that shape (the product of all later
// dims), into fixed arrays.
void PadAndStride(const std::vector<uint32_t>& dims, size_t rank, uint32_t* padded, size_t* strides) {
  const size_t lead = rank - dims.size();
  for (size_t d = 0; d < rank; ++d) padded[d] = d < lead ? 1u : dims[d - lead];
  strides[rank - 1] = 1;
  for (size_t d = rank - 1; d > 0; --d) strides[d - 1] = strides[d] * padded[d];
}

}  // namespace

void BroadcastFallback(const functional::ElementwiseFunction& op, const float* a,
                       const std::vector<uint32_t>& ad, const float* b, const std::vector<uint32_t>& bd,
                       float* out, const std::vector<uint32_t>& od) {
  const size_t rank = od.size();
  ZV_ASSERT(rank <= kMaxBroadcastRank && ad.size() <= rank && bd.size() <= rank,
            "[BroadcastOperator_Fallback_Float_M1] ranks %zu, %zu into %zu (at most %zu).", ad.size(),
            bd.size(), rank, kMaxBroadcastRank);
  if (rank == 0) {
    out[0] = op(a[0], b[0]);
    return;
  }
  uint32_t pa[kMaxBroadcastRank], pb[kMaxBroadcastRank], po[kMaxBroadcastRank];
  size_t sa[kMaxBroadcastRank], sb[kMaxBroadcastRank], so[kMaxBroadcastRank];
  PadAndStride(ad, rank, pa, sa);
  PadAndStride(bd, rank, pb, sb);
  PadAndStride(od, rank, po, so);
  const size_t total = so[0] * po[0];
  for (size_t i = 0; i < total; ++i) {
    size_t rest = i, oa = 0, ob = 0;
    for (size_t d = 0; d < rank; ++d) {
      const size_t coord = rest / so[d];
      rest -= coord * so[d];
      if (pa[d] != 1) oa += coord * sa[d];
      if (pb[d] != 1) ob += coord * sb[d];
    }
    out[i] = op(a[oa], b[ob]);
  }
}

int32_t BroadcastOperator_Fallback_Float_M1::CheckSupport(
    const std::shared_ptr<runtime::LayerInfo>& layer_info,
    const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  auto info = std::dynamic_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info);
  if (info == nullptr || functional::ElementwiseFunctionTable().count(info->op_type) == 0)
    return runtime::kKernelNotSupported;
  return runtime::kKernelOk;
}

bool BroadcastOperator_Fallback_Float_M1::Config(std::shared_ptr<runtime::LayerInfo> layer_info,
                                                 std::shared_ptr<runtime::InferenceParam> inference_param,
                                                 std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
                                                 std::shared_ptr<runtime::Context> /*context*/) {
  configured = false;
  if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
  param_ = ToParam(std::static_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info));
  function_ = &functional::ElementwiseFunctionTable().at(static_cast<uint16_t>(param_.op_type));
  configured = true;
  return true;
}

std::vector<runtime::TensorShape> BroadcastOperator_Fallback_Float_M1::GetOutputShapes(
    const std::vector<runtime::TensorShape>& shapes) {
  ZV_ASSERT(shapes.size() == 2, "[BroadcastOperator_Fallback_Float_M1] needs two input shapes, got %zu.",
            shapes.size());
  ZV_ASSERT(BroadcastShapesFit(shapes[0].dims, shapes[1].dims),
            "[BroadcastOperator_Fallback_Float_M1] the input shapes do not broadcast.");
  const size_t rank = std::max(shapes[0].dims.size(), shapes[1].dims.size());
  const std::vector<uint32_t> a = PadFront(shapes[0].dims, rank), b = PadFront(shapes[1].dims, rank);
  runtime::TensorShape out = shapes[0];
  out.dims.resize(rank);
  for (size_t d = 0; d < rank; ++d) out.dims[d] = a[d] == 1 ? b[d] : a[d];
  return {out};
}

int32_t BroadcastOperator_Fallback_Float_M1::CheckInputs(const runtime::TensorList& inputs) {
  if (elementwise_detail::CheckTwoFloatInputs(inputs) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  if (!BroadcastShapesFit(inputs[0]->shape.dims, inputs[1]->shape.dims)) return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t BroadcastOperator_Fallback_Float_M1::CheckOutputs(const runtime::TensorList& outputs) {
  return elementwise_detail::CheckOneFloatOutput(outputs);
}

void BroadcastOperator_Fallback_Float_M1::Forward(const runtime::TensorList& inputs,
                                                  runtime::TensorList& outputs,
                                                  const std::shared_ptr<runtime::Context>& context) {
  ZV_ASSERT(function_ != nullptr, "[BroadcastOperator_Fallback_Float_M1] not configured.");
  ZV_ASSERT(CheckInputs(inputs) == runtime::kKernelOk,
            "[BroadcastOperator_Fallback_Float_M1] needs two float tensors whose shapes broadcast.");
  ZV_ASSERT(context != nullptr, "[BroadcastOperator_Fallback_Float_M1] no context.");
  runtime::TensorCPU* a = runtime::TensorCPU::Cast(inputs[0]);
  runtime::TensorCPU* b = runtime::TensorCPU::Cast(inputs[1]);
  std::vector<runtime::TensorShape> shapes = GetOutputShapes({a->shape, b->shape});
  const std::vector<uint32_t> out_dims = shapes[0].dims;
  std::shared_ptr<runtime::Tensor> output;
  context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));
  BroadcastFallback(*function_, a->Data<float>(), a->shape.dims, b->Data<float>(), b->shape.dims,
                    output->Data<float>(), out_dims);
  outputs.clear();
  outputs.push_back(std::move(output));
}

}  // namespace kernel
}  // namespace zelva
