// The depthwise convolution family: every row of its list against the plain depthwise reference, which is
// itself held against the depthwise cases of torch.nn.Conv2d (conv2d/planar_conv_tester.h).
#include <gtest/gtest.h>

#include "zelva/src/kernel/family/conv2d/planar_conv_tester.h"
#include "zelva/src/kernel/family/conv2d/reference.h"
#include "zelva/src/kernel/family/depthwise/members.h"
#include "zelva/src/kernel/family/depthwise/reference.h"

namespace zvtest {
namespace conv {
namespace {

std::vector<Member> DepthwiseMembers() {
  std::vector<Member> members;
  ZV_DEPTHWISE_MEMBERS(ZV_TEST_CONV_MEMBER)
  return members;
}

TEST(DepthwiseFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  ExpectMembersMatchReference(DepthwiseMembers(), &zelva::kernel::DepthwiseReference, 60);
}

// The reference reads any kernel, stride and dilation: held against the general 2D convolution on layers no
// member takes, so that a blocked member of another geometry finds it sound.
TEST(DepthwiseFamily, ReferenceAgreesWithTheConvolutionOfGroupsEqualToChannels) {
  std::mt19937 rng(3);
  Conv2dRule any{"any",
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 kConvNonZero,
                 ConvChannels::kDepthwise,
                 ConvGroups::kNonZero,
                 kConvPadAny,
                 kConvPadAny,
                 kConvPadAny,
                 kConvPadAny};
  for (int round = 0; round < 40; ++round) {
    const Layer l = RandomLayer(any, rng);
    ExpectAccuracy(RunReference(&zelva::kernel::DepthwiseReference, l),
                   RunReference(&zelva::kernel::Conv2dReference, l), zelva::kernel::kBitExact, l.Describe());
  }
}

TEST(DepthwiseFamily, RefusalsFollowTheRule) {
  ExpectRefusalsFollowTheRule(DepthwiseMembers());
}

TEST(DepthwiseFamily, TensorChecksAndReportedMisuse) {
  ExpectTensorChecksAndReportedMisuse(DepthwiseMembers());
}

TEST(DepthwiseFamily, ReferenceAndMembersMatchTorchFixtures) {
  const std::set<std::string> ran =
      ExpectFixtures(DepthwiseMembers(), &zelva::kernel::DepthwiseReference,
                     [](const Layer& l) { return l.groups == l.in && l.groups == l.out; });
  for (const char* expected :
       {"depthwise_nobias reference", "depthwise_padded Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
        "depthwise_valid Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1"}) {
    EXPECT_EQ(ran.count(expected), 1u) << expected;
  }
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
