// What a convolution member accepts: one constexpr rule per member, read by its CheckSupport, its tester and
// its benchmark. The member lists of the convolution families (planar and blocked, every instruction set)
// have one line per member:
//
//   X(group, ClassName, Frame, core, ky, kx, sy, sx, dy, dx, channels, groups, pl, pr, pt, pb)
//
// Frame is the class template that runs the member (PlanarConv2d for planar members), core the descriptor of
// the inner routine it calls. Kernel size, stride and dilation are a fixed value, kConvAny (not tested) or
// kConvNonZero; channels and groups name a ConvChannels and a ConvGroups rule; a padding is a fixed value or
// kConvPadAny. Expanding the list with ZV_DEFINE_CONV2D_MEMBER declares, for each line, the rule and the
// class name as an alias of Frame<rule, core>.
#pragma once

#include <cstdint>
#include <memory>

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

// CheckSupport of every convolution member: -1 with an InferenceParam or a description that is no
// Conv2dInfo, then -1 unless kernel, stride, dilation, channels, groups and padding all pass the rule.
int32_t CheckConv2dSupport(const Conv2dRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param);

}  // namespace kernel
}  // namespace zelva

// clang-format off
#define ZV_DEFINE_CONV2D_MEMBER(group, cls, frame, core, ky, kx, sy, sx, dy, dx, channels, groups, pl, pr, pt, pb) \
  inline constexpr ::zelva::kernel::Conv2dRule cls##_rule{                                                      \
      #cls, ky, kx, sy, sx, dy, dx, ::zelva::kernel::ConvChannels::channels,                                     \
      ::zelva::kernel::ConvGroups::groups, pl, pr, pt, pb};                                                      \
  using cls = frame<cls##_rule, core>;
// clang-format on
