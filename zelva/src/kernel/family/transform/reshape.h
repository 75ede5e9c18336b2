// The frame of the transform family: the reshape kernels of TensorReshapeInfo layers. A reshape changes the
// dims and keeps the logical order of the elements; out of a blocked layout that means unblocking. Every row
// of members.h instantiates ReshapePolicy over its ReshapeRow. The forms:
//
//   form          new_shape accepted            output dims                       layout   Run
//   kGeneral      any                           resolved; a leading 1 dropped     by rank  logical order
//   kCnHWnToC     2 entries                     [ns1], -1 meaning all elements    C        CHW copied,
//   kCnHWnToCL    3 entries, [1, >0|-1, >0|-1]  [ns1, ns2], -1 deduced            CL       blocked unblocked,
//   kCLToCHW      4 entries, [1, >0|-1, ...]    [ns1, ns2, ns3], -1 deduced       CHW      other layouts
//                                                                                          refused (CnHWn);
//                                                                                          CL_To_CHW: copy
//   kAny          any                           new_shape as given                input's  copy as stored
//   kToC          any                           resolved; [1, n] -> [n]           C        logical order
//   kToCHW        any                           resolved; [1, c, h, w] -> [c,h,w] CHW      logical order
//   kToSC         any                           resolved; [1, s, c] or [s, 1, c]  SC       logical order
//                                               -> [s, c]
//
// "resolved": every entry below 1 replaced by (input element count) / (product of the entries of at least 1,
// stored at Config), signed 32-bit. kGeneral's layout by the rank that remains: 1 -> C, 2 -> CL, 3 -> CHW,
// any other -> FLEXIABLE. "-1 deduced": in entry order, every entry equal to -1 becomes the count divided by
// the product of all other entries as they stand at that moment (so of two entries of -1 the first is divided
// by the still negative second and is not repaired afterwards). The batch entry of the three fixed-rank forms
// never reaches the output. Every output takes location, data type and extra of the input; its element count
// must be the input's.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

enum class ReshapeForm : uint8_t { kGeneral, kCnHWnToC, kCnHWnToCL, kCLToCHW, kAny, kToC, kToCHW, kToSC };

// One row of the list: the registered name, the form, and the entry count of new_shape the member accepts
// (0: any count; 2: exactly two; 3 or 4: exactly that many, batch 1 and every other entry positive or -1).
struct ReshapeRow {
  const char* name;
  ReshapeForm form;
  uint32_t entries;
};

struct ReshapeState {
  TensorReshapeParam param;
  int32_t positive_product = 1;
  bool configured = false;  // CheckInputs of the CnHWn forms compares with the configured output
};

// ---- The steps of the family (reshape.cc)
int32_t CheckReshapeSupport(const ReshapeRow& row, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                            const std::shared_ptr<runtime::InferenceParam>& inference_param);
void ConfigReshape(ReshapeState* state, const std::shared_ptr<runtime::LayerInfo>& layer_info);
runtime::TensorShape ReshapeOutputShape(const ReshapeRow& row, const ReshapeState& state,
                                        const runtime::TensorShape& input);
// kGeneral: exactly one FLOAT32 tensor in main memory. The two CnHWn forms: one tensor in main memory, data
// type FLOAT32, FLOAT16 or INT16, layout CHW, C4HW4 or C8HW8 and an element count equal to the output's
// (nothing matches before Config); outputs alike with the form's output layout. The other forms test nothing.
int32_t CheckReshapeInputs(const ReshapeRow& row, const ReshapeState& state,
                           const runtime::TensorList& inputs);
int32_t CheckReshapeOutputs(const ReshapeRow& row, const runtime::TensorList& outputs);
void RunReshape(const ReshapeRow& row, const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const ReshapeRow& kRow>
struct ReshapePolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = ReshapeState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckReshapeSupport(kRow, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigReshape(&state, layer_info);
  }
  static void Refused(State& state) { state.configured = false; }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return ReshapeOutputShape(kRow, state, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckReshapeInputs(kRow, state, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckReshapeOutputs(kRow, outputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunReshape(kRow, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_TRANSFORM_MEMBER(group, isa, cls, accuracy, form, entries)                                 \
  inline constexpr ::zelva::kernel::ReshapeRow cls##_row{#cls, ::zelva::kernel::ReshapeForm::form, entries}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::ReshapePolicy<cls##_row>>;
