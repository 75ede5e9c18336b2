// The frame of the soft arg-max family (SoftArgMaxInfo layers). Every row of members.h instantiates
// SoftArgMaxPolicy over its SoftArgMaxRow.
//
//   meaning        per channel, the softmax of beta x the map over its H x W (the channel's maximum taken
//                  off first), then the expected column x and the expected row y in pixel units (x from 0
//                  to W - 1, y from 0 to H - 1). A `size` of two entries (width, height) rescales them:
//                  x' = x x width / W, y' = y x height / H.
//   CheckSupport   -1 with an InferenceParam, a description of another kind, a beta that is not finite, or
//                  a size that is neither empty nor two entries of at least 1.
//   OutputShape    [C, 2], layout FLEXIABLE, in the order x0, y0, x1, y1, ...; data type, location and
//                  extra of the input. The input is planar CHW.
//   CheckInputs    one FLOAT32 CHW tensor of rank 3 in main memory, else -2. CheckOutputs: one FLOAT32 tensor
//                  of dims [C, 2].
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/softargmax/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct SoftArgMaxRow {
  const char* name;
  SoftArgMaxCore core;
};

struct SoftArgMaxState {
  SoftArgMaxParam param;
  bool configured = false;
};

// ---- The steps of the family (softargmax.cc)
int32_t CheckSoftArgMaxSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                               const std::shared_ptr<runtime::InferenceParam>& param);
void ConfigSoftArgMax(SoftArgMaxState* state, const std::shared_ptr<runtime::LayerInfo>& info);
runtime::TensorShape SoftArgMaxOutputShape(const SoftArgMaxRow& row, const runtime::TensorShape& input);
int32_t CheckSoftArgMaxInputs(const runtime::TensorList& inputs);
int32_t CheckSoftArgMaxOutputs(const runtime::TensorList& outputs);
void AssertSoftArgMaxRunnable(const SoftArgMaxRow& row, const SoftArgMaxState& state,
                              const runtime::TensorList& inputs);
void RunSoftArgMax(const SoftArgMaxRow& row, const SoftArgMaxState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs);

template <const SoftArgMaxRow& kRow>
struct SoftArgMaxPolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = SoftArgMaxState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                              const std::shared_ptr<runtime::InferenceParam>& param) {
    return CheckSoftArgMaxSupport(info, param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigSoftArgMax(&state, info);
  }
  static void Refused(State& state) { state.configured = false; }
  static runtime::TensorShape OutputShape(const State&, const runtime::TensorShape& input) {
    return SoftArgMaxOutputShape(kRow, input);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckSoftArgMaxInputs(inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckSoftArgMaxOutputs(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertSoftArgMaxRunnable(kRow, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunSoftArgMax(kRow, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_SOFTARGMAX_MEMBER(group, isa, cls, accuracy, core)     \
  inline constexpr ::zelva::kernel::SoftArgMaxRow cls##_row{#cls, core}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::SoftArgMaxPolicy<cls##_row>>;
