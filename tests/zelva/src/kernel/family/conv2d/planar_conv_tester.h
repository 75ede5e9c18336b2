// The tester of the convolution families (2D convolution and depthwise), planar and channel-blocked rows
// alike: every row of a member list over random layers drawn from its rule (tails, padding, groups, whole
// channel blocks, bias on and off) against the family reference under the row's accuracy class, a blocked
// row's input blocked and its output unblocked here; refusals derived from the rule; tensor checks and
// reported misuse; and the torch.nn.Conv2d fixtures (tests/data/conv2d_fixture.txt,
// tools/gen_conv_fixture.py), which hold the reference itself and every row that accepts a case.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"

namespace zvtest {
namespace conv {

using zelva::kernel::Accuracy;
using zelva::kernel::Conv2dRule;
using zelva::kernel::ConvChannels;
using zelva::kernel::ConvGroups;
using zelva::kernel::ConvLayout;
using zelva::kernel::Isa;
using zelva::kernel::kConvAny;
using zelva::kernel::kConvNonZero;
using zelva::kernel::kConvPadAny;
namespace runtime = zelva::runtime;

// One row of a convolution list.
struct Member {
  std::string name;
  Isa isa;
  Accuracy accuracy;
  const Conv2dRule* rule;
  std::function<std::shared_ptr<runtime::IKernel>()> make;
  ConvLayout layout = ConvLayout::kCHW;  // the frame: which layouts the member reads and writes
};

// Expands a list into Members: ZV_CONV2D_MEMBERS(ZV_TEST_CONV_MEMBER) inside a function with `members`.
#define ZV_TEST_CONV_MEMBER(group, isa, cls, accuracy, layout, ...)                                         \
  members.push_back({#cls, ::zelva::kernel::Isa::isa, ::zelva::kernel::accuracy,                            \
                     &::zelva::kernel::cls##_rule,                                                          \
                     [] { return std::shared_ptr<::zelva::runtime::IKernel>(new ::zelva::kernel::cls()); }, \
                     ::zelva::kernel::ConvLayout::k##layout});

using Reference = void (*)(const zelva::kernel::PlanarConvArgs&);

// A layer and its data, in the fields of the description.
struct Layer {
  uint32_t in = 1, out = 1, h = 1, w = 1, ky = 1, kx = 1, sy = 1, sx = 1, dy = 1, dx = 1, groups = 1;
  uint32_t pl = 0, pr = 0, pt = 0, pb = 0;
  bool bias = false;
  std::vector<float> weight, bias_values, input;

  uint32_t OutH() const { return (h + pt + pb - (dy * (ky - 1) + 1)) / sy + 1; }
  uint32_t OutW() const { return (w + pl + pr - (dx * (kx - 1) + 1)) / sx + 1; }
  std::string Describe() const {
    std::ostringstream s;
    s << in << "->" << out << " " << h << "x" << w << " k" << ky << "x" << kx << " s" << sy << "x" << sx
      << " d" << dy << "x" << dx << " g" << groups << " pad " << pl << "," << pr << "," << pt << "," << pb
      << (bias ? " bias" : "");
    return s.str();
  }
  std::shared_ptr<runtime::Conv2dInfo> Info() const {
    auto info = std::make_shared<runtime::Conv2dInfo>();
    info->id = "conv";
    info->in_channels = static_cast<uint16_t>(in);
    info->out_channels = static_cast<uint16_t>(out);
    info->kernel_y = static_cast<uint16_t>(ky);
    info->kernel_x = static_cast<uint16_t>(kx);
    info->stride_y = static_cast<uint16_t>(sy);
    info->stride_x = static_cast<uint16_t>(sx);
    info->dilation_y = static_cast<uint16_t>(dy);
    info->dilation_x = static_cast<uint16_t>(dx);
    info->groups = static_cast<uint16_t>(groups);
    info->padding_l = static_cast<uint16_t>(pl);
    info->padding_r = static_cast<uint16_t>(pr);
    info->padding_t = static_cast<uint16_t>(pt);
    info->padding_b = static_cast<uint16_t>(pb);
    info->if_bias = bias;
    info->weight = WeightText(weight);
    info->bias = bias ? WeightText(bias_values) : std::string();
    return info;
  }
};

inline std::vector<float> Abs(std::vector<float> v) {
  for (float& x : v) x = std::fabs(x);
  return v;
}

// `reference` on the layer with its own padding; with `magnitude`, on the absolute values of every term,
// which is the scale of the family's error bounds.
inline std::vector<float> RunReference(Reference reference, const Layer& l, bool magnitude = false) {
  const zelva::kernel::Conv2dParam p = zelva::kernel::ToParam(l.Info());
  const std::vector<float> input = magnitude ? Abs(l.input) : l.input;
  const std::vector<float> weight = magnitude ? Abs(l.weight) : l.weight;
  const std::vector<float> bias = magnitude ? Abs(l.bias_values) : l.bias_values;
  std::vector<float> out(static_cast<size_t>(l.out) * l.OutH() * l.OutW());
  const zelva::kernel::PlanarConvArgs a{input.data(),
                                        l.h,
                                        l.w,
                                        l.pl,
                                        l.pr,
                                        l.pt,
                                        l.pb,
                                        out.data(),
                                        l.OutH(),
                                        l.OutW(),
                                        weight.data(),
                                        l.bias ? bias.data() : nullptr,
                                        &p};
  reference(a);
  return out;
}

inline uint32_t Pick(std::mt19937& rng, uint32_t rule, uint32_t lo, uint32_t hi) {
  if (rule != kConvAny && rule != kConvNonZero) return rule;
  return lo + rng() % (hi - lo + 1);
}

inline uint32_t PickPad(std::mt19937& rng, int32_t rule) {
  return rule == kConvPadAny ? rng() % 3 : static_cast<uint32_t>(rule);
}

// A random layer that the rule accepts, with random data; with `block`, whole blocks of channels per group.
// Sizes from the smallest that holds the dilated kernel up to about 40, so that every tail occurs.
inline Layer RandomLayer(const Conv2dRule& r, std::mt19937& rng, uint32_t block = 1) {
  Layer l;
  l.ky = Pick(rng, r.kernel_y, 1, 4);
  l.kx = Pick(rng, r.kernel_x, 1, 4);
  l.sy = Pick(rng, r.stride_y, 1, 3);
  l.sx = Pick(rng, r.stride_x, 1, 3);
  l.dy = Pick(rng, r.dilation_y, 1, 2);
  l.dx = Pick(rng, r.dilation_x, 1, 2);
  l.pl = PickPad(rng, r.padding_l);
  l.pr = PickPad(rng, r.padding_r);
  l.pt = PickPad(rng, r.padding_t);
  l.pb = PickPad(rng, r.padding_b);
  if (block > 1) {
    l.groups = r.groups == ConvGroups::kExactlyOne || rng() % 3 != 0 ? 1 : 2;
    l.in = l.groups * block * (1 + rng() % 3);
    l.out = l.groups * block * (1 + rng() % 3);
  } else if (r.channels == ConvChannels::kDepthwise) {
    l.groups = l.in = l.out = 1 + rng() % 19;
  } else if (r.channels == ConvChannels::kIn3OutMult4 || r.channels == ConvChannels::kIn3OutMult8) {
    const uint32_t lanes = r.channels == ConvChannels::kIn3OutMult4 ? 4 : 8;
    l.groups = r.groups != ConvGroups::kExactlyOne && rng() % 3 == 0 ? 3 : 1;
    l.in = 3;
    l.out = lanes * l.groups * (1 + rng() % 2);
  } else if (r.channels == ConvChannels::kInMult8Out1) {
    l.in = 8 * (1 + rng() % 3);
    l.out = 1;
  } else {
    l.groups = r.groups == ConvGroups::kExactlyOne ? 1 : 1 + rng() % 3;
    l.in = l.groups * (1 + rng() % 7);
    l.out = l.groups * (1 + rng() % 7);
  }
  const int64_t min_h = static_cast<int64_t>(l.dy) * (l.ky - 1) + 1 - l.pt - l.pb;
  const int64_t min_w = static_cast<int64_t>(l.dx) * (l.kx - 1) + 1 - l.pl - l.pr;
  // Now and then a row of one pixel, and widths around the vector sizes.
  const uint32_t pick_w[] = {1, 7, 8, 9, static_cast<uint32_t>(2 + rng() % 40)};
  l.h = static_cast<uint32_t>(std::max<int64_t>(1, min_h) + (rng() % 6 == 0 ? 0 : rng() % 12));
  l.w = static_cast<uint32_t>(std::max<int64_t>(std::max<int64_t>(1, min_w), pick_w[rng() % 5]));
  l.bias = rng() % 2 == 0;
  l.weight = RandomFloats(static_cast<size_t>(l.out) * (l.in / l.groups) * l.ky * l.kx, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(l.out, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(static_cast<size_t>(l.in) * l.h * l.w, rng(), -1.0f, 1.0f);
  return l;
}

// The lanes of a row whose input and output are both blocked; 1 for the planar and relayout rows.
inline uint32_t BlockOf(const Member& m) {
  return m.layout == ConvLayout::kC4HW4 ? 4 : m.layout == ConvLayout::kC8HW8 ? 8 : 1;
}

// A random layer of the row's rule, and of whole channel blocks for a blocked row.
inline Layer RandomLayerOf(const Member& m, std::mt19937& rng) {
  return RandomLayer(*m.rule, rng, BlockOf(m));
}
using LayerMaker = std::function<Layer(const Member&, std::mt19937&)>;

// Runs `m` on `l` as the net does and holds the output (shape, layout, values) to `want` under the row's
// accuracy, the bound scaled by the magnitude of the terms.
inline void ExpectMember(const Member& m, const Layer& l, const std::vector<float>& want,
                         const std::vector<float>& magnitude, const std::string& what) {
  ExpectAccuracy(
      RunOnMap(m.make(), l.Info(), l.input, l.in, l.h, l.w, zelva::kernel::ConvInputLayout(m.layout),
               zelva::kernel::ConvOutputLayout(m.layout), {l.out, l.OutH(), l.OutW()}),
      want, m.accuracy, what, &magnitude);
}

// Every row the processor runs, over `rounds` random layers of its rule, against `reference`.
inline void ExpectMembersMatchReference(const std::vector<Member>& members, Reference reference, int rounds,
                                        const LayerMaker& make_layer = RandomLayerOf) {
  std::mt19937 rng(11);
  for (const Member& m : members) {
    if (SkipUnrunnable(m)) continue;
    for (int round = 0; round < rounds; ++round) {
      const Layer l = make_layer(m, rng);
      const std::string what = m.name + " " + l.Describe();
      ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
      ExpectMember(m, l, RunReference(reference, l), RunReference(reference, l, true), what);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

// Each row refuses a layer that breaks one clause of its rule (a fixed size one above and one below), and any
// layer with an InferenceParam or of another kind; Config refuses what CheckSupport refuses.
inline void ExpectRefusalsFollowTheRule(const std::vector<Member>& members) {
  std::mt19937 rng(5);
  auto ctx = MakeTestContext();
  for (const Member& m : members) {
    SCOPED_TRACE(m.name);
    const Conv2dRule& r = *m.rule;
    const Layer base = RandomLayerOf(m, rng);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), nullptr), 0);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ConvTranspose2dInfo>(), nullptr), -1);
    EXPECT_FALSE(
        kernel->Config(base.Info(), std::make_shared<runtime::InferenceParamActQuant>(), nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfigured());

    auto refused = [&](const char* what, const std::function<void(runtime::Conv2dInfo&)>& change) {
      auto info = base.Info();
      change(*info);
      EXPECT_EQ(kernel->CheckSupport(info, nullptr), -1) << what;
    };
    const std::pair<uint32_t, uint16_t runtime::Conv2dInfo::*> geometry[] = {
        {r.kernel_y, &runtime::Conv2dInfo::kernel_y},     {r.kernel_x, &runtime::Conv2dInfo::kernel_x},
        {r.stride_y, &runtime::Conv2dInfo::stride_y},     {r.stride_x, &runtime::Conv2dInfo::stride_x},
        {r.dilation_y, &runtime::Conv2dInfo::dilation_y}, {r.dilation_x, &runtime::Conv2dInfo::dilation_x},
    };
    for (const auto& [rule, field] : geometry) {
      if (rule == kConvNonZero) refused("zero geometry", [&](runtime::Conv2dInfo& i) { i.*field = 0; });
      if (rule != kConvAny && rule != kConvNonZero) {  // one above and one below the fixed value
        refused("larger geometry",
                [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule + 1); });
        refused("smaller geometry",
                [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule - 1); });
      }
    }
    const std::pair<int32_t, uint16_t runtime::Conv2dInfo::*> pads[] = {
        {r.padding_l, &runtime::Conv2dInfo::padding_l},
        {r.padding_r, &runtime::Conv2dInfo::padding_r},
        {r.padding_t, &runtime::Conv2dInfo::padding_t},
        {r.padding_b, &runtime::Conv2dInfo::padding_b},
    };
    for (const auto& [rule, field] : pads) {
      if (rule != kConvPadAny)
        refused("more padding", [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule + 1); });
      if (rule != kConvPadAny && rule > 0)
        refused("less padding", [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule - 1); });
    }
    if (r.groups != ConvGroups::kNotTested) refused("groups 0", [](runtime::Conv2dInfo& i) { i.groups = 0; });
    if (r.groups == ConvGroups::kExactlyOne)
      refused("groups 2", [](runtime::Conv2dInfo& i) { i.groups = 2; });
    if (r.channels == ConvChannels::kIn3OutMult4 || r.channels == ConvChannels::kIn3OutMult8) {
      refused("in != 3", [](runtime::Conv2dInfo& i) { i.in_channels = 4; });
      refused("out not a block multiple", [](runtime::Conv2dInfo& i) { i.out_channels += 1; });
      const uint16_t half = r.channels == ConvChannels::kIn3OutMult4 ? 2 : 4;
      refused("out half a block off", [half](runtime::Conv2dInfo& i) { i.out_channels += half; });
    }
    if (r.channels == ConvChannels::kInMult8Out1) {
      refused("out != 1", [](runtime::Conv2dInfo& i) { i.out_channels = 2; });
      refused("in not a block multiple", [](runtime::Conv2dInfo& i) { i.in_channels += 4; });
    }
    if (r.channels == ConvChannels::kNonZero) {
      refused("no inputs", [](runtime::Conv2dInfo& i) { i.in_channels = 0; });
      refused("no outputs", [](runtime::Conv2dInfo& i) { i.out_channels = 0; });
    }
    if (r.channels == ConvChannels::kDepthwise) {
      refused("in != groups",
              [](runtime::Conv2dInfo& i) { i.in_channels = static_cast<uint16_t>(i.groups + 1); });
      refused("out != groups",
              [](runtime::Conv2dInfo& i) { i.out_channels = static_cast<uint16_t>(i.groups * 2); });
    }
  }
}

// The tensor checks, and misuse that is reported instead of read past: a tensor of another channel count or
// too small for the kernel, a weight text shorter than the fields ask for, Forward before Config.
inline void ExpectTensorChecksAndReportedMisuse(const std::vector<Member>& members,
                                                const LayerMaker& make_layer = RandomLayerOf) {
  using runtime::DataType;
  using runtime::Layout;
  std::mt19937 rng(9);
  auto ctx = MakeTestContext();
  for (const Member& m : members) {
    SCOPED_TRACE(m.name);
    const Layer l = make_layer(m, rng);
    auto kernel = m.make();
    ASSERT_TRUE(kernel->Config(l.Info(), nullptr, nullptr, ctx));
    const uint32_t in = zelva::kernel::ConvInputLayout(m.layout),
                   out = zelva::kernel::ConvOutputLayout(m.layout);
    auto tensor = [&](std::vector<uint32_t> dims, uint32_t type = DataType::FLOAT32,
                      uint32_t layout = 0xFFu) {
      return ShapedTensor(ctx, std::move(dims), layout == 0xFFu ? in : layout, type);
    };
    // Another layout of the same dims: the other block size, or a blocked code on planar dims.
    const auto other = [](uint32_t layout) {
      return layout == Layout::C4HW4 ? Layout::C8HW8 : Layout::C4HW4;
    };
    const std::vector<uint32_t> dims = MapDims(in, l.in, l.h, l.w);
    const std::vector<uint32_t> more = MapDims(in, l.in + LanesOf(in), l.h, l.w);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::FLOAT16)}), 0);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::INT32)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(more)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::FLOAT32, Layout::HWC)}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims, DataType::FLOAT32, other(in))}), -2);
    EXPECT_EQ(kernel->CheckInputs({tensor(dims), tensor(dims)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, DataType::FLOAT32, out)}), 0);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, DataType::FLOAT16, out)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(dims, DataType::FLOAT32, other(out))}), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);

    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({tensor(more)}, outputs, ctx), std::runtime_error);
    if (LanesOf(in) > 1) {
      EXPECT_THROW(kernel->Forward({tensor({l.in, l.h, l.w}, DataType::FLOAT32, Layout::CHW)}, outputs, ctx),
                   std::runtime_error);
    }
    if (l.ky > 1 && l.pt + l.pb == 0) {
      EXPECT_THROW(kernel->Forward({tensor(MapDims(in, l.in, 1, l.w))}, outputs, ctx), std::runtime_error);
    }
    EXPECT_THROW(m.make()->Forward({tensor(dims)}, outputs, ctx), std::runtime_error);  // not configured

    auto info = l.Info();
    info->weight = WeightText(std::vector<float>(l.weight.size() - 1, 0.0f));
    EXPECT_THROW(m.make()->Config(info, nullptr, nullptr, ctx), std::runtime_error);
  }
}

// The fixture cases: name, then a row of 16 fields (in, out, h, w, ky, kx, sy, sx, dy, dx, groups, pl, pr,
// pt, pb, bias), then weight, bias, input and torch's output, one row each.
struct FixtureCase {
  std::string name;
  Layer layer;
  std::vector<float> want;
};

inline std::vector<FixtureCase> ReadConvFixture(const std::string& file_name = "conv2d_fixture.txt") {
  std::vector<FixtureCase> cases;
  ForEachFixtureCase(file_name, [&](const std::string& name, std::istream& file) {
    FixtureCase fc;
    fc.name = name;
    const std::vector<float> f = ReadFixtureRow(file);
    ASSERT_EQ(f.size(), 16u) << fc.name;
    Layer& l = fc.layer;
    uint32_t* fields[] = {&l.in, &l.out, &l.h,      &l.w,  &l.ky, &l.kx, &l.sy, &l.sx,
                          &l.dy, &l.dx,  &l.groups, &l.pl, &l.pr, &l.pt, &l.pb};
    for (int k = 0; k < 15; ++k) *fields[k] = static_cast<uint32_t>(f[k]);
    l.bias = f[15] != 0.0f;
    l.weight = ReadFixtureRow(file);
    l.bias_values = ReadFixtureRow(file);
    l.input = ReadFixtureRow(file);
    fc.want = ReadFixtureRow(file);
    EXPECT_EQ(fc.want.size(), static_cast<size_t>(l.out) * l.OutH() * l.OutW()) << fc.name;
    cases.push_back(std::move(fc));
  });
  return cases;
}

// The bound of a reference against torch: 4e-6 * (1 + the magnitude of the terms).
inline constexpr Accuracy kAgainstTorch = zelva::kernel::Within(4e-6f, 4e-6f);

// Holds `reference` to torch on every case of `file_name` that `takes`, and every row accepting a case (in
// whole channel blocks per group where it is blocked, or per channel for the depthwise rows) to the reference
// under its accuracy; returns "case member" for each row that ran.
inline std::set<std::string> ExpectFixtures(const std::vector<Member>& members, Reference reference,
                                            const std::function<bool(const Layer&)>& takes,
                                            const std::string& file_name = "conv2d_fixture.txt",
                                            bool one_kernel_per_channel = false) {
  std::set<std::string> ran;
  for (const FixtureCase& fc : ReadConvFixture(file_name)) {
    if (!takes(fc.layer)) continue;
    const std::vector<float> magnitude = RunReference(reference, fc.layer, true);
    const std::vector<float> want = RunReference(reference, fc.layer);
    ExpectAccuracy(want, fc.want, kAgainstTorch, fc.name + " by the reference", &magnitude);
    ran.insert(fc.name + " reference");
    for (const Member& m : members) {
      const uint32_t whole = BlockOf(m) * (one_kernel_per_channel ? 1 : fc.layer.groups);
      if (!CanRun(m.isa) || fc.layer.in % whole != 0 || fc.layer.out % whole != 0 ||
          m.make()->CheckSupport(fc.layer.Info(), nullptr) != 0)
        continue;
      ExpectMember(m, fc.layer, want, magnitude, fc.name + " by " + m.name);
      ran.insert(fc.name + " " + m.name);
    }
  }
  return ran;
}

}  // namespace conv
}  // namespace zvtest
