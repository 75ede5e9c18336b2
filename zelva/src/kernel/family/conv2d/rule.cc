#include "zelva/src/kernel/family/conv2d/rule.h"

namespace zelva {
namespace kernel {

namespace {

bool Matches(uint32_t rule, uint32_t value) {
  if (rule == kConvAny) return true;
  if (rule == kConvNonZero) return value != 0;
  return value == rule;
}

bool PadMatches(int32_t rule, uint32_t value) {
  return rule == kConvPadAny || value == static_cast<uint32_t>(rule);
}

bool ChannelsPass(ConvChannels rule, uint32_t in, uint32_t out, uint32_t groups) {
  switch (rule) {
    case ConvChannels::kNotTested:
      return true;
    case ConvChannels::kNonZero:
      return in != 0 && out != 0;
    case ConvChannels::kDepthwise:
      return in == groups && out == groups;
    case ConvChannels::kMult4:
      return in % 4 == 0 && out % 4 == 0;
    case ConvChannels::kMult8:
      return in % 8 == 0 && out % 8 == 0;
    case ConvChannels::kIn3OutMult4:
      return in == 3 && out % 4 == 0;
    case ConvChannels::kIn3OutMult8:
      return in == 3 && out % 8 == 0;
    case ConvChannels::kInMult8Out1:
      return in % 8 == 0 && out == 1;
  }
  return false;
}

bool GroupsPass(ConvGroups rule, uint32_t groups) {
  switch (rule) {
    case ConvGroups::kNotTested:
      return true;
    case ConvGroups::kNonZero:
      return groups != 0;
    case ConvGroups::kExactlyOne:
      return groups == 1;
  }
  return false;
}

}  // namespace

int32_t CheckConv2dSupport(const Conv2dRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return SupportFor<runtime::Conv2dInfo>(
      layer_info, inference_param, [&rule](const runtime::Conv2dInfo& info) {
        const bool pass =
            Matches(rule.kernel_y, info.kernel_y) && Matches(rule.kernel_x, info.kernel_x) &&
            Matches(rule.stride_y, info.stride_y) && Matches(rule.stride_x, info.stride_x) &&
            Matches(rule.dilation_y, info.dilation_y) && Matches(rule.dilation_x, info.dilation_x) &&
            ChannelsPass(rule.channels, info.in_channels, info.out_channels, info.groups) &&
            GroupsPass(rule.groups, info.groups) && PadMatches(rule.padding_l, info.padding_l) &&
            PadMatches(rule.padding_r, info.padding_r) && PadMatches(rule.padding_t, info.padding_t) &&
            PadMatches(rule.padding_b, info.padding_b);
        return pass ? runtime::kKernelOk : runtime::kKernelNotSupported;
      });
}

}  // namespace kernel
}  // namespace zelva
