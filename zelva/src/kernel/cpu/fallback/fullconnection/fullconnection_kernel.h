// The fully connected members. Every member is one instance of FullConnectionKernel over a member record that
// names it and fixes its input rule, its weight order and its core; the per-ISA member lists (members.h in
// sse/fullconnection and avx/fullconnection) define the records and the registered names from one line each.
//
// A member holds the layer's in_features, out_features and if_bias (as the FullConnectionParam record), the
// weight in the order its core reads, and the bias (null without if_bias). Blocked members use the leading
// (out_features rounded down to the block) x (in_features rounded down to the block) part of the weight: the
// fraction is dropped unchecked, so trailing outputs keep their bias and trailing inputs are ignored.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// How a member reads its input tensor.
enum class FcInput {
  kElements,   // no layout demanded: any tensor of in_features elements, read as one vector
  kFirstDim,   // the first dim is in_features, read as one vector
  kBatchRows,  // [B, in_features]: one product per row, output [B, out_features]
};

// The order a member keeps its weight in. The blocked orders put the output lane innermost, so that one
// vector load from a fixed input delivers 4 or 8 outputs; the three 8-wide forms are the same bytes.
enum class FcWeight {
  kRows,      // [O, I] as in the model file (layout OI)
  kBlock4,    // [O/4, I/4, 4(i), 4(o)]: GN4C4HW4n4c of the weight seen as GNCHW [1, O, I, 1, 1]
  kBlock8,    // [O/8, I/8, 8(i), 8(o)]: GN8C8HW8n8c of the same
  kO8I8,      // [O/8, I/8, 8(i), 8(o)]: O8I8o8i8
  kOutRows8,  // [O/8, I, 8(o)]: GN8CHW8n, each input with its row of 8 outputs
};

// The input layout code of a member that demands none.
constexpr uint32_t kFcAnyLayout = 0xFFFFFFFFu;

// A member's core: y (out_count) = w x + bias, w in the member's order, bias null for none. Cores start y
// from the bias (or zero) themselves.
using DenseCore = void (*)(const float* x, int32_t in_count, int32_t out_count, const float* w,
                           const float* bias, float* y);

namespace fc_detail {

// Lanes of a weight order: 1 for kRows.
uint32_t BlockOf(FcWeight form);

int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                     const std::shared_ptr<runtime::InferenceParam>& inference_param);
int32_t CheckInputs(const runtime::TensorList& inputs, uint32_t layout, FcInput rule, uint32_t in_features);
std::vector<runtime::TensorShape> OutputShapes(const std::vector<runtime::TensorShape>& inputs, FcInput rule,
                                               uint32_t out_features, const char* name);

// The weight [O, I] (row-major, as decoded) in order `form`; null when the kept part is empty.
std::shared_ptr<runtime::Tensor> PackWeight(FcWeight form, const float* weight, uint32_t out_features,
                                            uint32_t in_features, runtime::DeviceCPU& device);

struct FullConnectionState {
  FullConnectionParam param;
  std::shared_ptr<runtime::Tensor> weight;
  std::shared_ptr<runtime::Tensor> bias;

  // Decodes weight and bias of `info` and packs the weight; failures are assertions.
  void Configure(const std::shared_ptr<runtime::FullConnectionInfo>& info, FcWeight form,
                 const std::shared_ptr<runtime::Context>& context, const char* name);
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context, FcInput rule, DenseCore core,
               const char* name) const;
};

}  // namespace fc_detail

template <class Member>
class FullConnectionKernel : public runtime::IKernel {
 public:
  std::string GetName() const override { return Member::kName; }
  // 0 for a FullConnectionInfo without InferenceParam, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    return fc_detail::CheckSupport(layer_info, inference_param);
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> context) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) != runtime::kKernelOk) return false;
    state_.Configure(std::static_pointer_cast<runtime::FullConnectionInfo>(layer_info), Member::kWeight,
                     context, Member::kName);
    configured = true;
    return true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override {
    return fc_detail::OutputShapes(input_shapes, Member::kInput, state_.param.out_features, Member::kName);
  }
  // One FLOAT32 tensor in main memory, of the member's layout code if it demands one, whose channel count is
  // in_features; -2 otherwise.
  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    return fc_detail::CheckInputs(inputs, Member::kLayout, Member::kInput, state_.param.in_features);
  }
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ZV_ASSERT(configured, "[%s] Forward before a successful Config.", Member::kName);
    state_.Forward(inputs, outputs, context, Member::kInput, &Member::Core, Member::kName);
  }

  const std::shared_ptr<runtime::Tensor>& weight() const { return state_.weight; }
  const std::shared_ptr<runtime::Tensor>& bias() const { return state_.bias; }

 private:
  fc_detail::FullConnectionState state_;
};

}  // namespace kernel
}  // namespace zelva

// Expands one line of a member list, X(group, class, input layout code, input rule, weight form, core), into
// the member record and the registered name. Use inside namespace zelva::kernel.
#define ZV_DEFINE_FULLCONNECTION_MEMBER(group, cls, layout, rule, form, core)                                \
  struct cls##_Member {                                                                                      \
    static constexpr const char* kName = #cls;                                                               \
    static constexpr uint32_t kLayout = layout;                                                              \
    static constexpr ::zelva::kernel::FcInput kInput = ::zelva::kernel::FcInput::rule;                       \
    static constexpr ::zelva::kernel::FcWeight kWeight = ::zelva::kernel::FcWeight::form;                    \
    static void Core(const float* x, int32_t in_count, int32_t out_count, const float* w, const float* bias, \
                     float* y) {                                                                             \
      core(x, in_count, out_count, w, bias, y);                                                              \
    }                                                                                                        \
  };                                                                                                         \
  using cls = ::zelva::kernel::FullConnectionKernel<cls##_Member>;
