// The frame of the layout-transform family: the converters a configuration places between two kernels that
// disagree on layout. No description, no parameter, no weights, no state. Every row of members.h
// instantiates LayoutPolicy over its LayoutRow:
//
//   CheckSupport   0 only when both the description and the InferenceParam are null, else -1.
//   OutputShapes   one shape per input: the input's dims rewritten for the output layout, block counts a
//                  plain shift of the channel count (so an uneven count is truncated); data type, location
//                  and extra of the input kept.
//                    CHW [C, H, W]       -> C4HW4 [C >> 2, H, W, 4] or C8HW8 [C >> 3, H, W, 8]
//                    C4HW4 [B, H, W, 4]  -> CHW [4B, H, W] or C8HW8 [4B >> 3, H, W, 8]
//                    C8HW8 [B, H, W, 8]  -> CHW [8B, H, W], C4HW4 [2B, H, W, 4] or C [8B x H x W]
//   CheckInputs    -2 unless every tensor (at least one) is FLOAT32 in main memory in the input layout; a CHW
//                  input must also have dims[0] a multiple of the output's block.
//   CheckOutputs   the same against the output layout; a C output must have dims[0] a multiple of 8.
//   Run            per input, in order, the row's core from the input to the output the frame made. Plane
//                  and block addresses come from each tensor's own stride of dim 0 (a C output: H x W).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/src/kernel/family/layout/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// One row of the list: the registered name, the two layouts (runtime::Layout values) and the core.
struct LayoutRow {
  const char* name;
  uint32_t from;
  uint32_t to;
  LayoutCore core;
};

// ---- The steps of the family (layout.cc)
int32_t CheckLayoutSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param);
std::vector<runtime::TensorShape> LayoutOutputShapes(const LayoutRow& row,
                                                     const std::vector<runtime::TensorShape>& inputs);
int32_t CheckLayoutTensors(const LayoutRow& row, const runtime::TensorList& tensors, bool outputs);
// Every input FLOAT32 of the rank its layout stores; anything else is reported before a byte is read.
void AssertLayoutRunnable(const LayoutRow& row, const runtime::TensorList& inputs);
void RunLayout(const LayoutRow& row, const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const LayoutRow& kRow>
struct LayoutPolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = NoState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckLayoutSupport(layer_info, inference_param);
  }
  static void Configure(State&, const std::shared_ptr<runtime::LayerInfo>&,
                        const std::shared_ptr<runtime::Context>&) {}
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& inputs) {
    return LayoutOutputShapes(kRow, inputs);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckLayoutTensors(kRow, inputs, false);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckLayoutTensors(kRow, outputs, true);
  }
  static void AssertRunnable(const State&, const runtime::TensorList& inputs) {
    AssertLayoutRunnable(kRow, inputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunLayout(kRow, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares, for one row, the LayoutRow and the class name as an alias of Kernel<LayoutPolicy<row>>.
// clang-format off
#define ZV_DEFINE_LAYOUT_MEMBER(group, isa, cls, accuracy, from, to, core)                                    \
  inline constexpr ::zelva::kernel::LayoutRow cls##_row{#cls, ::zelva::runtime::Layout::from,                  \
                                                        ::zelva::runtime::Layout::to, &::zelva::kernel::core}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::LayoutPolicy<cls##_row>>;
// clang-format on
