// The pooling family: the reference against torch.nn.AvgPool2d and MaxPool2d (tests/data/pool_fixture.txt,
// tools/gen_pool_fixture.py), and every row of the list against the reference over random layers it accepts
// (odd sizes, ceil mode on and off, padding on every border, count_include_pad both ways) under its accuracy
// class: bit for bit, but for the two-pass stride 1 averages.
// Blocked rows get their input blocked and their output unblocked here; the general rows run in all three
// layouts.
//
// Where torch and this library differ, the fixture holds no case and the tests below say what is wanted:
//   - a maximum pads with 0.0, not -inf: a window that reaches into the padding, or past the input in ceil
//     mode (where torch leaves those taps out), gives at least 0.0;
//   - ceil mode keeps a last window that starts in the bottom or right padding (torch drops it), and the
//     average with count_include_pad divides a window that ends past the padded input by the whole window
//     (torch by the taps up to that end).
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/pooling/members.h"
#include "zelva/src/kernel/family/pooling/reference.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::Layout;

using Member = zvtest::RuledMember<PoolRule>;

std::vector<Member> AllMembers() {
  return ZV_RULED_MEMBERS(PoolRule, ZV_POOLING_MEMBERS);
}

// One pooling layer and a planar input [c, h, w].
struct Layer {
  bool max = false;
  uint32_t c = 1, h = 1, w = 1;
  uint32_t ky = 1, kx = 1, sy = 1, sx = 1;
  uint32_t pl = 0, pt = 0, pr = 0, pb = 0;
  bool ceil = false, include_pad = false;
  std::vector<float> input;

  std::shared_ptr<runtime::LayerInfo> Info() const {
    if (max) {
      auto info = std::make_shared<runtime::MaxPool2dInfo>();
      Fill(*info);
      return info;
    }
    auto info = std::make_shared<runtime::AvgPool2dInfo>();
    Fill(*info);
    info->count_include_pad = include_pad;
    return info;
  }
  template <class Info>
  void Fill(Info& info) const {
    info.id = "pool";
    info.kernel_y = static_cast<uint16_t>(ky);
    info.kernel_x = static_cast<uint16_t>(kx);
    info.stride_y = static_cast<uint16_t>(sy);
    info.stride_x = static_cast<uint16_t>(sx);
    info.padding_l = static_cast<int16_t>(pl);
    info.padding_t = static_cast<int16_t>(pt);
    info.padding_r = static_cast<int16_t>(pr);
    info.padding_b = static_cast<int16_t>(pb);
    info.ceil_mode = ceil;
  }
  // Output sizes worked out here in double: floor or ceil of the padded span over the stride, plus one.
  uint32_t Out(uint32_t size, uint32_t before, uint32_t after, uint32_t k, uint32_t s) const {
    const double q = (static_cast<double>(before) + size + after - k) / s;
    return static_cast<uint32_t>((ceil ? std::ceil(q) : std::floor(q)) + 1);
  }
  uint32_t OutH() const { return Out(h, pt, pb, ky, sy); }
  uint32_t OutW() const { return Out(w, pl, pr, kx, sx); }

  std::vector<float> Reference() const {
    std::vector<float> out(static_cast<size_t>(c) * OutH() * OutW());
    PoolArgs a{};
    a.input = input.data();
    a.in_h = h;
    a.in_w = w;
    a.pad_t = pt;
    a.pad_l = pl;
    a.output = out.data();
    a.out_h = OutH();
    a.out_w = OutW();
    a.planes = c;
    a.lanes = 1;
    a.kernel_y = ky;
    a.kernel_x = kx;
    a.stride_y = sy;
    a.stride_x = sx;
    a.count_include_pad = include_pad;
    (max ? MaxPoolReference : AvgPoolReference)(a);
    return out;
  }
};

uint32_t LanesOf(PoolLayout layout) {
  return layout == PoolLayout::kC4HW4 ? 4 : layout == PoolLayout::kC8HW8 ? 8 : 1;
}

// Runs `m` on `l` in the layout of `lanes` as the net does and gives the output planar; checks its shape.
std::vector<float> RunMember(const Member& m, const Layer& l, uint32_t lanes) {
  const uint32_t layout = zvtest::LayoutOfLanes(lanes);
  return zvtest::RunOnMap(m.make(), l.Info(), l.input, l.c, l.h, l.w, layout, layout,
                          {l.c, l.OutH(), l.OutW()});
}

bool Takes(const Member& m, const Layer& l) {
  return (m.rule->kind == PoolKind::kMax) == l.max &&
         (m.rule->kernel_y == 0 || (m.rule->kernel_y == l.ky && m.rule->kernel_x == l.kx &&
                                    m.rule->stride_y == l.sy && m.rule->stride_x == l.sx));
}

std::vector<uint32_t> LanesToTry(const Member& m) {
  if (m.rule->layout == PoolLayout::kAny) return {1, 4, 8};
  return {LanesOf(m.rule->layout)};
}

// The reference against torch where the two agree; every row that takes a fixture case against torch too.
TEST(PoolingFamily, ReferenceAndMembersMatchTorch) {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/pool_fixture.txt");
  ASSERT_TRUE(file.good());
  const size_t count = static_cast<size_t>(zvtest::ReadFixtureRow(file).at(0));
  ASSERT_GE(count, 10u);
  size_t member_runs = 0;
  for (size_t k = 0; k < count; ++k) {
    const std::vector<float> head = zvtest::ReadFixtureRow(file);
    ASSERT_EQ(head.size(), 14u);
    Layer l;
    l.max = head[0] != 0;
    l.c = static_cast<uint32_t>(head[1]);
    l.h = static_cast<uint32_t>(head[2]);
    l.w = static_cast<uint32_t>(head[3]);
    l.ky = static_cast<uint32_t>(head[4]);
    l.kx = static_cast<uint32_t>(head[5]);
    l.sy = static_cast<uint32_t>(head[6]);
    l.sx = static_cast<uint32_t>(head[7]);
    l.pt = l.pb = static_cast<uint32_t>(head[8]);
    l.pl = l.pr = static_cast<uint32_t>(head[9]);
    l.ceil = head[10] != 0;
    l.include_pad = head[11] != 0;
    l.input = zvtest::ReadFixtureRow(file);
    const std::vector<float> expected = zvtest::ReadFixtureRow(file);
    const std::string what = "fixture case " + std::to_string(k);
    ASSERT_EQ(l.OutH(), static_cast<uint32_t>(head[12])) << what;
    ASSERT_EQ(l.OutW(), static_cast<uint32_t>(head[13])) << what;
    zvtest::ExpectAccuracy(l.Reference(), expected, Within(1e-6f, 1e-6f), "reference on " + what);
    for (const Member& m : AllMembers()) {
      if (!Takes(m, l) || !zvtest::CanRun(m.isa)) continue;
      for (const uint32_t lanes : LanesToTry(m)) {
        if (l.c % lanes != 0) continue;
        zvtest::ExpectAccuracy(RunMember(m, l, lanes), expected, Within(1e-6f, 1e-6f),
                               m.name + " on " + what);
        ++member_runs;
      }
    }
  }
  EXPECT_GE(member_runs, 20u);
}

// Every row over random layers it takes, against the reference under its accuracy class.
TEST(PoolingFamily, EveryMemberMatchesTheReference) {
  std::mt19937 rng(17);
  for (const Member& m : AllMembers()) {
    if (zvtest::SkipUnrunnable(m)) continue;
    for (const uint32_t lanes : LanesToTry(m)) {
      for (int round = 0; round < 12; ++round) {
        Layer l;
        l.max = m.rule->kind == PoolKind::kMax;
        const bool any = m.rule->kernel_y == 0;
        l.ky = any ? 1 + rng() % 5 : m.rule->kernel_y;
        l.kx = any ? 1 + rng() % 5 : m.rule->kernel_x;
        l.sy = any ? 1 + rng() % 3 : m.rule->stride_y;
        l.sx = any ? 1 + rng() % 3 : m.rule->stride_x;
        // Padding on each border up to half the window (every window keeps a tap on the input), none in
        // every fourth round.
        if (round % 4 != 0) {
          l.pt = rng() % (l.ky / 2 + 1);
          l.pb = rng() % (l.ky / 2 + 1);
          l.pl = rng() % (l.kx / 2 + 1);
          l.pr = rng() % (l.kx / 2 + 1);
        }
        l.ceil = (round & 1) != 0;
        l.include_pad = (round & 2) != 0;
        l.c = lanes * (1 + rng() % 3);
        // Sizes from the window up, odd ones included, wide enough in some rounds for full vectors and tails.
        l.h = l.ky + rng() % 16;
        l.w = l.kx + rng() % (round % 3 == 0 ? 64 : 10);
        l.input = zvtest::RandomFloats(static_cast<size_t>(l.c) * l.h * l.w, rng());
        const std::string what =
            m.name + " lanes " + std::to_string(lanes) + " round " + std::to_string(round) + ": " +
            std::to_string(l.h) + "x" + std::to_string(l.w) + " k" + std::to_string(l.ky) + "x" +
            std::to_string(l.kx) + " s" + std::to_string(l.sy) + "x" + std::to_string(l.sx) + " pad " +
            std::to_string(l.pt) + std::to_string(l.pb) + std::to_string(l.pl) + std::to_string(l.pr) +
            (l.ceil ? " ceil" : "") + (l.include_pad ? " include_pad" : "");
        zvtest::ExpectAccuracy(RunMember(m, l, lanes), l.Reference(), m.accuracy, what);
      }
    }
  }
}

// The sizes and divisors the layer fields give, and the zero-padded maximum.
TEST(PoolingFamily, ShapesDivisorsAndTheZeroPaddedMaximum) {
  const std::vector<Member> members = AllMembers();
  const auto find = [&](const std::string& name) -> const Member& {
    for (const Member& m : members)
      if (m.name == name) return m;
    ADD_FAILURE() << name;
    return members[0];
  };

  // Width 7, 2 x 2 window, stride 2: 3 columns, 4 in ceil mode (the last window half past the input).
  EXPECT_EQ(PoolOutputSize(7, 0, 0, 2, 2, false), 3u);
  EXPECT_EQ(PoolOutputSize(7, 0, 0, 2, 2, true), 4u);
  // A padded input smaller than the window is reported.
  EXPECT_THROW(PoolOutputSize(2, 0, 0, 4, 1, false), std::runtime_error);

  Layer l;
  l.c = 8;
  l.h = l.w = 5;
  l.ky = l.kx = 3;
  l.sy = l.sx = 2;
  l.pt = l.pb = l.pl = l.pr = 1;
  l.input.assign(8 * 25, 1.0f);
  // A corner window of a 3 x 3 average with padding 1 holds 4 ones: 4 / 4 without count_include_pad,
  // 4 / 9 with it.
  for (const char* name : {"Pooling2D_Avg_Fallback_Float_M1", "Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1",
                           "Pooling2D_Avg_K3x3_S2x2_AVX_C8HW8_Float_M1"}) {
    const Member& m = find(name);
    if (!zvtest::CanRun(m.isa)) continue;
    for (const bool include : {false, true}) {
      l.include_pad = include;
      const std::vector<float> out = RunMember(m, l, LanesOf(m.rule->layout));
      ASSERT_EQ(out.size(), 8u * 9u) << name;
      EXPECT_EQ(out[0], include ? 4.0f / 9.0f : 1.0f) << name;
      EXPECT_EQ(out[4], include ? 1.0f : 1.0f) << name;  // the middle window lies on the input
    }
  }

  // A maximum pads with 0.0: with padding 1, a corner window of negative values gives 0.0 (torch gives the
  // largest of the negative values), and a window on the input the largest of its values.
  l.max = true;
  for (float& v : l.input) v = -1.5f;
  l.input[6] = -0.25f;  // (1, 1) of channel 0
  for (const Member& m : members) {
    if (!l.max || m.rule->kind != PoolKind::kMax || !zvtest::CanRun(m.isa) ||
        (m.rule->kernel_y != 0 && m.rule->kernel_y != 3))
      continue;
    const std::vector<float> out = RunMember(m, l, LanesOf(m.rule->layout));
    ASSERT_EQ(out.size(), 8u * 9u) << m.name;
    EXPECT_EQ(out[0], 0.0f) << m.name;
    EXPECT_EQ(out[4], -0.25f) << m.name;
    EXPECT_EQ(out[9 + 4], -1.5f) << m.name;
  }
}

// What every row refuses: another window or stride (names read height first), the other kind of pooling,
// parameters of another backend; and the tensors it takes.
TEST(PoolingFamily, RefusalsAndChecks) {
  auto ctx = zvtest::MakeTestContext();
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    Layer own;
    own.max = m.rule->kind == PoolKind::kMax;
    own.ky = m.rule->kernel_y ? m.rule->kernel_y : 3;
    own.kx = m.rule->kernel_x ? m.rule->kernel_x : 2;
    own.sy = m.rule->stride_y ? m.rule->stride_y : 1;
    own.sx = m.rule->stride_x ? m.rule->stride_x : 2;
    Layer other = own;
    other.max = !own.max;
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    zvtest::ExpectCommonRefusals(*kernel, own.Info(), other.Info(), ctx);
    if (m.rule->kernel_y != 0) {
      for (int field = 0; field < 4; ++field) {
        Layer wrong = own;
        (field == 0 ? wrong.ky : field == 1 ? wrong.kx : field == 2 ? wrong.sy : wrong.sx) += 1;
        EXPECT_EQ(kernel->CheckSupport(wrong.Info(), nullptr), -1) << field;
      }
      if (own.ky != own.kx) {  // the window turned on its side
        Layer turned = own;
        std::swap(turned.ky, turned.kx);
        EXPECT_EQ(kernel->CheckSupport(turned.Info(), nullptr), -1);
      }
    } else {
      Layer big = own;
      big.ky = 11, big.kx = 1, big.sy = 5, big.sx = 7;
      EXPECT_EQ(kernel->CheckSupport(big.Info(), nullptr), 0);
    }
    ASSERT_TRUE(kernel->Config(own.Info(), nullptr, nullptr, ctx));
    const std::vector<float> data(64, 1.0f);
    const auto chw = zvtest::MakeTensor(ctx, {8, 2, 4}, Layout::CHW, data);
    const auto c4 = zvtest::MakeTensor(ctx, {2, 2, 4, 4}, Layout::C4HW4, data);
    const auto c8 = zvtest::MakeTensor(ctx, {1, 2, 4, 8}, Layout::C8HW8, data);
    const uint32_t lanes = LanesOf(m.rule->layout);
    const bool any = m.rule->layout == PoolLayout::kAny;
    EXPECT_EQ(kernel->CheckInputs({chw}), any || lanes == 1 ? 0 : -2);
    EXPECT_EQ(kernel->CheckInputs({c4}), any || lanes == 4 ? 0 : -2);
    EXPECT_EQ(kernel->CheckInputs({c8}), any || lanes == 8 ? 0 : -2);
    EXPECT_EQ(kernel->CheckOutputs({chw, chw}), -2);
    EXPECT_EQ(kernel->CheckInputs({zvtest::MakeTensor(ctx, {8, 8}, Layout::CHW, data)}), -2);
  }
  // K5x4 is 5 high and 4 wide: a window 4 high and 5 wide is refused.
  Layer tall;
  tall.ky = 4, tall.kx = 5, tall.sy = tall.sx = 1;
  EXPECT_EQ(Pooling2D_Avg_K5x4_S1x1_AVX_C8HW8_Float_M1().CheckSupport(tall.Info(), nullptr), -1);
  std::swap(tall.ky, tall.kx);
  EXPECT_EQ(Pooling2D_Avg_K5x4_S1x1_AVX_C8HW8_Float_M1().CheckSupport(tall.Info(), nullptr), 0);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
