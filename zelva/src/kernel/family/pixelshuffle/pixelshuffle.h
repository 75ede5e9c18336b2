// The frame of the pixel shuffle family (PixelShuffleInfo layers). Every row of members.h instantiates
// PixelShufflePolicy over its PixelShuffleRow.
//
//   upscale_factor   f >= 1: shuffle up by r = f, which must be a whole number (nn.PixelShuffle(r)).
//                    0 < f < 1: shuffle down by r = round(1 / f), r >= 2, f x r within 1e-5 of 1, since 1/3
//                    is not exact in float (nn.PixelUnshuffle(r)).
//                    Anything else (0, negative, not a number, a fraction of no whole r) is refused.
//   CheckSupport     -1 with an InferenceParam, a description of another kind, or a factor the member does
//                    not run: the Upscale2 members take exactly 2, the Downscale2 members exactly 0.5, the
//                    Fallback member any factor of the rule above.
//   OutputShape      up: [C / r^2, H r, W r]; down: [C r^2, H / r, W / r], on logical channels (a blocked
//                    layout stores [C / lanes, H, W, lanes]); asserted: C a multiple of r^2 whose quotient
//                    fills whole blocks (up), H and W multiples of r (down). Data type, location, extra kept.
//   CheckInputs      one FLOAT32 tensor in main memory, the member's layout and rank, sizes the factor
//                    divides as above; -2 otherwise. CheckOutputs: one FLOAT32 tensor of the layout.
//   Run              the row's core for the direction.
// Values are moved, never computed: every member is bit-exact to the reference.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/src/kernel/family/pixelshuffle/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// One row of the list: name, layout (runtime::Layout), the factor the name fixes (0: any) and the cores of
// the two directions (null for a direction the member does not run).
struct PixelShuffleRow {
  const char* name;
  uint32_t layout;
  uint32_t factor;
  PixelShuffleCore up;
  PixelShuffleCore down;
};

struct PixelShuffleState {
  bool up = true;
  uint32_t factor = 0;
};

// The direction and whole factor r of an upscale_factor, by the rule above; false when it has none.
bool DecodeShuffleFactor(float upscale_factor, bool* up, uint32_t* factor);

// ---- The steps of the family (pixelshuffle.cc)
int32_t CheckPixelShuffleSupport(const PixelShuffleRow& row, const std::shared_ptr<runtime::LayerInfo>& info,
                                 const std::shared_ptr<runtime::InferenceParam>& param);
void ConfigPixelShuffle(PixelShuffleState* state, const std::shared_ptr<runtime::LayerInfo>& info);
runtime::TensorShape PixelShuffleOutputShape(const PixelShuffleRow& row, const PixelShuffleState& state,
                                             const runtime::TensorShape& input);
int32_t CheckPixelShuffleInputs(const PixelShuffleRow& row, const PixelShuffleState& state,
                                const runtime::TensorList& inputs);
int32_t CheckPixelShuffleOutputs(const PixelShuffleRow& row, const runtime::TensorList& outputs);
void AssertPixelShuffleRunnable(const PixelShuffleRow& row, const PixelShuffleState& state,
                                const runtime::TensorList& inputs);
void RunPixelShuffle(const PixelShuffleRow& row, const PixelShuffleState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs);

template <const PixelShuffleRow& kRow>
struct PixelShufflePolicy : FramePolicy {
  static constexpr const char* kName = kRow.name;
  using State = PixelShuffleState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                              const std::shared_ptr<runtime::InferenceParam>& param) {
    return CheckPixelShuffleSupport(kRow, info, param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigPixelShuffle(&state, info);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return PixelShuffleOutputShape(kRow, state, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return CheckPixelShuffleInputs(kRow, state, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckPixelShuffleOutputs(kRow, outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertPixelShuffleRunnable(kRow, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunPixelShuffle(kRow, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the row and the class of one line of the list.
#define ZV_DEFINE_PIXELSHUFFLE_MEMBER(group, isa, cls, accuracy, layout, factor, up, down)            \
  inline constexpr ::zelva::kernel::PixelShuffleRow cls##_row{#cls, ::zelva::runtime::Layout::layout, \
                                                              factor, up, down};                      \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::PixelShufflePolicy<cls##_row>>;
