// The upsampling family: every row of its list against the plain reference on random layers in the modes it
// implements (integer, fractional and per-axis factors, output sizes, align_corner both ways, odd sizes and
// widths around the vector widths), the reference and every row against torch.nn.functional.interpolate
// (tests/data/upsampling_fixture.txt, tools/gen_upsampling_fixture.py), and the refusals: modes a row does
// not implement, a mode code without a name, an axis with neither a size nor a positive factor. Blocked rows
// get their input blocked and their output unblocked here, by index.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <set>

#include "support/kernel_tester.h"
#include "support/log_capture.h"
#include "zelva/src/kernel/family/upsampling/members.h"

namespace zvtest {
namespace {

using namespace zelva;
using kernel::UpsampleModes;
using kernel::UpsampleRule;

using Member = RuledMember<UpsampleRule>;

std::vector<Member> Members() {
  return ZV_RULED_MEMBERS(UpsampleRule, ZV_UPSAMPLING_MEMBERS);
}
uint32_t Lanes(const Member& m) {
  return LanesOf(m.rule->layout);
}
std::vector<uint16_t> Modes(const Member& m) {
  return m.rule->modes == UpsampleModes::kAll       ? std::vector<uint16_t>{0, 1, 2}
         : m.rule->modes == UpsampleModes::kNearest ? std::vector<uint16_t>{0}
                                                    : std::vector<uint16_t>{1};
}

struct Layer {
  uint32_t c = 1, h = 1, w = 1;
  uint16_t mode = 0;
  bool align = false;
  float fy = 2.0f, fx = 2.0f, size_h = 0.0f, size_w = 0.0f;
  std::vector<float> input;

  bool Aligned() const { return align && mode != 0; }
  kernel::UpsampleAxis Y() const { return kernel::MakeUpsampleAxis(h, fy, size_h, Aligned()); }
  kernel::UpsampleAxis X() const { return kernel::MakeUpsampleAxis(w, fx, size_w, Aligned()); }
  std::shared_ptr<runtime::Upsample2dInfo> Info() const {
    auto i = std::make_shared<runtime::Upsample2dInfo>();
    i->id = "up";
    i->unsample_type = mode;
    i->align_corner = align;
    i->scale_factor_y = fy;
    i->scale_factor_x = fx;
    i->scale_height = size_h;
    i->scale_width = size_w;
    return i;
  }
  std::string Describe() const {
    char text[160];
    std::snprintf(text, sizeof(text), "c %u %ux%u mode %u%s factors %g,%g sizes %g,%g", c, h, w, mode,
                  align ? " align" : "", fy, fx, size_h, size_w);
    return text;
  }
};

std::vector<float> Reference(const Layer& l) {
  const kernel::UpsampleAxis y = l.Y(), x = l.X();
  std::vector<float> out(static_cast<size_t>(l.c) * y.out * x.out);
  kernel::UpsampleReference(l.input.data(), out.data(), l.c, y, x, static_cast<kernel::UpsampleMode>(l.mode),
                            l.Aligned());
  return out;
}

std::vector<float> RunMember(const Member& m, const Layer& l) {
  return RunOnMap(m.make(), l.Info(), l.input, l.c, l.h, l.w, m.rule->layout, m.rule->layout,
                  {l.c, l.Y().out, l.X().out});
}

TEST(UpsamplingFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(29);
  const float factors[] = {1.0f, 2.0f, 3.0f, 1.5f, 2.5f, 0.5f};
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    int round = 0;
    for (const uint16_t mode : Modes(m)) {
      for (const uint32_t w : {1u, 3u, 4u, 7u, 9u}) {
        for (const bool align : {false, true}) {
          Layer l;
          l.mode = mode;
          l.align = align;
          l.c = Lanes(m) * (1 + rng() % 3) + (Lanes(m) == 1 ? rng() % 3 : 0);
          l.h = 1 + rng() % 6;
          l.w = w;
          l.fy = factors[rng() % 6];
          l.fx = factors[rng() % 6];
          if (round++ % 4 == 3) {  // the size given instead of the factors
            l.size_h = static_cast<float>(1 + rng() % 12);
            l.size_w = static_cast<float>(1 + rng() % 20);
          }
          if (l.Y().out == 0) l.fy = 2.0f;
          if (l.X().out == 0) l.fx = 2.0f;
          l.input = RandomFloats(static_cast<size_t>(l.c) * l.h * l.w, rng());
          const std::string what = m.name + " " + l.Describe();
          ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
          ExpectAccuracy(RunMember(m, l), Reference(l), m.accuracy, what);
          if (::testing::Test::HasFailure()) return;
        }
      }
    }
  }
}

TEST(UpsamplingFamily, ReferenceAndMembersMatchTorchFixtures) {
  MemberCoverage coverage;
  ForEachFixtureCase("upsampling_fixture.txt", [&](const std::string& name, std::istream& file) {
    const std::vector<float> f = ReadFixtureRow(file);
    ASSERT_EQ(f.size(), 9u) << name;
    Layer l;
    l.c = static_cast<uint32_t>(f[0]);
    l.h = static_cast<uint32_t>(f[1]);
    l.w = static_cast<uint32_t>(f[2]);
    l.mode = static_cast<uint16_t>(f[3]);
    l.align = f[4] != 0.0f;
    l.fy = f[5];
    l.fx = f[6];
    l.size_h = f[7];
    l.size_w = f[8];
    l.input = ReadFixtureRow(file);
    const std::vector<float> torch = ReadFixtureRow(file);
    const std::vector<float> want = Reference(l);
    ExpectAccuracy(want, torch, kernel::Within(2e-6f, 2e-6f), name + " by the reference");
    for (const Member& m : Members()) {
      if (!CanRun(m.isa) || l.c % Lanes(m) != 0 || m.make()->CheckSupport(l.Info(), nullptr) != 0) continue;
      ExpectAccuracy(RunMember(m, l), want, m.accuracy, name + " by " + m.name);
      coverage.Ran(m.name);
    }
  });
  coverage.ExpectEachRan(Members());
}

TEST(UpsamplingFamily, RefusalsAndReportedMisuse) {
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    Layer base;
    base.mode = Modes(m)[0];
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    ExpectCommonRefusals(*kernel, base.Info(), std::make_shared<runtime::Conv2dInfo>(), ctx);
    auto refused = [&](const char* what, const std::function<void(runtime::Upsample2dInfo&)>& change) {
      auto info = base.Info();
      change(*info);
      ExpectRefused(*kernel, info, ctx, what);
    };
    for (uint16_t mode = 0; mode < 3; ++mode) {
      const auto modes = Modes(m);
      if (std::find(modes.begin(), modes.end(), mode) == modes.end())
        refused("a mode it does not implement",
                [mode](runtime::Upsample2dInfo& i) { i.unsample_type = mode; });
    }
    {
      LogCapture capture;
      refused("mode code 3", [](runtime::Upsample2dInfo& i) { i.unsample_type = 3; });
      EXPECT_NE(capture.Last().find("Invalid upsample2d type"), std::string::npos) << capture.Last();
    }
    refused("factor 0", [](runtime::Upsample2dInfo& i) { i.scale_factor_x = 0.0f; });
    refused("negative factor", [](runtime::Upsample2dInfo& i) { i.scale_factor_y = -2.0f; });
    refused("factor NaN", [](runtime::Upsample2dInfo& i) { i.scale_factor_y = std::nanf(""); });
    auto sized = base.Info();  // a size stands in for its axis's factor
    sized->scale_factor_y = sized->scale_factor_x = 0.0f;
    sized->scale_height = 5.0f;
    sized->scale_width = 3.0f;
    EXPECT_EQ(kernel->CheckSupport(sized, nullptr), 0);

    ASSERT_TRUE(kernel->Config(base.Info(), nullptr, nullptr, ctx));
    const uint32_t lanes = Lanes(m);
    auto tensor = [&](uint32_t layout, uint32_t last = 0) {
      return lanes == 1 ? MakeTensor(ctx, {2, 3, 3}, layout)
                        : MakeTensor(ctx, {2, 3, 3, last ? last : lanes}, layout);
    };
    EXPECT_EQ(kernel->CheckInputs({tensor(m.rule->layout)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(runtime::Layout::HWC)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(m.rule->layout), tensor(m.rule->layout)}), -2);
    if (lanes != 1) {
      EXPECT_EQ(kernel->CheckInputs({tensor(m.rule->layout, 12 - lanes)}), -2);
    }
    EXPECT_EQ(kernel->CheckOutputs({tensor(runtime::Layout::HWC)}), -2);
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({tensor(runtime::Layout::HWC)}, outputs, ctx), std::runtime_error);
    EXPECT_THROW(m.make()->Forward({tensor(m.rule->layout)}, outputs, ctx),
                 std::runtime_error);  // not configured
    auto shrink = base.Info();         // a factor that leaves nothing of a 3 x 3 input
    shrink->scale_factor_x = 0.25f;
    auto small = m.make();
    ASSERT_TRUE(small->Config(shrink, nullptr, nullptr, ctx));
    EXPECT_THROW(small->Forward({tensor(m.rule->layout)}, outputs, ctx), std::runtime_error);
    auto huge = base.Info();  // sizes whose output would not fit a tensor's 32-bit byte count
    huge->scale_height = huge->scale_width = 60000.0f;
    auto large = m.make();
    ASSERT_TRUE(large->Config(huge, nullptr, nullptr, ctx));
    EXPECT_THROW(large->Forward({tensor(m.rule->layout)}, outputs, ctx), std::runtime_error);
  }
}

}  // namespace
}  // namespace zvtest
