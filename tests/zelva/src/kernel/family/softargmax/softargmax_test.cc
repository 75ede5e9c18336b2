// The soft arg-max family: the double-precision reference against a soft arg-max written in PyTorch
// (tests/data/softargmax_fixture.txt, tools/gen_softargmax_fixture.py), every row of the list within its
// bound of the reference on odd map sizes (the vector tails), positive, negative and zero beta, with and
// without a size, and the layers each row refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/softargmax/members.h"
#include "zelva/src/kernel/family/softargmax/reference.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using zelva::kernel::SoftArgMaxArgs;
using zelva::kernel::SoftArgMaxReference;

using Member = PlainMember;

std::vector<Member> Members() {
  return ZV_PLAIN_MEMBERS(ZV_SOFTARGMAX_MEMBERS);
}

std::shared_ptr<runtime::SoftArgMaxInfo> Info(float beta, std::vector<uint16_t> size = {}) {
  auto info = std::make_shared<runtime::SoftArgMaxInfo>();
  info->beta = beta;
  info->size = std::move(size);
  return info;
}

std::vector<float> Reference(const std::vector<float>& in, uint32_t c, uint32_t h, uint32_t w, float beta,
                             const std::vector<uint16_t>& size) {
  std::vector<float> out(2 * c);
  SoftArgMaxArgs a{in.data(), c, h, w, beta, 1.0f, 1.0f, 1.0f, 1.0f, out.data()};
  if (!size.empty()) {
    a.size_x = size[0];
    a.width_x = static_cast<float>(w);
    a.size_y = size[1];
    a.height_y = static_cast<float>(h);
  }
  SoftArgMaxReference(a);
  return out;
}

std::vector<float> RunMember(const Member& m, const std::vector<float>& in, uint32_t c, uint32_t h,
                             uint32_t w, float beta, const std::vector<uint16_t>& size) {
  auto ctx = MakeTestContext();
  auto kernel = m.make();
  const auto outputs =
      RunKernel(*kernel, Info(beta, size), {MakeTensor(ctx, {c, h, w}, runtime::Layout::CHW, in)}, ctx);
  if (outputs.size() != 1) return {};
  EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{c, 2})) << m.name;
  return Values(outputs[0]);
}

TEST(SoftArgMaxFamily, ReferenceAndMembersMatchTorch) {
  ForEachFixtureCase("softargmax_fixture.txt", [&](const std::string& name, std::istream& file) {
    const std::vector<float> p = ReadFixtureRow(file), in = ReadFixtureRow(file), want = ReadFixtureRow(file);
    ASSERT_TRUE(p.size() == 4 || p.size() == 6) << name;
    const uint32_t c = static_cast<uint32_t>(p[0]), h = static_cast<uint32_t>(p[1]),
                   w = static_cast<uint32_t>(p[2]);
    std::vector<uint16_t> size;
    if (p.size() == 6) size = {static_cast<uint16_t>(p[4]), static_cast<uint16_t>(p[5])};
    ExpectAccuracy(Reference(in, c, h, w, p[3], size), want, zelva::kernel::Within(1e-6f, 1e-6f), name);
    for (const Member& m : Members()) {
      if (CanRun(m.isa))
        ExpectAccuracy(RunMember(m, in, c, h, w, p[3], size), want, m.accuracy, m.name + " " + name);
    }
  });
}

TEST(SoftArgMaxFamily, EveryMemberIsWithinItsBoundOfTheReference) {
  uint32_t seed = 3;
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    for (const auto& hw : {std::pair<uint32_t, uint32_t>{1, 1}, {1, 7}, {5, 3}, {9, 8}, {24, 31}}) {
      for (const float beta : {1.0f, 7.5f, -3.0f, 0.0f}) {
        for (const bool sized : {false, true}) {
          const uint32_t c = 3, h = hw.first, w = hw.second;
          const std::vector<uint16_t> size =
              sized ? std::vector<uint16_t>{static_cast<uint16_t>(2 * w + 1), static_cast<uint16_t>(3 * h)}
                    : std::vector<uint16_t>{};
          const std::vector<float> in = RandomFloats(static_cast<size_t>(c) * h * w, seed++);
          const std::string what = m.name + " " + std::to_string(h) + "x" + std::to_string(w) + " beta " +
                                   std::to_string(beta) + (sized ? " sized" : "");
          ExpectAccuracy(RunMember(m, in, c, h, w, beta, size), Reference(in, c, h, w, beta, size),
                         m.accuracy, what);
          if (::testing::Test::HasFailure()) return;
        }
      }
    }
  }
}

TEST(SoftArgMaxFamily, RefusalsAndTensorChecks) {
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(Info(1.0f, {4, 4}), nullptr), 0);
    for (const auto& info :
         {Info(1.0f, {4}), Info(1.0f, {4, 4, 4}), Info(1.0f, {0, 4}),
          Info(std::numeric_limits<float>::quiet_NaN()), Info(std::numeric_limits<float>::infinity())}) {
      ExpectRefused(*kernel, info, ctx, "size or beta");
    }
    ExpectCommonRefusals(*kernel, Info(1.0f), std::make_shared<runtime::SoftmaxInfo>(), ctx);

    runtime::TensorList outputs;
    const auto good = MakeTensor(ctx, {2, 3, 3}, runtime::Layout::CHW);
    EXPECT_THROW(kernel->Forward({good}, outputs, ctx), std::runtime_error);  // not configured
    ASSERT_TRUE(kernel->Config(Info(1.0f), nullptr, nullptr, ctx));
    EXPECT_EQ(kernel->CheckInputs({good}), 0);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {1, 3, 3, 4}, runtime::Layout::C4HW4)}), -2);
    EXPECT_EQ(kernel->CheckInputs({good, good}), -2);
    EXPECT_THROW(kernel->Forward({MakeTensor(ctx, {1, 3, 3, 4}, runtime::Layout::C4HW4)}, outputs, ctx),
                 std::runtime_error);
    EXPECT_THROW(kernel->Forward({MakeTensor(ctx, {2, 0, 3}, runtime::Layout::CHW)}, outputs, ctx),
                 std::runtime_error);
    kernel->Forward({good}, outputs, ctx);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
    // A flat map: the centre of the pixel grid.
    EXPECT_EQ(Values(outputs[0]), (std::vector<float>{1.0f, 1.0f, 1.0f, 1.0f}));
  }
}

}  // namespace
}  // namespace zvtest
