// The 2D convolution family, planar and blocked rows: every row of its list against the plain reference,
// which is itself held against torch.nn.Conv2d (planar_conv_tester.h); the cases each member was made for in
// the torch fixtures; Winograd against the direct 3x3 on odd sizes; layers each fixed-geometry member
// refuses, and channels outside whole blocks.
#include <gtest/gtest.h>

#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/conv2d/planar_conv_tester.h"
#include "zelva/src/kernel/family/conv2d/reference.h"

namespace zvtest {
namespace conv {
namespace {

std::vector<Member> Conv2dMembers() {
  std::vector<Member> members;
  ZV_CONV2D_MEMBERS(ZV_TEST_CONV_MEMBER)
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
  const bool avx = CanRun(zelva::kernel::Isa::kAVX);
  const std::pair<const char*, bool> expected[] = {
      {"general Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", false},
      {"planar_3x3_s1 Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"planar_3x3_s1 Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1", true},
      {"planar_3x3_s1 Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1", false},
      {"planar_3x3_s1 Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", false},
      {"planar_3x3_s1_grouped Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"planar_3x3_s1_grouped Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2", false},
      {"planar_3x3_s2 Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"planar_3x1 Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"planar_3x1 Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2", false},
      {"planar_1x3 Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"planar_1x1_s2 Conv2d_K1x1_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1", false},
      {"first_3x3 Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1", false},
      {"first_3x3 Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1", true},
      {"first_3x3 Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1", true},
      {"first_7x7_s2 Conv2d_K7x7_S2x2_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1", true},
      {"last_3x3 Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1", true},
  };
  for (const auto& [name, needs_avx] : expected) {
    if (!needs_avx || avx) {
      EXPECT_EQ(ran.count(name), 1u) << name;
    }
  }
  // Each blocked row the processor runs meets a case.
  for (const Member& m : Conv2dMembers()) {
    if (BlockOf(m) == 1 || !CanRun(m.isa)) continue;
    EXPECT_TRUE(std::any_of(ran.begin(), ran.end(),
                            [&](const std::string& r) {
                              return r.size() > m.name.size() &&
                                     r.compare(r.size() - m.name.size(), m.name.size(), m.name) == 0;
                            }))
        << m.name << " met no fixture";
  }
}

const Member& Find(const std::vector<Member>& members, const std::string& name) {
  for (const Member& m : members) {
    if (m.name == name) return m;
  }
  ADD_FAILURE() << "no member " << name;
  return members.front();
}

// F(2x2, 3x3) against the direct 3x3 member, odd and even output sizes, one-pixel rows and columns: the
// largest difference over the magnitude of the terms (the sum of their absolute values) measures about
// 5e-7; held to 2e-6 + 2e-6 * magnitude, the rows' accuracy.
TEST(Conv2dPlanarMembers, WinogradAgreesWithTheDirectConvolution) {
  const std::vector<Member> members = Conv2dMembers();
  const Member& direct = Find(members, "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1");
  std::mt19937 rng(17);
  const uint32_t sizes[][4] = {{1, 1, 1, 1},   {3, 5, 1, 9},   {7, 4, 9, 1},  {16, 16, 7, 8},
                               {5, 9, 13, 17}, {2, 3, 56, 30}, {33, 4, 3, 71}};
  for (const char* name : {"Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1",
                           "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2"}) {
    const Member& winograd = Find(members, name);
    double worst = 0.0;
    for (const auto& size : sizes) {
      Layer l;
      l.in = size[0];
      l.out = size[1];
      l.h = size[2];
      l.w = size[3];
      l.ky = l.kx = 3;
      l.pl = l.pr = l.pt = l.pb = 1;
      l.bias = l.h % 2 == 1;
      l.weight = RandomFloats(size_t{l.out} * l.in * 9, rng(), -1.0f, 1.0f);
      l.bias_values = RandomFloats(l.out, rng(), -1.0f, 1.0f);
      l.input = RandomFloats(size_t{l.in} * l.h * l.w, rng(), -1.0f, 1.0f);
      auto ctx = MakeTestContext();
      auto run = [&](const Member& m) {
        auto kernel = m.make();
        const auto out = RunKernel(*kernel, l.Info(),
                                   {MakeTensor(ctx, {l.in, l.h, l.w}, runtime::Layout::CHW, l.input)}, ctx);
        EXPECT_EQ(out.size(), 1u);
        return out.empty() ? std::vector<float>() : Values(out[0]);
      };
      const std::vector<float> want = run(direct);
      const std::vector<float> magnitude = RunReference(&zelva::kernel::Conv2dReference, l, true);
      ExpectMember(winograd, l, want, magnitude, std::string(name) + " " + l.Describe());
      const std::vector<float> got = run(winograd);
      ASSERT_EQ(got.size(), want.size());
      for (size_t i = 0; i < got.size(); ++i)
        worst = std::max(worst, std::fabs(double{got[i]} - want[i]) / magnitude[i]);
    }
    EXPECT_LT(worst, 2e-6) << name;
    GTEST_LOG_(INFO) << name << ": largest difference from the direct 3x3 over the magnitude " << worst;
  }
}

// Beyond the rule-derived refusals: 12 outputs are three blocks of 4, not whole blocks of 8; and the planar
// members check no group count but zero, so a grouped layer passes.
TEST(Conv2dPlanarMembers, OutputsInHalfBlocksRefusedAndGroupsPass) {
  const std::vector<Member> members = Conv2dMembers();
  Layer l;
  l.in = 3;
  l.out = 12;
  l.h = l.w = 6;
  l.ky = l.kx = 3;
  l.pl = l.pr = l.pt = l.pb = 1;
  l.weight.assign(size_t{l.out} * l.in * 9, 0.5f);
  EXPECT_EQ(Find(members, "Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1")
                .make()
                ->CheckSupport(l.Info(), nullptr),
            -1);
  l.in = l.out = 8;
  l.groups = 2;
  l.weight.assign(size_t{l.out} * (l.in / 2) * 9, 0.5f);
  EXPECT_EQ(
      Find(members, "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1").make()->CheckSupport(l.Info(), nullptr), 0);
}

// Channel counts that are not whole blocks are refused at load: by CheckSupport where the rule tests them,
// by a reported failure of Config for the any-kernel rows of SSE, whose rule does not; so are groups of part
// of a block.
TEST(Conv2dBlocked, ChannelsOutsideWholeBlocksAreRefused) {
  std::mt19937 rng(3);
  auto ctx = MakeTestContext();
  for (const Member& m : Conv2dMembers()) {
    const uint32_t b = BlockOf(m);
    if (b == 1) continue;
    SCOPED_TRACE(m.name);
    Layer l = RandomLayerOf(m, rng);
    l.groups = 1;
    l.in += b / 2;
    l.weight.assign(size_t(l.out) * l.in * l.ky * l.kx, 0.5f);
    auto kernel = m.make();
    if (m.rule->channels == ConvChannels::kNotTested) {
      EXPECT_THROW(kernel->Config(l.Info(), nullptr, nullptr, ctx), std::runtime_error);
    } else {
      EXPECT_EQ(kernel->CheckSupport(l.Info(), nullptr), -1);
      EXPECT_FALSE(kernel->Config(l.Info(), nullptr, nullptr, ctx));
    }
    if (m.rule->groups != ConvGroups::kExactlyOne) {
      Layer grouped = l;  // two groups of half a block each
      grouped.in = grouped.out = b;
      grouped.groups = 2;
      grouped.weight.assign(size_t(b) * (b / 2) * l.ky * l.kx, 0.5f);
      grouped.bias_values.assign(b, 0.5f);
      EXPECT_THROW(m.make()->Config(grouped.Info(), nullptr, nullptr, ctx), std::runtime_error);
    }
  }
  // 12 channels: three blocks of 4, not whole blocks of 8; padding 0 is for the C4HW4 3x3 only.
  Layer twelve;
  twelve.in = twelve.out = 12;
  twelve.ky = twelve.kx = 3;
  twelve.pl = twelve.pr = twelve.pt = twelve.pb = 1;
  EXPECT_EQ(zelva::kernel::Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1().CheckSupport(twelve.Info(), nullptr),
            -1);
  EXPECT_EQ(zelva::kernel::Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1().CheckSupport(twelve.Info(), nullptr),
            0);
  twelve.in = twelve.out = 16;
  twelve.pl = twelve.pr = twelve.pt = twelve.pb = 0;
  EXPECT_EQ(zelva::kernel::Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1().CheckSupport(twelve.Info(), nullptr),
            -1);
  EXPECT_EQ(zelva::kernel::Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1().CheckSupport(twelve.Info(), nullptr),
            0);
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
