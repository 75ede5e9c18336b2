// The layout-transform family: every row of its list against the element rule (reference.h) bit for bit,
// NaN payloads included, run as the net runs it and, through its core, on planes and blocks spaced wider than
// they are long; every pair of rows that undo each other round-trips; the support rule, output shapes and
// tensor checks shared by all rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/layout/members.h"
#include "zelva/src/kernel/family/layout/reference.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using runtime::DataType;
using runtime::Layout;

struct Member {
  std::string name;
  zelva::kernel::Isa isa;
  uint32_t from, to;
  zelva::kernel::LayoutCore core;
  std::shared_ptr<runtime::IKernel> (*make)();
};

std::vector<Member> Members() {
  std::vector<Member> members;
#define ZV_TEST_LAYOUT_MEMBER(group, isa, cls, accuracy, from, to, core)                            \
  members.push_back({#cls, zelva::kernel::Isa::isa, Layout::from, Layout::to, &zelva::kernel::core, \
                     [] { return std::shared_ptr<runtime::IKernel>(new zelva::kernel::cls()); }});
  ZV_LAYOUT_MEMBERS(ZV_TEST_LAYOUT_MEMBER)
#undef ZV_TEST_LAYOUT_MEMBER
  return members;
}

// The dims of `channels` x h x w in `layout`.
std::vector<uint32_t> Dims(uint32_t layout, uint32_t channels, uint32_t h, uint32_t w) {
  if (layout == Layout::C) return {channels * h * w};
  if (layout == Layout::CHW) return {channels, h, w};
  return {channels / LanesOf(layout), h, w, LanesOf(layout)};
}

// Random values with NaNs of several payloads and signs, infinities, a signed zero and a denormal among them.
std::vector<float> Data(size_t n, uint32_t seed) {
  std::vector<float> v = RandomFloats(n, seed);
  const uint32_t specials[] = {0x7fc12345u, 0xffc00000u, 0x7f800001u, 0xff812345u,
                               0x7f800000u, 0x80000000u, 0x00000001u};
  for (size_t i = 0; i < n; i += 5) std::memcpy(&v[i], &specials[(i / 5) % 7], 4);
  return v;
}

void ExpectSameBits(const float* got, const float* want, size_t n, const std::string& what) {
  EXPECT_EQ(std::memcmp(got, want, n * sizeof(float)), 0) << what;
}

// Pixel counts around the tiles: none, rest only (1, 3, 5), one tile of 4 and 8, tiles and a rest.
const std::pair<uint32_t, uint32_t> kPlanes[] = {{1, 1}, {1, 3}, {1, 5},  {2, 2}, {3, 3},
                                                 {2, 8}, {5, 7}, {3, 11}, {4, 8}, {7, 9}};

TEST(LayoutFamily, EveryMemberMatchesTheReferenceBitForBit) {
  auto ctx = MakeTestContext();
  uint32_t seed = 1;
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t block = std::max(LanesOf(m.from), LanesOf(m.to));
    for (const uint32_t blocks : {1u, 2u, 3u}) {
      for (const auto& [h, w] : kPlanes) {
        const uint32_t c = blocks * block;
        const std::string what =
            m.name + " " + std::to_string(c) + "x" + std::to_string(h) + "x" + std::to_string(w);
        const std::vector<float> x = Data(static_cast<size_t>(c) * h * w, seed++);
        auto kernel = m.make();
        const auto out =
            RunKernel(*kernel, nullptr, {MakeTensor(ctx, Dims(m.from, c, h, w), m.from, x)}, ctx);
        ASSERT_EQ(out.size(), 1u) << what;
        EXPECT_EQ(out[0]->shape.dims, Dims(m.to, c, h, w)) << what;
        EXPECT_EQ(out[0]->shape.layout, m.to) << what;
        std::vector<float> want(x.size());
        zelva::kernel::RelayoutReference(x.data(), LanesOf(m.from), h * w * LanesOf(m.from), want.data(),
                                         LanesOf(m.to), h * w * LanesOf(m.to), c, h * w);
        ExpectSameBits(out[0]->Data<float>(), want.data(), want.size(), what);
      }
    }
  }
}

// Planes (or blocks) spaced wider than they are long, as a tensor's dim-0 stride may place them: the core
// reads and writes by the strides it is given and leaves the gaps alone.
TEST(LayoutFamily, CoresFollowTheStridesTheyAreGiven) {
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    const uint32_t block = std::max(LanesOf(m.from), LanesOf(m.to));
    for (const auto& [h, w] : kPlanes) {
      const uint32_t c = 2 * block, pixels = h * w;
      // A unit of each side is a plane (planar) or a block (blocked); its stride is its length plus a gap.
      const uint32_t src_stride = pixels * LanesOf(m.from) + 3, dst_stride = pixels * LanesOf(m.to) + 5;
      const uint32_t src_units = c / LanesOf(m.from), dst_units = c / LanesOf(m.to);
      const std::vector<float> x = Data(static_cast<size_t>(src_units) * src_stride, h * 31 + w);
      std::vector<float> got(static_cast<size_t>(dst_units) * dst_stride, -7.0f), want = got;
      zelva::kernel::RelayoutReference(x.data(), LanesOf(m.from), src_stride, want.data(), LanesOf(m.to),
                                       dst_stride, c, pixels);
      m.core({x.data(), src_stride, got.data(), dst_stride, c / block, pixels});
      ExpectSameBits(got.data(), want.data(), got.size(),
                     m.name + " " + std::to_string(h) + "x" + std::to_string(w));
    }
  }
}

// Each row followed by every row that undoes it (any variant, any instruction set) gives back the input's
// bytes, NaNs included.
TEST(LayoutFamily, EveryPairRoundTrips) {
  auto ctx = MakeTestContext();
  const std::vector<Member> members = Members();
  int pairs = 0;
  for (const Member& there : members) {
    for (const Member& back : members) {
      if (there.to != back.from || back.to != there.from || SkipUnrunnable(there) || SkipUnrunnable(back))
        continue;
      ++pairs;
      const uint32_t c = 2 * std::max(LanesOf(there.from), LanesOf(there.to)), h = 3, w = 7;
      const std::vector<float> x = Data(static_cast<size_t>(c) * h * w, static_cast<uint32_t>(pairs));
      auto a = there.make();
      auto b = back.make();
      const auto mid =
          RunKernel(*a, nullptr, {MakeTensor(ctx, Dims(there.from, c, h, w), there.from, x)}, ctx);
      ASSERT_EQ(mid.size(), 1u);
      const auto out = RunKernel(*b, nullptr, mid, ctx);
      ASSERT_EQ(out.size(), 1u);
      EXPECT_EQ(out[0]->shape.dims, Dims(there.from, c, h, w));
      ExpectSameBits(out[0]->Data<float>(), x.data(), x.size(), there.name + " then " + back.name);
    }
  }
  // CHW <-> C4HW4: 2 x 1 each way; CHW <-> C8HW8: 3 x 4 each way; C4HW4 <-> C8HW8: 1 x 1 each way.
  if (CanRun(zelva::kernel::Isa::kAVX)) {
    EXPECT_EQ(pairs, 30);
  }
}

TEST(LayoutFamily, SupportShapesAndTensorChecks) {
  auto ctx = MakeTestContext();
  auto tensor = [&](std::vector<uint32_t> dims, uint32_t layout, uint32_t type = DataType::FLOAT32) {
    return ShapedTensor(ctx, std::move(dims), layout, type);
  };
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(nullptr, nullptr), 0);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
    EXPECT_EQ(kernel->CheckSupport(nullptr, std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_FALSE(kernel->Config(std::make_shared<runtime::Conv2dInfo>(), nullptr, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfigured());
    ASSERT_TRUE(kernel->Config(nullptr, nullptr, nullptr, ctx));

    const uint32_t block = std::max(LanesOf(m.from), LanesOf(m.to));
    const auto in = tensor(Dims(m.from, block, 2, 3), m.from);
    const auto out = tensor(Dims(m.to, block, 2, 3), m.to);
    EXPECT_EQ(kernel->CheckInputs({in, in}), 0);
    EXPECT_EQ(kernel->CheckInputs({}), -2);
    EXPECT_EQ(kernel->CheckInputs({in, nullptr}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(Dims(m.from, block, 2, 3), m.from, DataType::FLOAT16)}), -2);
    EXPECT_EQ(kernel->CheckInputs({out}), -2);
    EXPECT_EQ(kernel->CheckOutputs({out}), 0);
    EXPECT_EQ(kernel->CheckOutputs({in}), -2);
    if (m.to == Layout::C) {
      EXPECT_EQ(kernel->CheckOutputs({tensor({12}, Layout::C)}), -2);
    }

    // The output shape keeps data type, location and extra; a planar input off the block multiple passes
    // the shape with the block count truncated and fails the input check.
    runtime::TensorShape shape(Dims(m.from, block, 2, 3), DataType::FLOAT32, m.from);
    shape.extra.step_size = 5;
    const runtime::TensorShape o = kernel->GetOutputShapes({shape})[0];
    EXPECT_EQ(o.dims, Dims(m.to, block, 2, 3));
    EXPECT_EQ(o.extra.step_size, 5);
    EXPECT_EQ(o.location, shape.location);
    if (m.from == Layout::CHW) {
      const auto odd = tensor({block + 1, 2, 3}, Layout::CHW);
      EXPECT_EQ(kernel->CheckInputs({odd}), -2);
      EXPECT_EQ(kernel->GetOutputShapes({odd->shape})[0].dims, (std::vector<uint32_t>{1, 2, 3, block}));
    }

    // Several inputs give as many outputs, in order.
    if (SkipUnrunnable(m)) continue;
    const std::vector<float> a = Data(static_cast<size_t>(block) * 6, 1),
                             b = Data(static_cast<size_t>(block) * 2, 2);
    runtime::TensorList outputs;
    kernel->Forward({MakeTensor(ctx, Dims(m.from, block, 2, 3), m.from, a),
                     MakeTensor(ctx, Dims(m.from, block, 1, 2), m.from, b)},
                    outputs, ctx);
    ASSERT_EQ(outputs.size(), 2u);
    EXPECT_EQ(outputs[0]->shape.dims, Dims(m.to, block, 2, 3));
    EXPECT_EQ(outputs[1]->shape.dims, Dims(m.to, block, 1, 2));
    EXPECT_THROW(kernel->Forward({tensor({block}, m.from)}, outputs, ctx), std::runtime_error);
  }
}

}  // namespace
}  // namespace zvtest
