// The expand family: the reference against torch's Tensor.expand (tests/data/expand_fixture.txt,
// tools/gen_expand_fixture.py), every row of the list against the reference bit for bit on each axis and
// combination it can repeat (odd sizes, the vector tails), and the new_shape values each row refuses.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/expand/members.h"
#include "zelva/src/kernel/family/expand/reference.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using runtime::Layout;
using zelva::kernel::ExpandReference;

struct Member {
  std::string name;
  zelva::kernel::Isa isa;
  uint32_t layout;
  std::shared_ptr<runtime::IKernel> (*make)();
};

std::vector<Member> Members() {
  std::vector<Member> members;
#define ZV_TEST_EXPAND_MEMBER(group, isa, cls, accuracy, layout, core) \
  members.push_back({#cls, zelva::kernel::Isa::isa, Layout::layout,    \
                     [] { return std::shared_ptr<runtime::IKernel>(new zelva::kernel::cls()); }});
  ZV_EXPAND_MEMBERS(ZV_TEST_EXPAND_MEMBER)
#undef ZV_TEST_EXPAND_MEMBER
  return members;
}

std::shared_ptr<runtime::TensorExpandInfo> Info(std::vector<int16_t> new_shape) {
  auto info = std::make_shared<runtime::TensorExpandInfo>();
  info->new_shape = std::move(new_shape);
  return info;
}

// Runs `m` on the planar input `in` of chw (blocked for a blocked row); the planar output.
std::vector<float> RunMember(const Member& m, const std::vector<int16_t>& new_shape,
                             const std::vector<float>& in, const std::vector<uint32_t>& chw,
                             std::vector<uint32_t>* out_chw) {
  return RunOnMap(m.make(), Info(new_shape), in, chw[0], chw[1], chw[2], m.layout, m.layout, {}, out_chw);
}

TEST(ExpandFamily, ReferenceAndMembersMatchTorch) {
  ForEachFixtureCase("expand_fixture.txt", [](const std::string& name, std::istream& file) {
    const std::vector<float> chw_f = ReadFixtureRow(file), shape_f = ReadFixtureRow(file),
                             in = ReadFixtureRow(file), want = ReadFixtureRow(file);
    ASSERT_EQ(chw_f.size(), 3u) << name;
    ASSERT_EQ(shape_f.size(), 4u) << name;
    const std::vector<uint32_t> chw(chw_f.begin(), chw_f.end());
    const std::vector<int16_t> new_shape(shape_f.begin(), shape_f.end());
    std::vector<uint32_t> out(3);
    for (int a = 0; a < 3; ++a)
      out[a] = new_shape[a + 1] == -1 ? chw[a] : static_cast<uint32_t>(new_shape[a + 1]);
    std::vector<float> got(want.size());
    ExpandReference(in.data(), chw[0], chw[1], chw[2], got.data(), out[0], out[1], out[2]);
    ExpectAccuracy(got, want, zelva::kernel::kBitExact, name);
    for (const Member& m : Members()) {
      const uint32_t lanes = LanesOf(m.layout);
      if (!CanRun(m.isa) || chw[0] % lanes != 0 || (lanes != 1 && out[0] != chw[0])) continue;
      std::vector<uint32_t> out_chw;
      ExpectAccuracy(RunMember(m, new_shape, in, chw, &out_chw), want, zelva::kernel::kBitExact,
                     m.name + " " + name);
      EXPECT_EQ(out_chw, out) << m.name << " " << name;
    }
  });
}

// Every row on every combination of repeated axes it takes, widths across the vector tails.
TEST(ExpandFamily, EveryMemberMatchesTheReference) {
  uint32_t seed = 7;
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t lanes = LanesOf(m.layout);
    for (uint32_t mask = 0; mask < 8; ++mask) {  // bit 0: channels repeated, 1: rows, 2: columns
      if (lanes != 1 && (mask & 1)) continue;
      for (const uint32_t w : {1u, 3u, 9u, 17u}) {
        const std::vector<uint32_t> out = {lanes == 1 ? 3u : 2 * lanes, 5, w};
        const std::vector<uint32_t> chw = {mask & 1 ? 1 : out[0], mask & 2 ? 1 : out[1],
                                           mask & 4 ? 1 : out[2]};
        // Repeated axes named by size, kept ones by -1 or by size in turn.
        std::vector<int16_t> new_shape = {static_cast<int16_t>(w % 2 ? 1 : -1)};
        for (int a = 0; a < 3; ++a)
          new_shape.push_back(chw[a] == out[a] && (a + w) % 2 ? int16_t{-1} : static_cast<int16_t>(out[a]));
        const std::vector<float> in = RandomFloats(static_cast<size_t>(chw[0]) * chw[1] * chw[2], seed++);
        std::vector<float> want(static_cast<size_t>(out[0]) * out[1] * out[2]);
        ExpandReference(in.data(), chw[0], chw[1], chw[2], want.data(), out[0], out[1], out[2]);
        std::vector<uint32_t> out_chw;
        const std::string what = m.name + " mask " + std::to_string(mask) + " w " + std::to_string(w);
        ExpectAccuracy(RunMember(m, new_shape, in, chw, &out_chw), want, zelva::kernel::kBitExact, what);
        EXPECT_EQ(out_chw, out) << what;
        if (::testing::Test::HasFailure()) return;
      }
    }
  }
}

// new_shape values no row takes are refused by CheckSupport, so Config fails; a shape that does not fit the
// input is reported when the output shape is asked for and rejected by CheckInputs. Blocked rows keep C.
TEST(ExpandFamily, RefusesShapesItCannotExpandTo) {
  const std::vector<std::vector<int16_t>> refused = {
      {}, {1, 2, 3}, {2, -1, -1, -1}, {0, -1, -1, -1}, {1, 0, 4, 4}, {1, -2, 4, 4}, {1, 4, 4, 4, 1}};
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    const uint32_t lanes = LanesOf(m.layout), c = lanes == 1 ? 2 : lanes;
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    for (const auto& s : refused) ExpectRefused(*kernel, Info(s), ctx, std::to_string(s.size()) + " entries");
    ExpectCommonRefusals(*kernel, Info({1, -1, -1, -1}), std::make_shared<runtime::TensorReshapeInfo>(), ctx);

    // Height 3 cannot become 5; a blocked row cannot repeat channels either.
    ASSERT_TRUE(kernel->Config(Info({-1, -1, 5, 4}), nullptr, nullptr, ctx));
    const auto misfit = MakeTensor(ctx, MapDims(m.layout, c, 3, 1), m.layout);
    const auto fits = MakeTensor(ctx, MapDims(m.layout, c, 1, 1), m.layout);
    EXPECT_EQ(kernel->CheckInputs({misfit}), -2);
    EXPECT_EQ(kernel->CheckInputs({fits}), 0);
    EXPECT_THROW(kernel->GetOutputShapes({misfit->shape}), std::runtime_error);
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({misfit}, outputs, ctx), std::runtime_error);
    kernel->Forward({fits}, outputs, ctx);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->shape.dims, MapDims(m.layout, c, 5, 4));
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
    if (lanes != 1) {
      auto blocked = m.make();
      ASSERT_TRUE(blocked->Config(Info({1, static_cast<int16_t>(2 * lanes), -1, -1}), nullptr, nullptr, ctx));
      EXPECT_THROW(blocked->GetOutputShapes({fits->shape}), std::runtime_error);
    }
  }
}

}  // namespace
}  // namespace zvtest
