// The transposed convolution family: every row of its list against the plain reference on random layers the
// row accepts (odd sizes, strides 1 to 3, positive, negative and asymmetric crops, bias on and off, channel
// counts at one to three blocks), the reference and every row against torch.nn.ConvTranspose2d
// (tests/data/convtranspose_fixture.txt, tools/gen_convtranspose_fixture.py), and the refusals of each row's
// rule. Blocked rows get their input blocked and their output unblocked here, by index.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>

#include "support/kernel_tester.h"
#include "zelva/src/kernel/family/convtranspose/members.h"

namespace zvtest {
namespace {

using namespace zelva;
using kernel::ConvTransposeRule;

using Member = RuledMember<ConvTransposeRule>;

std::vector<Member> Members() {
  return ZV_RULED_MEMBERS(ConvTransposeRule, ZV_CONVTRANSPOSE_MEMBERS);
}
uint32_t Lanes(const Member& m) {
  return LanesOf(m.rule->layout);
}

struct Layer {
  uint32_t in = 1, out = 1, h = 1, w = 1, ky = 1, kx = 1, sy = 1, sx = 1, dy = 1, dx = 1, g = 1;
  int32_t pl = 0, pr = 0, pt = 0, pb = 0;
  bool bias = false;
  std::vector<float> weight, bias_values, input;

  uint32_t OutH() const { return (h - 1) * sy + dy * (ky - 1) + 1 - pt - pb; }
  uint32_t OutW() const { return (w - 1) * sx + dx * (kx - 1) + 1 - pl - pr; }
  std::shared_ptr<runtime::ConvTranspose2dInfo> Info() const {
    auto i = std::make_shared<runtime::ConvTranspose2dInfo>();
    i->id = "deconv";
    i->in_channels = static_cast<uint16_t>(in);
    i->out_channels = static_cast<uint16_t>(out);
    i->kernel_y = static_cast<uint16_t>(ky);
    i->kernel_x = static_cast<uint16_t>(kx);
    i->stride_y = static_cast<uint16_t>(sy);
    i->stride_x = static_cast<uint16_t>(sx);
    i->dilation_y = static_cast<uint16_t>(dy);
    i->dilation_x = static_cast<uint16_t>(dx);
    i->groups = static_cast<uint16_t>(g);
    i->padding_l = static_cast<int16_t>(pl);
    i->padding_r = static_cast<int16_t>(pr);
    i->padding_t = static_cast<int16_t>(pt);
    i->padding_b = static_cast<int16_t>(pb);
    i->if_bias = bias;
    i->weight = WeightText(weight);
    i->bias = bias ? WeightText(bias_values) : std::string();
    return i;
  }
  std::string Describe() const {
    char text[200];
    std::snprintf(text, sizeof(text), "in %u out %u %ux%u k%ux%u s%ux%u d%ux%u g%u crop l%d r%d t%d b%d%s",
                  in, out, h, w, ky, kx, sy, sx, dy, dx, g, pl, pr, pt, pb, bias ? " bias" : "");
    return text;
  }
};

std::vector<float> Reference(const Layer& l) {
  std::vector<float> out(static_cast<size_t>(l.out) * l.OutH() * l.OutW());
  kernel::ConvTransposeReference({l.input.data(), l.h, l.w, out.data(), l.OutH(), l.OutW(), l.weight.data(),
                                  l.bias ? l.bias_values.data() : nullptr, l.in, l.out, l.g, l.ky, l.kx, l.sy,
                                  l.sx, l.dy, l.dx, l.pt, l.pl});
  return out;
}

std::vector<float> RunMember(const Member& m, const Layer& l) {
  return RunOnMap(m.make(), l.Info(), l.input, l.in, l.h, l.w, m.rule->layout, m.rule->layout,
                  {l.out, l.OutH(), l.OutW()});
}

uint32_t Pick(uint32_t rule, uint32_t any) {
  return rule == kernel::kConvTransposeNonZero ? any : rule;
}

Layer RandomLayer(const Member& m, uint32_t h, uint32_t w, std::mt19937& rng) {
  const ConvTransposeRule& r = *m.rule;
  Layer l;
  l.ky = Pick(r.kernel, 1 + rng() % 4);
  l.kx = Pick(r.kernel, 1 + rng() % 4);
  l.dy = Pick(r.dilation, 1 + rng() % 2);
  l.dx = Pick(r.dilation, 1 + rng() % 2);
  l.g = Pick(r.groups, 1 + rng() % 3);
  l.sy = 1 + rng() % 3;
  l.sx = 1 + rng() % 3;
  const uint32_t unit = Lanes(m) == 1 ? l.g : Lanes(m);
  l.in = unit * (1 + rng() % 3);
  l.out = unit * (1 + rng() % 3);
  if (Lanes(m) == 1 && l.g == 1) l.out += rng() % 4;  // planar rows: out off the vector width
  l.h = h;
  l.w = w;
  // Crops of -1 to 2 on each side, kept to leave an output.
  l.pl = static_cast<int32_t>(rng() % 4) - 1;
  l.pr = static_cast<int32_t>(rng() % 4) - 1;
  l.pt = static_cast<int32_t>(rng() % 4) - 1;
  l.pb = static_cast<int32_t>(rng() % 4) - 1;
  while (static_cast<int32_t>((l.h - 1) * l.sy + l.dy * (l.ky - 1) + 1) - l.pt - l.pb < 1) ++l.h;
  while (static_cast<int32_t>((l.w - 1) * l.sx + l.dx * (l.kx - 1) + 1) - l.pl - l.pr < 1) ++l.w;
  l.bias = rng() % 2 == 0;
  l.weight = RandomFloats(static_cast<size_t>(l.in) * (l.out / l.g) * l.ky * l.kx, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(l.out, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(static_cast<size_t>(l.in) * l.h * l.w, rng(), -1.0f, 1.0f);
  return l;
}

TEST(ConvTransposeFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(23);
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    for (const uint32_t h : {1u, 4u, 7u}) {
      for (const uint32_t w : {1u, 5u, 9u}) {
        const Layer l = RandomLayer(m, h, w, rng);
        const std::string what = m.name + " " + l.Describe();
        ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
        ExpectAccuracy(RunMember(m, l), Reference(l), m.accuracy, what);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }
}

TEST(ConvTransposeFamily, ReferenceAndMembersMatchTorchFixtures) {
  MemberCoverage coverage;
  ForEachFixtureCase("convtranspose_fixture.txt", [&](const std::string& name, std::istream& file) {
    const std::vector<float> f = ReadFixtureRow(file);
    ASSERT_EQ(f.size(), 16u) << name;
    Layer l;
    uint32_t* fields[] = {&l.in, &l.out, &l.h, &l.w, &l.ky, &l.kx, &l.sy, &l.sx, &l.dy, &l.dx, &l.g};
    for (int k = 0; k < 11; ++k) *fields[k] = static_cast<uint32_t>(f[k]);
    int32_t* pads[] = {&l.pl, &l.pr, &l.pt, &l.pb};
    for (int k = 0; k < 4; ++k) *pads[k] = static_cast<int32_t>(f[11 + k]);
    l.bias = f[15] != 0.0f;
    l.weight = ReadFixtureRow(file);
    l.bias_values = ReadFixtureRow(file);
    l.input = ReadFixtureRow(file);
    const std::vector<float> torch = ReadFixtureRow(file);
    const std::vector<float> want = Reference(l);
    ExpectAccuracy(want, torch, kernel::Within(1e-5f, 1e-5f), name + " by the reference");
    for (const Member& m : Members()) {
      if (!CanRun(m.isa) || m.make()->CheckSupport(l.Info(), nullptr) != 0) continue;
      ExpectAccuracy(RunMember(m, l), want, m.accuracy, name + " by " + m.name);
      coverage.Ran(m.name);
    }
  });
  coverage.ExpectEachRan(Members());
}

// Each row refuses the kernel, dilation, groups and channel blocks its name does not take (never a stride but
// 0), an InferenceParam and another kind of layer; misuse after an accepted Config is reported.
TEST(ConvTransposeFamily, RefusalsAndReportedMisuse) {
  std::mt19937 rng(7);
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    const Layer base = RandomLayer(m, 5, 5, rng);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    ExpectCommonRefusals(*kernel, base.Info(), std::make_shared<runtime::Conv2dInfo>(), ctx);
    auto refused = [&](const char* what, const std::function<void(runtime::ConvTranspose2dInfo&)>& change) {
      auto info = base.Info();
      change(*info);
      ExpectRefused(*kernel, info, ctx, what);
    };
    refused("groups 0", [](runtime::ConvTranspose2dInfo& i) { i.groups = 0; });
    refused("stride 0", [](runtime::ConvTranspose2dInfo& i) { i.stride_x = 0; });
    refused("kernel 0", [](runtime::ConvTranspose2dInfo& i) { i.kernel_y = 0; });
    refused("channels off the groups", [](runtime::ConvTranspose2dInfo& i) {
      i.groups = 3;
      i.in_channels = 8;
    });
    auto strided = base.Info();
    strided->stride_y = 4;
    strided->stride_x = 5;
    EXPECT_EQ(kernel->CheckSupport(strided, nullptr), 0) << "any stride";
    if (m.rule->kernel != kernel::kConvTransposeNonZero) {
      refused("kernel_y", [](runtime::ConvTranspose2dInfo& i) { i.kernel_y = 2; });
      refused("kernel_x", [](runtime::ConvTranspose2dInfo& i) { i.kernel_x = 5; });
      refused("dilation", [](runtime::ConvTranspose2dInfo& i) { i.dilation_y = 2; });
      refused("groups",
              [](runtime::ConvTranspose2dInfo& i) { i.groups = i.in_channels = i.out_channels = 8; });
    }
    if (Lanes(m) != 1) {
      const uint16_t off = static_cast<uint16_t>(Lanes(m) + 2);
      refused("in off the block", [off](runtime::ConvTranspose2dInfo& i) { i.in_channels = off; });
      refused("out off the block", [off](runtime::ConvTranspose2dInfo& i) { i.out_channels = off; });
    }
    ASSERT_TRUE(kernel->Config(base.Info(), nullptr, nullptr, ctx));
    const uint32_t lanes = Lanes(m);
    auto input = [&](uint32_t channels, uint32_t layout) {
      return lanes == 1 ? MakeTensor(ctx, {channels, 3, 3}, layout)
                        : MakeTensor(ctx, {channels / lanes, 3, 3, lanes}, layout);
    };
    EXPECT_EQ(kernel->CheckInputs({input(base.in, m.rule->layout)}), 0);
    EXPECT_EQ(kernel->CheckInputs({input(base.in + lanes, m.rule->layout)}), -2);
    EXPECT_EQ(kernel->CheckInputs({input(base.in, runtime::Layout::HWC)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({input(base.out, runtime::Layout::HWC)}), -2);
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({input(base.in + lanes, m.rule->layout)}, outputs, ctx), std::runtime_error);
    EXPECT_THROW(m.make()->Forward({input(base.in, m.rule->layout)}, outputs, ctx), std::runtime_error);
    auto cropped = base.Info();  // a crop that leaves nothing
    cropped->padding_t = 40;
    auto small = m.make();
    ASSERT_TRUE(small->Config(cropped, nullptr, nullptr, ctx));
    EXPECT_THROW(small->Forward({input(base.in, m.rule->layout)}, outputs, ctx), std::runtime_error);
    auto extended = base.Info();  // zeros on every side past what a tensor's 32-bit byte count holds
    extended->padding_l = extended->padding_r = extended->padding_t = extended->padding_b = -30000;
    auto large = m.make();
    ASSERT_TRUE(large->Config(extended, nullptr, nullptr, ctx));
    EXPECT_THROW(large->Forward({input(base.in, m.rule->layout)}, outputs, ctx), std::runtime_error);
    auto shorter = base.Info();
    shorter->weight = WeightText(std::vector<float>(base.weight.size() - 1, 0.0f));
    EXPECT_THROW(m.make()->Config(shorter, nullptr, nullptr, ctx), std::runtime_error);
  }
}

}  // namespace
}  // namespace zvtest
