// The vector members of the elementwise and broadcast family as class templates over a member record: the
// same-shape kernels (ElementwiseKernel) and the channel-gate kernels of the blocked layouts
// (ChannelMulKernel). The member lists (sse/elementwise/members.h, avx/elementwise/members.h) declare one
// class per registered name with ZV_DECLARE_ELEMENTWISE_MEMBER. No vector code here: the cores are declared
// in their own headers and compiled with their own flags.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// Operation codes, those of the elementwise function table: the order of "Add", "Sub", "Mul", "Div", then
// maximum and minimum.
enum ElementwiseOp : uint32_t {
  kOpAdd = 0,
  kOpSub = 1,
  kOpMul = 2,
  kOpDiv = 3,
  kOpMax = 4,
  kOpMin = 5,
};

// What a member takes: two tensors of one shape, or a blocked tensor and a tensor broadcast over H and W.
enum ElementwiseKind : uint32_t { kSameShape = 0, kChannelBlock4 = 1, kChannelBlock8 = 2 };

namespace elementwise_detail {

inline bool IsMainFloat(const std::shared_ptr<runtime::Tensor>& t) {
  return t != nullptr && t->shape.data_type == runtime::DataType::FLOAT32 &&
         t->shape.location == runtime::Location::MainMemory;
}

// Exactly two FLOAT32 tensors in main memory.
inline int32_t CheckTwoFloatInputs(const runtime::TensorList& inputs) {
  if (inputs.size() != 2 || !IsMainFloat(inputs[0]) || !IsMainFloat(inputs[1]))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

// Exactly one FLOAT32 tensor in main memory.
inline int32_t CheckOneFloatOutput(const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || !IsMainFloat(outputs[0])) return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

}  // namespace elementwise_detail

// Member: static kName, kOp and kCore (ElementwiseCore). Add, Sub, Mul and Div accept only an
// ElementWiseOperatorInfo of their own op_type; Max and Min accept any.
template <class Member>
class ElementwiseKernel : public runtime::IKernel {
 public:
  std::string GetName() const override { return Member::kName; }

  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    if (inference_param != nullptr) return runtime::kKernelNotSupported;
    auto info = std::dynamic_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info);
    if (info == nullptr) return runtime::kKernelNotSupported;
    if (Member::kOp <= kOpDiv && info->op_type != Member::kOp) return runtime::kKernelNotSupported;
    return runtime::kKernelOk;
  }

  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> /*context*/) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
    param_ = ToParam(std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info));
    configured = true;
    return true;
  }

  // One output of the first input's shape.
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& shapes) override {
    ZV_ASSERT(!shapes.empty(), "[%s] no input shape.", Member::kName);
    return {shapes[0]};
  }

  // Two FLOAT32 tensors in main memory with the same element count.
  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    if (elementwise_detail::CheckTwoFloatInputs(inputs) != runtime::kKernelOk)
      return runtime::kKernelBadTensor;
    if (inputs[0]->shape.ElementCount() != inputs[1]->shape.ElementCount()) return runtime::kKernelBadTensor;
    return runtime::kKernelOk;
  }
  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return elementwise_detail::CheckOneFloatOutput(outputs);
  }

  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ZV_ASSERT(inputs.size() == 2 && inputs[0] != nullptr && inputs[1] != nullptr, "[%s] needs two inputs.",
              Member::kName);
    runtime::TensorCPU* a = runtime::TensorCPU::Cast(inputs[0]);
    runtime::TensorCPU* b = runtime::TensorCPU::Cast(inputs[1]);
    ZV_ASSERT(
        a->shape.data_type == runtime::DataType::FLOAT32 && b->shape.data_type == runtime::DataType::FLOAT32,
        "[%s] needs float tensors.", Member::kName);
    const uint32_t count = static_cast<uint32_t>(a->shape.ElementCount());
    ZV_ASSERT(count == static_cast<uint32_t>(b->shape.ElementCount()), "[%s] %u elements against %d.",
              Member::kName, count, b->shape.ElementCount());
    ZV_ASSERT(context != nullptr, "[%s] no context.", Member::kName);
    std::vector<runtime::TensorShape> shapes = GetOutputShapes({a->shape, b->shape});
    std::shared_ptr<runtime::Tensor> output;
    context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));
    Member::kCore(a->Data<float>(), b->Data<float>(), count, output->Data<float>());
    outputs.clear();
    outputs.push_back(std::move(output));
  }

  const ElementWiseOperatorParam& param() const { return param_; }

 private:
  ElementWiseOperatorParam param_;
};

// Member: static kName and kCore (ChannelMulCore). Multiplication of a blocked tensor {blocks, H, W, lanes}
// by a second one of the same layout and block count, broadcast over H and W.
template <class Member, uint32_t kLayout, uint32_t kLanes>
class ChannelMulKernel : public runtime::IKernel {
 public:
  std::string GetName() const override { return Member::kName; }

  // -1 with an InferenceParam or without a BroadcastOperatorInfo; -2 for an op_type other than 2.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    if (inference_param != nullptr) return runtime::kKernelNotSupported;
    auto info = std::dynamic_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info);
    if (info == nullptr) return runtime::kKernelNotSupported;
    if (info->op_type != kOpMul) return runtime::kKernelBadTensor;
    return runtime::kKernelOk;
  }

  // Any refusal of CheckSupport, -2 included, fails: this kernel only multiplies.
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> /*context*/) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) != runtime::kKernelOk) return false;
    param_ = ToParam(std::static_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info));
    configured = true;
    return true;
  }

  // {blocks of the first, larger H, larger W, lanes of the first}.
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& shapes) override {
    ZV_ASSERT(shapes.size() == 2 && shapes[0].dims.size() == 4 && shapes[1].dims.size() == 4,
              "[%s] needs two shapes of 4 dims.", Member::kName);
    runtime::TensorShape out = shapes[0];
    out.dims[1] = std::max(shapes[0].dims[1], shapes[1].dims[1]);
    out.dims[2] = std::max(shapes[0].dims[2], shapes[1].dims[2]);
    return {out};
  }

  // Two FLOAT32 tensors of the member's layout (4 dims) whose H and W pass the test a * b == max(a, b).
  // That test lets a size meet 1 (or 0 meet 0) only: two equal sizes above 1 are refused here, although
  // Forward multiplies them as well.
  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    if (!TwoBlockedFloats(inputs)) return runtime::kKernelBadTensor;
    const std::vector<uint32_t>& a = inputs[0]->shape.dims;
    const std::vector<uint32_t>& b = inputs[1]->shape.dims;
    for (int d = 1; d <= 2; ++d) {
      if (a[d] * b[d] != std::max(a[d], b[d])) return runtime::kKernelBadTensor;
    }
    return runtime::kKernelOk;
  }
  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return elementwise_detail::CheckOneFloatOutput(outputs);
  }

  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ZV_ASSERT(TwoBlockedFloats(inputs), "[%s] needs two float tensors of %u-lane blocks.", Member::kName,
              kLanes);
    runtime::TensorCPU* a = runtime::TensorCPU::Cast(inputs[0]);
    runtime::TensorCPU* b = runtime::TensorCPU::Cast(inputs[1]);
    const std::vector<uint32_t>& ad = a->shape.dims;
    const std::vector<uint32_t>& bd = b->shape.dims;
    ZV_ASSERT(ad[0] == bd[0] && ad[3] == kLanes && bd[3] == kLanes, "[%s] blocks %u x %u against %u x %u.",
              Member::kName, ad[0], ad[3], bd[0], bd[3]);
    for (int d = 1; d <= 2; ++d) {
      ZV_ASSERT(ad[d] == bd[d] || ad[d] == 1 || bd[d] == 1, "[%s] dim %d: %u against %u.", Member::kName, d,
                ad[d], bd[d]);
    }
    ZV_ASSERT(context != nullptr, "[%s] no context.", Member::kName);
    std::vector<runtime::TensorShape> shapes = GetOutputShapes({a->shape, b->shape});
    std::shared_ptr<runtime::Tensor> output;
    context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));
    Member::kCore(a->Data<float>(), ad.data(), b->Data<float>(), bd.data(), output->Data<float>());
    outputs.clear();
    outputs.push_back(std::move(output));
  }

  const BroadcastOperatorParam& param() const { return param_; }

 private:
  static bool TwoBlockedFloats(const runtime::TensorList& tensors) {
    if (tensors.size() != 2) return false;
    for (const auto& t : tensors) {
      if (t == nullptr || t->shape.data_type != runtime::DataType::FLOAT32 || t->shape.layout != kLayout ||
          t->shape.dims.size() != 4)
        return false;
    }
    return true;
  }

  BroadcastOperatorParam param_;
};

namespace elementwise_detail {
template <uint32_t kKind>
struct KernelOfKind;
template <>
struct KernelOfKind<kSameShape> {
  template <class Member>
  using Kernel = ElementwiseKernel<Member>;
};
template <>
struct KernelOfKind<kChannelBlock4> {
  template <class Member>
  using Kernel = ChannelMulKernel<Member, runtime::Layout::C4HW4, 4>;
};
template <>
struct KernelOfKind<kChannelBlock8> {
  template <class Member>
  using Kernel = ChannelMulKernel<Member, runtime::Layout::C8HW8, 8>;
};
}  // namespace elementwise_detail

}  // namespace kernel
}  // namespace zelva

// Declares the class of one member line X(group, cls, kind, op, core).
#define ZV_DECLARE_ELEMENTWISE_MEMBER(group, cls, kind, op, core)           \
  namespace zelva {                                                         \
  namespace kernel {                                                        \
  struct cls##_Member {                                                     \
    static constexpr const char* kName = #cls;                              \
    static constexpr uint32_t kOp = op;                                     \
    static constexpr auto kCore = &core;                                    \
  };                                                                        \
  using cls = elementwise_detail::KernelOfKind<kind>::Kernel<cls##_Member>; \
  }                                                                         \
  }
