// The depthwise convolution family: every row of its list, planar and blocked, against the plain depthwise
// reference over random layers the row accepts (widths and heights 1, 7, 8, 9 and the stride-2 odd tails,
// channel counts at one to three blocks, padding, bias on and off), and against the torch.nn.Conv2d fixtures
// (tests/data/depthwise_fixture.txt, tools/gen_depthwise_fixture.py; and the depthwise cases of
// conv2d_fixture.txt), which hold the reference itself.
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

// A layer of the row's kernel and stride with `channels`, a w x h input and random padding of 0 to 2, the
// input grown where the padded size would not hold the kernel.
Layer DepthwiseLayer(const Member& m, uint32_t channels, uint32_t h, uint32_t w, bool bias,
                     std::mt19937& rng) {
  Layer l;
  l.ky = m.rule->kernel_y;
  l.kx = m.rule->kernel_x;
  l.sy = m.rule->stride_y;
  l.sx = m.rule->stride_x;
  l.in = l.out = l.groups = channels;
  l.pl = rng() % 3;
  l.pr = rng() % 3;
  l.pt = rng() % 3;
  l.pb = rng() % 3;
  l.w = std::max(w, l.kx - std::min(l.kx - 1, l.pl + l.pr));
  l.h = std::max(h, l.ky - std::min(l.ky - 1, l.pt + l.pb));
  l.bias = bias;
  l.weight = RandomFloats(static_cast<size_t>(channels) * l.ky * l.kx, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(channels, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(static_cast<size_t>(channels) * l.h * l.w, rng(), -1.0f, 1.0f);
  return l;
}

TEST(DepthwiseFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(11);
  const uint32_t sizes[] = {1, 7, 8, 9};
  for (const Member& m : DepthwiseMembers()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t lanes = BlockOf(m);
    const uint32_t channels[] = {lanes == 1 ? 1u : lanes, lanes == 1 ? 5u : 2 * lanes,
                                 lanes == 1 ? 8u : 3 * lanes};
    bool odd_h = false, even_h = false, odd_w = false, even_w = false;
    int round = 0;
    for (const uint32_t w : {1u, 7u, 8u, 9u, 10 + static_cast<uint32_t>(rng() % 30)}) {
      for (const uint32_t h : sizes) {
        const Layer l = DepthwiseLayer(m, channels[round % 3], h, w, round % 2 == 0, rng);
        ++round;
        const std::string what = m.name + " " + l.Describe();
        ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
        ExpectMember(m, l, RunReference(&zelva::kernel::DepthwiseReference, l),
                     RunReference(&zelva::kernel::DepthwiseReference, l, true), what);
        if (::testing::Test::HasFailure()) return;
        (l.OutH() % 2 ? odd_h : even_h) = true;
        (l.OutW() % 2 ? odd_w : even_w) = true;
      }
    }
    // The stride-2 cores take two rows and columns a round: both the full rounds and the odd tails ran.
    EXPECT_TRUE(odd_h && even_h && odd_w && even_w) << m.name;
  }
}

// The reference reads any kernel, stride and dilation: held against the general 2D convolution on layers no
// member takes, so that any geometry of a member finds it sound.
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

// Every row refuses what breaks a clause of its rule. Planar rows want in and out equal to groups; blocked
// rows test multiples of their block alone, and Config reports a layer that is not one kernel per channel.
TEST(DepthwiseFamily, RefusalsFollowTheRule) {
  ExpectRefusalsFollowTheRule(DepthwiseMembers());
  std::mt19937 rng(5);
  auto ctx = MakeTestContext();
  for (const Member& m : DepthwiseMembers()) {
    const uint32_t lanes = BlockOf(m);
    if (lanes == 1) continue;
    const Layer base = DepthwiseLayer(m, 2 * lanes, 9, 9, true, rng);
    auto off = base.Info();
    off->in_channels = off->out_channels = off->groups = static_cast<uint16_t>(lanes + 2);
    ExpectRefused(*m.make(), off, ctx, "channels off the block");
    auto grouped = base.Info();
    grouped->groups = static_cast<uint16_t>(lanes);
    EXPECT_EQ(m.make()->CheckSupport(grouped, nullptr), 0) << m.name;
    EXPECT_THROW(m.make()->Config(grouped, nullptr, nullptr, ctx), std::runtime_error) << m.name;
  }
}

TEST(DepthwiseFamily, TensorChecksAndReportedMisuse) {
  ExpectTensorChecksAndReportedMisuse(DepthwiseMembers(), [](const Member& m, std::mt19937& rng) {
    return BlockOf(m) == 1 ? RandomLayerOf(m, rng) : DepthwiseLayer(m, 2 * BlockOf(m), 9, 9, true, rng);
  });
}

// The reference against torch on every case, every row that accepts a case against the reference; and every
// row runs at least one case.
TEST(DepthwiseFamily, ReferenceAndMembersMatchTorchFixtures) {
  std::set<std::string> ran;
  for (const char* file : {"depthwise_fixture.txt", "conv2d_fixture.txt"}) {
    const std::set<std::string> in_file = ExpectFixtures(
        DepthwiseMembers(), &zelva::kernel::DepthwiseReference,
        [](const Layer& l) { return l.groups == l.in && l.groups == l.out; }, file, true);
    ran.insert(in_file.begin(), in_file.end());
  }
  MemberCoverage coverage;
  for (const std::string& r : ran) coverage.Ran(r.substr(r.rfind(' ') + 1));
  coverage.ExpectEachRan(DepthwiseMembers());
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
