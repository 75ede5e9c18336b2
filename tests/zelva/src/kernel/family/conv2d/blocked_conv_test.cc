// The channel-blocked (C4HW4, C8HW8) rows of the 2D convolution list against the plain reference: the tester
// blocks a planar input, runs the member as the net does and unblocks its output. Random layers of each
// row's rule (odd sizes, rows of one pixel, widths 1, 7, 8, 9, one to three channel blocks, groups, bias on
// and off), the torch.nn.Conv2d fixtures, refusals and tensor checks.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/kernel/family/conv2d/planar_conv_tester.h"
#include "zelva/src/kernel/family/conv2d/reference.h"

namespace zvtest {
namespace conv {
namespace {

using zelva::kernel::ConvLayout;

struct BlockedMember {
  Member member;
  uint32_t block;
};

#define ZV_TEST_BLOCKED_MEMBER(group, isa, cls, accuracy, layout, ...)                            \
  members.push_back(                                                                              \
      {{#cls, ::zelva::kernel::Isa::isa, ::zelva::kernel::accuracy, &::zelva::kernel::cls##_rule, \
        [] { return std::shared_ptr<runtime::IKernel>(new ::zelva::kernel::cls()); }},            \
       ConvLayout::k##layout == ConvLayout::kC4HW4 ? 4u : 8u});

std::vector<BlockedMember> BlockedMembers() {
  std::vector<BlockedMember> members;
  ZV_CONV2D_BLOCKED_MEMBERS(ZV_TEST_BLOCKED_MEMBER)
  return members;
}

// [c, h, w] planar <-> [c / b, h, w, b] blocked.
std::vector<float> Blocked(const std::vector<float>& planar, uint32_t c, size_t plane, uint32_t b) {
  std::vector<float> out(planar.size());
  for (uint32_t k = 0; k < c; ++k)
    for (size_t p = 0; p < plane; ++p) out[((k / b) * plane + p) * b + k % b] = planar[k * plane + p];
  return out;
}
std::vector<float> Planar(const std::vector<float>& blocked, uint32_t c, size_t plane, uint32_t b) {
  std::vector<float> out(blocked.size());
  for (uint32_t k = 0; k < c; ++k)
    for (size_t p = 0; p < plane; ++p) out[k * plane + p] = blocked[((k / b) * plane + p) * b + k % b];
  return out;
}

// A random layer of the row's rule with whole channel blocks per group.
Layer BlockedLayer(const BlockedMember& bm, std::mt19937& rng) {
  const zelva::kernel::Conv2dRule& r = *bm.member.rule;
  Layer l = RandomLayer(r, rng);
  const uint32_t b = bm.block;
  l.groups = r.groups == ConvGroups::kExactlyOne || rng() % 3 != 0 ? 1 : 2;
  l.in = l.groups * b * (1 + rng() % 3);
  l.out = l.groups * b * (1 + rng() % 3);
  const uint32_t widths[] = {1, 7, 8, 9, static_cast<uint32_t>(1 + rng() % 40)};
  const uint32_t min_h = std::max<int64_t>(1, int64_t(l.dy) * (l.ky - 1) + 1 - l.pt - l.pb);
  const uint32_t min_w = std::max<int64_t>(1, int64_t(l.dx) * (l.kx - 1) + 1 - l.pl - l.pr);
  l.w = std::max(min_w, widths[rng() % 5]);
  l.h = rng() % 4 == 0 ? min_h : min_h + rng() % 9;
  l.weight = RandomFloats(size_t(l.out) * (l.in / l.groups) * l.ky * l.kx, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(l.out, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(size_t(l.in) * l.h * l.w, rng(), -1.0f, 1.0f);
  return l;
}

// Runs the member on the blocked input and holds shape, layout, GetOutputShapes and values to `want`.
void ExpectBlocked(const BlockedMember& bm, const Layer& l, const std::vector<float>& want,
                   const std::vector<float>& magnitude, const std::string& what) {
  const uint32_t b = bm.block;
  const uint32_t layout = b == 4 ? runtime::Layout::C4HW4 : runtime::Layout::C8HW8;
  auto ctx = MakeTestContext();
  auto kernel = bm.member.make();
  const std::vector<uint32_t> in_dims = {l.in / b, l.h, l.w, b};
  const auto outputs =
      RunKernel(*kernel, l.Info(),
                {MakeTensor(ctx, in_dims, layout, Blocked(l.input, l.in, size_t(l.h) * l.w, b))}, ctx);
  ASSERT_EQ(outputs.size(), 1u) << what;
  const runtime::TensorShape& s = outputs[0]->shape;
  ASSERT_EQ(s.dims, (std::vector<uint32_t>{l.out / b, l.OutH(), l.OutW(), b})) << what;
  EXPECT_EQ(s.layout, layout) << what;
  EXPECT_EQ(
      kernel->GetOutputShapes({runtime::TensorShape(in_dims, runtime::DataType::FLOAT32, layout)})[0].dims,
      s.dims)
      << what;
  const size_t plane = size_t(l.OutH()) * l.OutW();
  ExpectAccuracy(Planar(Values(outputs[0]), l.out, plane, b), want, bm.member.accuracy, what, &magnitude);
}

TEST(Conv2dBlocked, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(23);
  for (const BlockedMember& bm : BlockedMembers()) {
    if (!CanRun(bm.member.isa)) {
      GTEST_LOG_(INFO) << "skipping " << bm.member.name << ": this processor lacks its instruction set";
      continue;
    }
    for (int round = 0; round < 24; ++round) {
      Layer l = BlockedLayer(bm, rng);
      l.bias = round % 2 == 0;
      const std::string what = bm.member.name + " " + l.Describe();
      ASSERT_EQ(bm.member.make()->CheckSupport(l.Info(), nullptr), 0) << what;
      ExpectBlocked(bm, l, RunReference(&zelva::kernel::Conv2dReference, l),
                    RunReference(&zelva::kernel::Conv2dReference, l, true), what);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(Conv2dBlocked, MembersMatchTorchFixtures) {
  std::set<std::string> ran;
  for (const FixtureCase& fc : ReadConvFixture()) {
    const std::vector<float> want = RunReference(&zelva::kernel::Conv2dReference, fc.layer);
    const std::vector<float> magnitude = RunReference(&zelva::kernel::Conv2dReference, fc.layer, true);
    ExpectAccuracy(want, fc.want, kAgainstTorch, fc.name + " by the reference", &magnitude);
    for (const BlockedMember& bm : BlockedMembers()) {
      const Layer& l = fc.layer;
      if (!CanRun(bm.member.isa) || l.in % (bm.block * l.groups) != 0 || l.out % (bm.block * l.groups) != 0 ||
          bm.member.make()->CheckSupport(l.Info(), nullptr) != 0)
        continue;
      ExpectBlocked(bm, l, want, magnitude, fc.name + " by " + bm.member.name);
      ran.insert(bm.member.name);
    }
  }
  for (const BlockedMember& bm : BlockedMembers()) {
    if (CanRun(bm.member.isa)) {
      EXPECT_EQ(ran.count(bm.member.name), 1u) << bm.member.name << " met no fixture";
    }
  }
}

// Channel counts that are not whole blocks are refused at load: by CheckSupport where the rule tests them,
// by a reported failure of Config for the any-kernel rows of SSE, whose rule does not.
TEST(Conv2dBlocked, ChannelsOutsideWholeBlocksAreRefused) {
  std::mt19937 rng(3);
  auto ctx = MakeTestContext();
  for (const BlockedMember& bm : BlockedMembers()) {
    SCOPED_TRACE(bm.member.name);
    Layer l = BlockedLayer(bm, rng);
    l.groups = 1;
    l.in += bm.block / 2;
    l.weight.assign(size_t(l.out) * l.in * l.ky * l.kx, 0.5f);
    auto kernel = bm.member.make();
    if (bm.member.rule->channels == ConvChannels::kNotTested) {
      EXPECT_THROW(kernel->Config(l.Info(), nullptr, nullptr, ctx), std::runtime_error);
    } else {
      EXPECT_EQ(kernel->CheckSupport(l.Info(), nullptr), -1);
      EXPECT_FALSE(kernel->Config(l.Info(), nullptr, nullptr, ctx));
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

// The tensor checks, and misuse reported instead of read past.
TEST(Conv2dBlocked, TensorChecksAndReportedMisuse) {
  using runtime::DataType;
  using runtime::Layout;
  std::mt19937 rng(9);
  auto ctx = MakeTestContext();
  auto tensor = [&](std::vector<uint32_t> dims, uint32_t layout, uint32_t type = DataType::FLOAT32) {
    std::shared_ptr<runtime::Tensor> t;
    ctx->GetDeviceCPU()->CreateTensor(t, runtime::TensorShape(std::move(dims), type, layout));
    return t;
  };
  for (const BlockedMember& bm : BlockedMembers()) {
    SCOPED_TRACE(bm.member.name);
    const uint32_t b = bm.block, own = b == 4 ? Layout::C4HW4 : Layout::C8HW8;
    const uint32_t other = b == 4 ? Layout::C8HW8 : Layout::C4HW4;
    const Layer l = BlockedLayer(bm, rng);
    auto kernel = bm.member.make();
    ASSERT_TRUE(kernel->Config(l.Info(), nullptr, nullptr, ctx));
    const std::vector<uint32_t> dims = {l.in / b, l.h, l.w, b};
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, own)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, own, DataType::FLOAT16)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, other)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor({l.in, l.h, l.w}, Layout::CHW)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor({l.in / b + 1, l.h, l.w, b}, own)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, own)}), 0);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, other)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, own, DataType::FLOAT16)}), -2);
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({tensor({l.in / b + 1, l.h, l.w, b}, own)}, outputs, ctx),
                 std::runtime_error);
    EXPECT_THROW(bm.member.make()->Forward({tensor(dims, own)}, outputs, ctx), std::runtime_error);
    if (l.groups == 1 && bm.member.rule->groups != ConvGroups::kExactlyOne) {
      Layer grouped = l;  // two groups of half a block's multiple each
      grouped.in = grouped.out = b;
      grouped.groups = 2;
      grouped.weight.assign(size_t(b) * (b / 2) * l.ky * l.kx, 0.5f);
      grouped.bias_values.assign(b, 0.5f);
      EXPECT_THROW(bm.member.make()->Config(grouped.Info(), nullptr, nullptr, ctx), std::runtime_error);
    }
  }
}

}  // namespace
}  // namespace conv
}  // namespace zvtest
