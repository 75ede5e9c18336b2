// The warp affine family: the reference against F.grid_sample on F.affine_grid for every mode, padding mode
// and align_corners (tests/data/warpaffine_fixture.txt, tools/gen_warpaffine_fixture.py), the member against
// the reference on random thetas and odd sizes (the vector tail), and the modes and tensors it refuses.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/warpaffine/members.h"
#include "zelva/src/kernel/family/warpaffine/reference.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using zelva::kernel::WarpAffineArgs;
using zelva::kernel::WarpMode;
using zelva::kernel::WarpPadding;

const char* const kModes[] = {"bilinear", "nearest"};
const char* const kPads[] = {"zeros", "border", "reflection"};

using Member = PlainMember;

std::vector<Member> Members() {
  return ZV_PLAIN_MEMBERS(ZV_WARPAFFINE_MEMBERS);
}

std::shared_ptr<runtime::WarpAffineInfo> Info(const std::string& mode, const std::string& pad, bool align) {
  auto info = std::make_shared<runtime::WarpAffineInfo>();
  info->mode = mode;
  info->padding_mode = pad;
  info->align_corners = align;
  return info;
}

struct Case {
  uint32_t c, h, w;
  int mode, pad;
  bool align;
  std::vector<float> theta, input;
};

std::vector<float> Reference(const Case& k) {
  std::vector<float> out(k.input.size());
  WarpAffineArgs a{};
  a.input = k.input.data();
  a.channels = k.c;
  a.height = k.h;
  a.width = k.w;
  a.theta = k.theta.data();
  a.mode = static_cast<WarpMode>(k.mode);
  a.padding = static_cast<WarpPadding>(k.pad);
  a.align_corners = k.align;
  a.output = out.data();
  zelva::kernel::WarpAffineReference(a);
  return out;
}

std::vector<float> RunMember(const Member& m, const Case& k) {
  auto ctx = MakeTestContext();
  auto kernel = m.make();
  const auto outputs = RunKernel(*kernel, Info(kModes[k.mode], kPads[k.pad], k.align),
                                 {MakeTensor(ctx, {k.c, k.h, k.w}, runtime::Layout::CHW, k.input),
                                  MakeTensor(ctx, {2, 3}, runtime::Layout::FLEXIABLE, k.theta)},
                                 ctx);
  if (outputs.size() != 1) return {};
  EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{k.c, k.h, k.w})) << m.name;
  return Values(outputs[0]);
}

TEST(WarpAffineFamily, ReferenceAndMembersMatchTorch) {
  ForEachFixtureCase("warpaffine_fixture.txt", [&](const std::string& name, std::istream& file) {
    const std::vector<float> p = ReadFixtureRow(file);
    ASSERT_EQ(p.size(), 6u) << name;
    Case k{static_cast<uint32_t>(p[0]), static_cast<uint32_t>(p[1]), static_cast<uint32_t>(p[2]),
           static_cast<int>(p[3]),      static_cast<int>(p[4]),      p[5] != 0.0f,
           ReadFixtureRow(file),        ReadFixtureRow(file)};
    const std::vector<float> want = ReadFixtureRow(file);
    // torch sums the grid and the taps in its own order: a few float roundings of values below 4.
    const zelva::kernel::Accuracy torch_bound = zelva::kernel::Within(2e-5f, 2e-6f);
    ExpectAccuracy(Reference(k), want, torch_bound, name);
    for (const Member& m : Members()) {
      if (CanRun(m.isa)) ExpectAccuracy(RunMember(m, k), want, torch_bound, m.name + " " + name);
    }
  });
}

TEST(WarpAffineFamily, EveryMemberMatchesTheReference) {
  uint32_t seed = 5;
  for (const Member& m : Members()) {
    if (!CanRun(m.isa)) continue;
    for (int mode = 0; mode < 2; ++mode) {
      for (int pad = 0; pad < 3; ++pad) {
        for (const bool align : {false, true}) {
          for (const auto& hw : {std::pair<uint32_t, uint32_t>{1, 1}, {3, 5}, {8, 9}}) {
            Case k{2, hw.first, hw.second, mode, pad, align, RandomFloats(6, seed++, -1.5f, 1.5f), {}};
            k.input = RandomFloats(static_cast<size_t>(k.c) * k.h * k.w, seed++);
            const std::string what = m.name + " " + kModes[mode] + " " + kPads[pad] +
                                     (align ? " align " : " ") + std::to_string(k.h) + "x" +
                                     std::to_string(k.w);
            ExpectAccuracy(RunMember(m, k), Reference(k), m.accuracy, what);
            if (::testing::Test::HasFailure()) return;
          }
        }
      }
    }
    // A theta that throws the grid far outside, and one that is not a number, are read without harm.
    for (const float far : {1e30f, -1e30f}) {
      Case k{1, 3, 6, 0, 0, false, {far, 0, far, 0, far, far}, RandomFloats(18, seed++)};
      ExpectAccuracy(RunMember(m, k), Reference(k), m.accuracy, m.name + " far");
    }
  }
}

// Any other mode or padding mode is refused at Config, naming it; and the tensors it does not take.
TEST(WarpAffineFamily, RefusalsAndTensorChecks) {
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    ExpectCommonRefusals(*kernel, Info("bilinear", "zeros", false),
                         std::make_shared<runtime::Upsample2dInfo>(), ctx);
    for (const auto& bad : {std::pair<std::string, std::string>{"bicubic", "zeros"},
                            {"Bilinear", "zeros"},
                            {"nearest", "constant"},
                            {"bilinear", ""}}) {
      try {
        kernel->Config(Info(bad.first, bad.second, false), nullptr, nullptr, ctx);
        ADD_FAILURE() << bad.first << " " << bad.second << " accepted";
      } catch (const std::runtime_error& e) {
        const std::string named = bad.first == "bicubic" || bad.first == "Bilinear" ? bad.first : bad.second;
        EXPECT_NE(std::string(e.what()).find("\"" + named + "\""), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find(m.name), std::string::npos) << e.what();
      }
      EXPECT_FALSE(kernel->IsConfigured());
    }
    const auto image = MakeTensor(ctx, {2, 3, 4}, runtime::Layout::CHW);
    const auto theta = MakeTensor(ctx, {6}, runtime::Layout::C, {1, 0, 0, 0, 1, 0});
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({image, theta}, outputs, ctx), std::runtime_error);  // not configured
    ASSERT_TRUE(kernel->Config(Info("nearest", "border", true), nullptr, nullptr, ctx));
    EXPECT_EQ(kernel->CheckInputs({image, theta}), 0);
    EXPECT_EQ(kernel->CheckInputs({image}), -2);
    EXPECT_EQ(kernel->CheckInputs({image, MakeTensor(ctx, {5}, runtime::Layout::C)}), -2);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {1, 3, 4, 4}, runtime::Layout::C4HW4), theta}), -2);
    EXPECT_THROW(kernel->Forward({image}, outputs, ctx), std::runtime_error);
    kernel->Forward({image, theta}, outputs, ctx);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
    EXPECT_EQ(Values(outputs[0]), Values(image));  // the identity
  }
}

}  // namespace
}  // namespace zvtest
