// What a convolution member accepts, and how its row of a member list becomes a registered class. The member
// lists of the convolution families (conv2d/members.h, depthwise/members.h; every instruction set, planar and
// blocked layouts) have one row per registered name:
//
//   X(group, isa, ClassName, accuracy, layout, ky, kx, sy, sx, dy, dx, channels, groups, pl, pr, pt, pb,
//   core)
//
// group, isa and accuracy are the columns every family shares (frame/member.h). layout names the frame that
// runs the member (CHW: the planar frame, planar_frame.h; a blocked layout names its own frame, which
// specialises ConvFrame). ky .. pb are the member's rule: kernel size, stride and dilation are a fixed value,
// kConvAny (not tested) or kConvNonZero; channels and groups name a ConvChannels and a ConvGroups rule; a
// padding is a fixed value or kConvPadAny. core is the descriptor of the inner routine (cores.h of the
// family). Expanding a list with ZV_DEFINE_CONV2D_MEMBER declares, for each row, the rule and the class name
// as an alias of Kernel<the layout's policy over rule and core>.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

constexpr uint32_t kConvAny = 0;                // not tested
constexpr uint32_t kConvNonZero = 0xFFFFFFFFu;  // any value but 0
constexpr int32_t kConvPadAny = -1;             // padding not tested

enum class ConvChannels : uint8_t {
  kNotTested,
  kNonZero,      // in and out both non-zero
  kDepthwise,    // in and out both equal groups
  kMult4,        // in and out multiples of 4
  kMult8,        // in and out multiples of 8
  kIn3OutMult4,  // in exactly 3, out a multiple of 4
  kIn3OutMult8,  // in exactly 3, out a multiple of 8
  kInMult8Out1,  // in a multiple of 8, out exactly 1
};

enum class ConvGroups : uint8_t {
  kNotTested,
  kNonZero,
  kExactlyOne,
};

struct Conv2dRule {
  const char* name;
  uint32_t kernel_y, kernel_x;
  uint32_t stride_y, stride_x;
  uint32_t dilation_y, dilation_x;
  ConvChannels channels;
  ConvGroups groups;
  int32_t padding_l, padding_r, padding_t, padding_b;
};

// The memory layout a convolution member reads and writes; it picks the frame.
enum class ConvLayout : uint8_t {
  kCHW,
  kC4HW4,
  kC8HW8,
  kCHWToC4HW4,   // planar in, 4-blocked out (relayout_frame.h)
  kCHWToC8HW8,   // planar in, 8-blocked out
  kC8HW8ToCHW,   // 8-blocked in, planar out
  kWinogradCHW,  // planar in and out, the Winograd frame (winograd_frame.h)
};

// The tensor layouts a member of each frame reads and writes.
constexpr uint32_t ConvInputLayout(ConvLayout l) {
  return l == ConvLayout::kC4HW4                                   ? runtime::Layout::C4HW4
         : l == ConvLayout::kC8HW8 || l == ConvLayout::kC8HW8ToCHW ? runtime::Layout::C8HW8
                                                                   : runtime::Layout::CHW;
}
constexpr uint32_t ConvOutputLayout(ConvLayout l) {
  return l == ConvLayout::kC4HW4 || l == ConvLayout::kCHWToC4HW4   ? runtime::Layout::C4HW4
         : l == ConvLayout::kC8HW8 || l == ConvLayout::kCHWToC8HW8 ? runtime::Layout::C8HW8
                                                                   : runtime::Layout::CHW;
}

// The frame of each layout: a specialisation holding `template <const Conv2dRule&, const Core&> using
// Policy`.
template <ConvLayout L>
struct ConvFrame;

// CheckSupport of every convolution member: -1 with an InferenceParam or a description that is no
// Conv2dInfo, then -1 unless kernel, stride, dilation, channels, groups and padding all pass the rule.
int32_t CheckConv2dSupport(const Conv2dRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param);

// The policy of every convolution member. The rule's support check is common to all; a frame gives the rest
// as `Steps`, a struct of static functions over its State: Configure(name, layer_info, context, state*),
// OutputShape(rule, state, input), CheckInputs(state, inputs), CheckOutputs(outputs), AssertRunnable(name,
// state, inputs) and Run(core, state, inputs, outputs, context).
template <const Conv2dRule& kRule, class Steps, const typename Steps::Core& kCore>
struct ConvPolicy : FramePolicy {
  static constexpr const char* kName = kRule.name;
  using State = typename Steps::State;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckConv2dSupport(kRule, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    Steps::Configure(kName, layer_info, context, &state);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return Steps::OutputShape(kRule, state, input);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return Steps::CheckInputs(state, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return Steps::CheckOutputs(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    Steps::AssertRunnable(kName, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& context) {
    Steps::Run(kCore, state, inputs, outputs, context);
  }
};

// A frame made of its steps: `ConvFrame<layout> : ConvFrameOf<Steps>`.
template <class Steps>
struct ConvFrameOf {
  template <const Conv2dRule& kRule, const typename Steps::Core& kCore>
  using Policy = ConvPolicy<kRule, Steps, kCore>;
};

}  // namespace kernel
}  // namespace zelva

// clang-format off
#define ZV_DEFINE_CONV2D_MEMBER(group, isa, cls, accuracy, layout, ky, kx, sy, sx, dy, dx, channels, groups,  \
                                pl, pr, pt, pb, core)                                                          \
  inline constexpr ::zelva::kernel::Conv2dRule cls##_rule{                                                     \
      #cls, ky, kx, sy, sx, dy, dx, ::zelva::kernel::ConvChannels::channels,                                    \
      ::zelva::kernel::ConvGroups::groups, pl, pr, pt, pb};                                                     \
  using cls = ::zelva::kernel::Kernel<                                                                          \
      ::zelva::kernel::ConvFrame<::zelva::kernel::ConvLayout::k##layout>::Policy<cls##_rule, core>>;
// clang-format on
