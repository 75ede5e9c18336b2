// The frame of the expand family (TensorExpandInfo layers): Tensor.expand(new_shape). Every row of members.h
// instantiates ExpandPolicy over its ExpandRow.
//
//   new_shape      as the reshape family's: the batch entry first, which must be 1 or -1, then the logical
//                  C, H, W: four entries. An entry of -1 keeps the input's size; any other entry must be at
//                  least 1 (CheckSupport refuses the rest, so Config does). A size of 1 in the input is
//                  repeated to the entry; any other input size must equal it, asserted with both sizes when
//                  the output shape is computed (Config sees no input).
//   blocked rows   (C4HW4, C8HW8) expand H and W only: C must be -1 or the input's channel count.
//   OutputShape    [C', H', W'] planar or [C' / lanes, H', W', lanes]; data type, location, extra kept.
//   CheckInputs    one FLOAT32 tensor in main memory of the row's layout and rank that new_shape can expand;
//                  -2 otherwise. CheckOutputs: one FLOAT32 tensor of the layout.
//   Run            the row's core.
// Values are moved, never computed: every member is bit-exact to the reference.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/expand/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// One row of the list: name, layout (runtime::Layout) and core.
struct ExpandRow {
  const char* name;
  uint32_t layout;
  ExpandCore core;
};

struct ExpandState {
  TensorExpandParam param;
  bool configured = false;
};

// ---- The steps of the family (expand.cc)
int32_t CheckExpandSupport(const ExpandRow& row, const std::shared_ptr<runtime::LayerInfo>& info,
                           const std::shared_ptr<runtime::InferenceParam>& param);
void ConfigExpand(ExpandState* state, const std::shared_ptr<runtime::LayerInfo>& info);
runtime::TensorShape ExpandOutputShape(const ExpandRow& row, const ExpandState& state,
                                       const runtime::TensorShape& input);
int32_t CheckExpandInputs(const ExpandRow& row, const ExpandState& state, const runtime::TensorList& inputs);
int32_t CheckExpandOutputs(const ExpandRow& row, const runtime::TensorList& outputs);
void AssertExpandRunnable(const ExpandRow& row, const ExpandState& state, const runtime::TensorList& inputs);
void RunExpand(const ExpandRow& row, const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const ExpandRow& kRow>
struct ExpandPolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = ExpandState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                              const std::shared_ptr<runtime::InferenceParam>& param) {
    return CheckExpandSupport(kRow, info, param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigExpand(&state, info);
  }
  static void Refused(State& state) { state.configured = false; }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return ExpandOutputShape(kRow, state, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckExpandInputs(kRow, state, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckExpandOutputs(kRow, outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertExpandRunnable(kRow, state, inputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunExpand(kRow, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_EXPAND_MEMBER(group, isa, cls, accuracy, layout, core)                               \
  inline constexpr ::zelva::kernel::ExpandRow cls##_row{#cls, ::zelva::runtime::Layout::layout, core}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::ExpandPolicy<cls##_row>>;
