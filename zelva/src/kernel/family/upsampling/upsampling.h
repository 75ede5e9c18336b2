// The frame of the upsampling family (Upsample2dInfo): one policy over a member's rule and core. The
// arithmetic is that of reference.h and cores.h.
//
//   CheckSupport  -1 with an InferenceParam or a description that is no Upsample2dInfo; -1 for a mode code
//                 without a name (ToParam logs "Invalid upsample2d type") and for a mode the member does not
//                 implement (the Fallback member: "Nearest", "Bilinear" and "Bicubic"; a Nearest or Bilinear
//                 member: its own); -1 unless each axis has a positive size or a positive factor.
//   OutputShape   [C, out_h, out_w] in CHW or [C / lanes, out_h, out_w, lanes] in the member's blocked
//                 layout, with the data type, location and extra of the input; a size of 0, and an output of
//                 2^29 values or more, are reported.
//   CheckInputs   one FLOAT32 tensor in main memory in the member's layout; CheckOutputs the same.
//   Run           the taps of every output row and column (recomputed when the input size changes, kept
//                 otherwise) and the core's scratch, then the core; the Fallback member runs the reference.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/upsampling/cores.h"
#include "zelva/src/kernel/family/upsampling/reference.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// The modes a member implements.
enum class UpsampleModes : uint8_t { kAll, kNearest, kBilinear };

struct UpsampleRule {
  const char* name;
  uint32_t layout;  // CHW, C4HW4 or C8HW8
  UpsampleModes modes;
};

struct UpsampleState {
  Upsample2dParam param;
  UpsampleMode mode = UpsampleMode::kNearest;
  bool align_corners = false;
  // The taps, for the input size they were made for.
  uint32_t in_h = 0, in_w = 0;
  UpsampleAxis y{}, x{};
  std::vector<uint32_t> y0, y1, x0, x1;
  std::vector<float> wy0, wy1, wx0, wx1;
  Scratch scratch;
};

// ---- The steps (upsampling.cc)
int32_t CheckUpsampleSupport(const UpsampleRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                             const std::shared_ptr<runtime::InferenceParam>& inference_param);
void ConfigUpsample(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                    UpsampleState* state);
runtime::TensorShape UpsampleOutputShape(const UpsampleState& state, uint32_t layout,
                                         const runtime::TensorShape& input);
int32_t CheckUpsampleTensors(uint32_t layout, const runtime::TensorList& tensors);
void AssertUpsampleRunnable(const char* name, uint32_t layout, const UpsampleState& state,
                            const runtime::TensorList& inputs);
void RunUpsample(const UpsampleCore& core, UpsampleState& state, const runtime::TensorList& inputs,
                 const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context);

template <const UpsampleRule& kRule, const UpsampleCore& kCore>
struct UpsamplePolicy : FramePolicy {
  static constexpr const char* kName = kRule.name;
  using State = UpsampleState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckUpsampleSupport(kRule, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigUpsample(kName, layer_info, &state);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return UpsampleOutputShape(state, kRule.layout, input);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckUpsampleTensors(kRule.layout, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckUpsampleTensors(kRule.layout, outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertUpsampleRunnable(kName, kRule.layout, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& context) {
    RunUpsample(kCore, state, inputs, outputs, context);
  }
};

}  // namespace kernel
}  // namespace zelva

// One row of the list: X(group, isa, ClassName, accuracy, layout, modes, core).
// clang-format off
#define ZV_DEFINE_UPSAMPLING_MEMBER(group, isa, cls, accuracy, layout, modes, core)                  \
  inline constexpr ::zelva::kernel::UpsampleRule cls##_rule{#cls, ::zelva::runtime::Layout::layout,   \
                                                            ::zelva::kernel::UpsampleModes::modes};    \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::UpsamplePolicy<cls##_rule, core>>;
// clang-format on
