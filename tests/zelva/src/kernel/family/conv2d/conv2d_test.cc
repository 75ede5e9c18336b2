// The 2D convolution family: every row of its list against the plain reference, which is itself held
// against torch.nn.Conv2d (planar_conv_tester.h).
#include <gtest/gtest.h>

#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/conv2d/planar_conv_tester.h"
#include "zelva/src/kernel/family/conv2d/reference.h"

namespace zvtest {
namespace conv {
namespace {

// The planar rows; the blocked ones have their own tester (blocked_conv_test.cc).
std::vector<Member> Conv2dMembers() {
  std::vector<Member> members, blocked;
  ZV_CONV2D_MEMBERS(ZV_TEST_CONV_MEMBER)
  members.swap(blocked);
  ZV_CONV2D_BLOCKED_MEMBERS(ZV_TEST_CONV_MEMBER)
  members.swap(blocked);
  members.erase(std::remove_if(members.begin(), members.end(),
                               [&](const Member& m) {
                                 return std::any_of(blocked.begin(), blocked.end(),
                                                    [&](const Member& b) { return b.name == m.name; });
                               }),
                members.end());
  return members;
}

TEST(Conv2dFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  ExpectMembersMatchReference(Conv2dMembers(), &zelva::kernel::Conv2dReference, 60);
}

TEST(Conv2dFamily, RefusalsFollowTheRule) {
  ExpectRefusalsFollowTheRule(Conv2dMembers());
}

TEST(Conv2dFamily, TensorChecksAndReportedMisuse) {
  ExpectTensorChecksAndReportedMisuse(Conv2dMembers());
}

TEST(Conv2dFamily, ReferenceAndMembersMatchTorchFixtures) {
  const std::set<std::string> ran =
      ExpectFixtures(Conv2dMembers(), &zelva::kernel::Conv2dReference, [](const Layer&) { return true; });
  // The cases each member was made for.
  for (const char* expected : {"general reference", "depthwise_padded reference",
                               "pointwise_16_16 Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                               "pointwise_16_16 Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
                               "pointwise_grouped Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                               "pointwise_grouped Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
                               "general Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"}) {
    EXPECT_EQ(ran.count(expected), 1u) << expected;
  }
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
