// The pixel shuffle family: the reference against torch.nn.PixelShuffle / PixelUnshuffle
// (tests/data/pixelshuffle_fixture.txt, tools/gen_pixelshuffle_fixture.py), then every row of the list
// against the reference bit for bit over every factor it runs and odd sizes (blocked rows through the layout
// family's element rule), the factors each row refuses, and the tensor checks.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/pixelshuffle/members.h"
#include "zelva/src/kernel/family/pixelshuffle/reference.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using runtime::Layout;
using zelva::kernel::PixelShuffleReference;

struct Member {
  std::string name;
  zelva::kernel::Isa isa;
  uint32_t layout;
  uint32_t factor;  // 0: any
  bool up, down;
  std::shared_ptr<runtime::IKernel> (*make)();
};

std::vector<Member> Members() {
  std::vector<Member> members;
#define ZV_TEST_PS_MEMBER(group, isa, cls, accuracy, layout, factor, up, down)               \
  members.push_back({#cls, zelva::kernel::Isa::isa, Layout::layout, factor, (up) != nullptr, \
                     (down) != nullptr,                                                      \
                     [] { return std::shared_ptr<runtime::IKernel>(new zelva::kernel::cls()); }});
  ZV_PIXELSHUFFLE_MEMBERS(ZV_TEST_PS_MEMBER)
#undef ZV_TEST_PS_MEMBER
  return members;
}

std::shared_ptr<runtime::PixelShuffleInfo> Info(float factor) {
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  info->upscale_factor = factor;
  return info;
}

float FactorOf(bool up, uint32_t r) {
  return up ? static_cast<float>(r) : 1.0f / static_cast<float>(r);
}

// Runs `m` on a planar c x h x w input (blocked for a blocked row) and returns the planar output.
std::vector<float> RunMember(const Member& m, float factor, const std::vector<float>& in, uint32_t c,
                             uint32_t h, uint32_t w, std::vector<uint32_t>* out_chw) {
  return RunOnMap(m.make(), Info(factor), in, c, h, w, m.layout, m.layout, {}, out_chw);
}

TEST(PixelShuffleFamily, ReferenceMatchesTorch) {
  ForEachFixtureCase("pixelshuffle_fixture.txt", [](const std::string& name, std::istream& file) {
    const std::vector<float> p = ReadFixtureRow(file), in = ReadFixtureRow(file), want = ReadFixtureRow(file);
    ASSERT_EQ(p.size(), 5u) << name;
    const bool up = p[0] != 0.0f;
    const uint32_t r = static_cast<uint32_t>(p[1]), c = static_cast<uint32_t>(p[2]),
                   h = static_cast<uint32_t>(p[3]), w = static_cast<uint32_t>(p[4]);
    std::vector<float> got(want.size());
    PixelShuffleReference(in.data(), c, h, w, r, up, got.data());
    ExpectAccuracy(got, want, zelva::kernel::kBitExact, name);
    // Every member that runs this case agrees with torch too.
    for (const Member& m : Members()) {
      const uint32_t lanes = LanesOf(m.layout);
      if (!CanRun(m.isa) || !(up ? m.up : m.down) || (m.factor != 0 && m.factor != r)) continue;
      if (c % lanes != 0 || (up && (c / (r * r)) % lanes != 0)) continue;
      std::vector<uint32_t> out_chw;
      ExpectAccuracy(RunMember(m, FactorOf(up, r), in, c, h, w, &out_chw), want, zelva::kernel::kBitExact,
                     m.name + " " + name);
    }
  });
}

TEST(PixelShuffleFamily, EveryMemberMatchesTheReference) {
  uint32_t seed = 1;
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t lanes = LanesOf(m.layout);
    const std::vector<uint32_t> factors =
        m.factor != 0 ? std::vector<uint32_t>{m.factor} : std::vector<uint32_t>{1, 2, 3};
    for (const bool up : {true, false}) {
      if (!(up ? m.up : m.down)) continue;
      for (const uint32_t r : factors) {
        for (const uint32_t k : {1u, 3u}) {
          for (const auto& hw : {std::pair<uint32_t, uint32_t>{1, 1}, {3, 5}, {4, 7}}) {
            // Up: r^2 x lanes x k channels of an odd-sized map; down: lanes x k channels of a map r times it.
            const uint32_t c = up ? r * r * lanes * k : lanes * k;
            const uint32_t h = up ? hw.first : hw.first * r, w = up ? hw.second : hw.second * r;
            const std::vector<float> in = RandomFloats(static_cast<size_t>(c) * h * w, seed++);
            std::vector<float> want(in.size());
            PixelShuffleReference(in.data(), c, h, w, r, up, want.data());
            std::vector<uint32_t> out_chw;
            const std::string what = m.name + (up ? " up " : " down ") + std::to_string(r) + " " +
                                     std::to_string(c) + "x" + std::to_string(h) + "x" + std::to_string(w);
            const std::vector<float> got = RunMember(m, FactorOf(up, r), in, c, h, w, &out_chw);
            const std::vector<uint32_t> want_chw = up ? std::vector<uint32_t>{c / (r * r), h * r, w * r}
                                                      : std::vector<uint32_t>{c * r * r, h / r, w / r};
            EXPECT_EQ(out_chw, want_chw) << what;
            ExpectAccuracy(got, want, zelva::kernel::kBitExact, what);
            if (::testing::Test::HasFailure()) return;
          }
        }
      }
    }
  }
}

// A row takes exactly the factors its name fixes; the Fallback row every whole factor and its inverse.
TEST(PixelShuffleFamily, RefusesFactorsItDoesNotRun) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    float factor;
    bool up;  // direction when accepted
    uint32_t r;
  };
  const Case accepted[] = {{1.0f, true, 1},  {2.0f, true, 2},         {3.0f, true, 3},
                           {0.5f, false, 2}, {1.0f / 3.0f, false, 3}, {0.25f, false, 4}};
  const float refused[] = {0.0f, -2.0f, 2.5f, 0.4f, 0.45f, nan, std::numeric_limits<float>::infinity()};
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    for (const Case& c : accepted) {
      const bool runs = (c.up ? m.up : m.down) && (m.factor == 0 || m.factor == c.r);
      EXPECT_EQ(kernel->CheckSupport(Info(c.factor), nullptr), runs ? 0 : -1) << c.factor;
    }
    for (const float f : refused) {
      EXPECT_EQ(kernel->CheckSupport(Info(f), nullptr), -1) << f;
      EXPECT_FALSE(kernel->Config(Info(f), nullptr, nullptr, ctx)) << f;
      EXPECT_FALSE(kernel->IsConfigured());
    }
    // A factor close to the named one is not it.
    if (m.factor != 0) {
      EXPECT_EQ(kernel->CheckSupport(Info(m.up ? 2.0001f : 0.50001f), nullptr), -1);
    }
    ExpectCommonRefusals(*kernel, Info(m.up ? 2.0f : 0.5f), std::make_shared<runtime::Upsample2dInfo>(), ctx);
  }
}

// Tensors the factor does not divide, other layouts and types: -2 from CheckInputs, an assertion from
// Forward.
TEST(PixelShuffleFamily, TensorChecksAndReportedMisuse) {
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    const uint32_t lanes = LanesOf(m.layout);
    const bool up = m.up;
    auto dims = [&](uint32_t c, uint32_t h, uint32_t w) {
      return lanes == 1 ? std::vector<uint32_t>{c, h, w} : std::vector<uint32_t>{c / lanes, h, w, lanes};
    };
    auto kernel = m.make();
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({MakeTensor(ctx, dims(4 * lanes, 2, 2), m.layout)}, outputs, ctx),
                 std::runtime_error);  // not configured
    ASSERT_TRUE(kernel->Config(Info(up ? 2.0f : 0.5f), nullptr, nullptr, ctx));
    const auto good = MakeTensor(ctx, dims(4 * lanes, 2, 2), m.layout);
    const auto bad = up ? MakeTensor(ctx, dims(2 * lanes, 2, 2), m.layout)  // channels not 4 x a block
                        : MakeTensor(ctx, dims(lanes, 3, 2), m.layout);     // odd height
    EXPECT_EQ(kernel->CheckInputs({good}), 0);
    EXPECT_EQ(kernel->CheckInputs({bad}), -2);
    EXPECT_EQ(kernel->CheckInputs({good, good}), -2);
    EXPECT_EQ(kernel->CheckInputs(
                  {MakeTensor(ctx, {4 * lanes, 2, 2, 1}, lanes == 1 ? Layout::C4HW4 : Layout::CHW)}),
              -2);
    EXPECT_THROW(kernel->Forward({bad}, outputs, ctx), std::runtime_error);
    EXPECT_TRUE(outputs.empty());
    kernel->Forward({good}, outputs, ctx);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);
  }
}

}  // namespace
}  // namespace zvtest
