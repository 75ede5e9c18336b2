// The fully connected family's policy. Every member is Kernel<FullConnectionPolicy<Row>> over its row of the
// one member list (members.h): the row names the member and fixes its input rule, its weight order and its
// core.
//
// A member holds the layer's in_features, out_features and if_bias (as the FullConnectionParam record), the
// weight in the order its core reads, and the bias (null without if_bias). Blocked members use the leading
// (out_features rounded down to the block) x (in_features rounded down to the block) part of the weight: the
// fraction is dropped unchecked, so trailing outputs keep their bias and trailing inputs are ignored.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/fullconnection/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"

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

namespace fc_detail {

// Lanes of a weight order: 1 for kRows.
uint32_t BlockOf(FcWeight form);

int32_t CheckInputs(const runtime::TensorList& inputs, uint32_t layout, FcInput rule, uint32_t in_features);
runtime::TensorShape OutputShape(const runtime::TensorShape& in, FcInput rule, uint32_t out_features,
                                 const char* name);

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
  // Forward's input assertions: one float input holding `rule`'s rows of in_features values.
  void Precheck(bool configured, const runtime::TensorList& inputs, const runtime::Context* context,
                FcInput rule, const char* name) const;
  // One core call per input row into the output the frame made.
  void Run(const runtime::TensorList& inputs, const runtime::TensorList& outputs, FcInput rule,
           DenseCore core) const;
};

}  // namespace fc_detail

// `Row` gives kName, kLayout (an input layout code or kFcAnyLayout), kInput, kWeight and kCore.
template <class Row>
struct FullConnectionPolicy : FramePolicy {
  static constexpr const char* kName = Row::kName;
  using State = fc_detail::FullConnectionState;

  // 0 for a FullConnectionInfo without InferenceParam, -1 otherwise.
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::FullConnectionInfo>(
        layer_info, inference_param, [](const runtime::FullConnectionInfo&) { return runtime::kKernelOk; });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    state.Configure(std::static_pointer_cast<runtime::FullConnectionInfo>(layer_info), Row::kWeight, context,
                    kName);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return fc_detail::OutputShape(input, Row::kInput, state.param.out_features, kName);
  }
  // One FLOAT32 tensor in main memory, of the member's layout code if it demands one, whose channel count is
  // in_features; -2 otherwise.
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return fc_detail::CheckInputs(inputs, Row::kLayout, Row::kInput, state.param.in_features);
  }
  static void Precheck(const State& state, bool configured, const runtime::TensorList& inputs,
                       const runtime::Context* context) {
    state.Precheck(configured, inputs, context, Row::kInput, kName);
  }
  static void Run(const State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& /*context*/) {
    state.Run(inputs, outputs, Row::kInput, Row::kCore);
  }
};

}  // namespace kernel
}  // namespace zelva
