// The frame of the warp affine family (WarpAffineInfo layers): F.grid_sample(x, F.affine_grid(theta, x.shape,
// align_corners), mode, padding_mode, align_corners), step by step in cores.h. Every row of members.h
// instantiates WarpAffinePolicy over its WarpAffineRow.
//
//   inputs         the image, planar CHW [C, H, W], and theta, a tensor of 6 floats (row-major 2 x 3), any
//                  layout: the layer's second input.
//   mode           "bilinear" or "nearest"; padding_mode "zeros", "border" or "reflection" (PyTorch's
//                  words). CheckSupport takes any text (-1 only with an InferenceParam or a description of
//                  another kind); Config refuses any other mode or padding mode by an assertion that names
//                  it.
//   OutputShape    the image's shape, [C, H, W] CHW.
//   CheckInputs    two FLOAT32 tensors in main memory, a CHW image of rank 3 and 6 theta values; else -2.
//                  CheckOutputs: one FLOAT32 CHW tensor of rank 3.
//   Run            the row's core, with the table of taps kept between calls (grown to the largest image).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/warpaffine/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct WarpAffineRow {
  const char* name;
  void (*core)(const WarpAffineArgs& args);
};

struct WarpAffineState {
  WarpAffineParam param;
  WarpMode mode = WarpMode::kBilinear;
  WarpPadding padding = WarpPadding::kZeros;
  bool configured = false;
  std::vector<int32_t> taps;
  std::vector<float> weights;
};

// ---- The steps of the family (warpaffine.cc)
int32_t CheckWarpAffineSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                               const std::shared_ptr<runtime::InferenceParam>& param);
void ConfigWarpAffine(const char* name, WarpAffineState* state,
                      const std::shared_ptr<runtime::LayerInfo>& info);
runtime::TensorShape WarpAffineOutputShape(const char* name, const runtime::TensorShape& input);
int32_t CheckWarpAffineInputs(const runtime::TensorList& inputs);
int32_t CheckWarpAffineOutputs(const runtime::TensorList& outputs);
void AssertWarpAffineRunnable(const char* name, const WarpAffineState& state,
                              const runtime::TensorList& inputs);
void RunWarpAffine(const WarpAffineRow& row, WarpAffineState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs);

template <const WarpAffineRow& kRow>
struct WarpAffinePolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = WarpAffineState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                              const std::shared_ptr<runtime::InferenceParam>& param) {
    return CheckWarpAffineSupport(info, param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigWarpAffine(kName, &state, info);
  }
  static void Refused(State& state) { state.configured = false; }
  static runtime::TensorShape OutputShape(const State&, const runtime::TensorShape& input) {
    return WarpAffineOutputShape(kName, input);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckWarpAffineInputs(inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckWarpAffineOutputs(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertWarpAffineRunnable(kName, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunWarpAffine(kRow, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_WARPAFFINE_MEMBER(group, isa, cls, accuracy, core)     \
  inline constexpr ::zelva::kernel::WarpAffineRow cls##_row{#cls, core}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::WarpAffinePolicy<cls##_row>>;
