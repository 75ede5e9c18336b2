// One tester over every planar convolution member (fallback, SGEMM, SSE 2D and depthwise lists): random
// layers drawn from each member's rule, with tails, padding and bias on and off, against the plain reference
// convolution; refusals derived from the rule; tensor checks; and torch.nn.Conv2d fixtures.
#include "zelva/src/kernel/cpu/fallback/conv2d/planar_conv2d.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/model_builder.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_reference.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/members.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/kernel/cpu/sgemm/conv2d/members.h"
#include "zelva/src/kernel/cpu/sse/conv2d/members.h"
#include "zelva/src/kernel/cpu/sse/depthwise/members.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  std::string name;
  const Conv2dRule* rule;
  bool exact;  // same order of additions as the reference; the BLAS member only within rounding
  std::function<std::shared_ptr<runtime::IKernel>()> make;
};

std::vector<Member> AllMembers() {
  std::vector<Member> members;
#define ZV_TEST_MEMBER(group, cls, ...)                                            \
  members.push_back({#cls, &cls##_rule, KernelGroup::group != KernelGroup::kSGEMM, \
                     [] { return std::shared_ptr<runtime::IKernel>(new cls()); }});
  ZV_FALLBACK_CONV2D_MEMBERS(ZV_TEST_MEMBER)
  ZV_SGEMM_CONV2D_MEMBERS(ZV_TEST_MEMBER)
  ZV_SSE_CONV2D_MEMBERS(ZV_TEST_MEMBER)
  ZV_SSE_DEPTHWISE_MEMBERS(ZV_TEST_MEMBER)
#undef ZV_TEST_MEMBER
  return members;
}

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
    info->weight = zvtest::WeightText(weight);
    info->bias = bias ? zvtest::WeightText(bias_values) : std::string();
    return info;
  }
};

// The reference on the unpadded input, with the layer's own padding.
std::vector<float> Reference(const Layer& l, const std::vector<float>& input,
                             const std::vector<float>& weight, const std::vector<float>& bias) {
  const Conv2dParam p = ToParam(l.Info());
  std::vector<float> out(static_cast<size_t>(l.out) * l.OutH() * l.OutW());
  PlanarConvArgs a{input.data(),
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
  Conv2dReference(a);
  return out;
}

uint32_t Pick(std::mt19937& rng, uint32_t rule, uint32_t lo, uint32_t hi) {
  if (rule != kConvAny && rule != kConvNonZero) return rule;
  return lo + rng() % (hi - lo + 1);
}

uint32_t PickPad(std::mt19937& rng, int32_t rule) {
  return rule == kConvPadAny ? rng() % 3 : static_cast<uint32_t>(rule);
}

// A random layer that the rule accepts, with random data.
Layer RandomLayer(const Conv2dRule& r, std::mt19937& rng) {
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
  if (r.channels == ConvChannels::kDepthwise) {
    l.groups = l.in = l.out = 1 + rng() % 19;
  } else {
    l.groups = r.groups == ConvGroups::kExactlyOne ? 1 : 1 + rng() % 3;
    l.in = l.groups * (1 + rng() % 7);
    l.out = l.groups * (1 + rng() % 7);
  }
  // Sizes from the smallest that holds the dilated kernel up to about 40, so that every tail occurs.
  const int64_t min_h = static_cast<int64_t>(l.dy) * (l.ky - 1) + 1 - l.pt - l.pb;
  const int64_t min_w = static_cast<int64_t>(l.dx) * (l.kx - 1) + 1 - l.pl - l.pr;
  l.h = static_cast<uint32_t>(std::max<int64_t>(1, min_h) + rng() % 12);
  l.w = static_cast<uint32_t>(std::max<int64_t>(1, min_w) + rng() % 40);
  l.bias = rng() % 2 == 0;
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  l.weight.resize(static_cast<size_t>(l.out) * (l.in / l.groups) * l.ky * l.kx);
  for (float& v : l.weight) v = u(rng);
  l.bias_values.resize(l.out);
  for (float& v : l.bias_values) v = u(rng);
  l.input.resize(static_cast<size_t>(l.in) * l.h * l.w);
  for (float& v : l.input) v = u(rng);
  return l;
}

std::vector<float> Abs(std::vector<float> v) {
  for (float& x : v) x = std::fabs(x);
  return v;
}

class PlanarConv2dTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> Planar(const std::vector<uint32_t>& dims, const std::vector<float>& values,
                                          uint32_t type = DataType::FLOAT32, uint32_t layout = Layout::CHW) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, TensorShape(dims, type, layout),
                                           values.empty() ? nullptr : values.data());
    return t;
  }
  std::vector<float> Run(runtime::IKernel& kernel, const Layer& l) {
    runtime::TensorList outputs;
    kernel.Forward({Planar({l.in, l.h, l.w}, l.input)}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    if (outputs.empty()) return {};
    const TensorShape& s = outputs[0]->shape;
    EXPECT_EQ(s.dims, (std::vector<uint32_t>{l.out, l.OutH(), l.OutW()}));
    EXPECT_EQ(s.layout, Layout::CHW);
    EXPECT_EQ(kernel.GetOutputShapes({TensorShape({l.in, l.h, l.w}, DataType::FLOAT32, Layout::CHW)})[0].dims,
              s.dims);
    return std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + s.ElementCount());
  }
  // Runs `member` on `l` and compares with `want`: bit for bit for the exact members, otherwise within a
  // bound scaled by the magnitude of the terms (`magnitude`, the reference on absolute values).
  void Compare(const Member& member, const Layer& l, const std::vector<float>& want,
               const std::vector<float>& magnitude, bool exact) {
    auto kernel = member.make();
    ASSERT_TRUE(kernel->Config(l.Info(), nullptr, nullptr, context_));
    const std::vector<float> got = Run(*kernel, l);
    ASSERT_EQ(got.size(), want.size());
    for (size_t k = 0; k < got.size(); ++k) {
      if (exact) {
        ASSERT_EQ(got[k], want[k]) << "at " << k;
      } else {
        ASSERT_NEAR(got[k], want[k], 4e-6f * (1.0f + magnitude[k])) << "at " << k;
      }
    }
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_F(PlanarConv2dTest, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(11);
  for (const Member& m : AllMembers()) {
    for (int round = 0; round < 60; ++round) {
      const Layer l = RandomLayer(*m.rule, rng);
      SCOPED_TRACE(m.name + " " + l.Describe());
      auto kernel = m.make();
      ASSERT_EQ(kernel->CheckSupport(l.Info(), nullptr), 0);
      const std::vector<float> want = Reference(l, l.input, l.weight, l.bias_values);
      const std::vector<float> magnitude = Reference(l, Abs(l.input), Abs(l.weight), Abs(l.bias_values));
      Compare(m, l, want, magnitude, m.exact);
      if (HasFatalFailure()) return;
    }
  }
}

// Each member refuses a layer that breaks one clause of its rule, and any layer with an InferenceParam or of
// another kind.
TEST_F(PlanarConv2dTest, RefusalsFollowTheRule) {
  std::mt19937 rng(5);
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    const Conv2dRule& r = *m.rule;
    const Layer base = RandomLayer(r, rng);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), nullptr), 0);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ConvTranspose2dInfo>(), nullptr), -1);
    EXPECT_EQ(kernel->CheckSupport(nullptr, nullptr), -1);
    EXPECT_FALSE(
        kernel->Config(base.Info(), std::make_shared<runtime::InferenceParamActQuant>(), nullptr, context_));
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
      if (rule != kConvAny && rule != kConvNonZero)
        refused("other geometry",
                [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule + 1); });
    }
    const std::pair<int32_t, uint16_t runtime::Conv2dInfo::*> pads[] = {
        {r.padding_l, &runtime::Conv2dInfo::padding_l},
        {r.padding_r, &runtime::Conv2dInfo::padding_r},
        {r.padding_t, &runtime::Conv2dInfo::padding_t},
        {r.padding_b, &runtime::Conv2dInfo::padding_b},
    };
    for (const auto& [rule, field] : pads) {
      if (rule != kConvPadAny)
        refused("padding", [&](runtime::Conv2dInfo& i) { i.*field = static_cast<uint16_t>(rule + 1); });
    }
    if (r.groups != ConvGroups::kNotTested) refused("groups 0", [](runtime::Conv2dInfo& i) { i.groups = 0; });
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

TEST_F(PlanarConv2dTest, TensorChecksAndReportedMisuse) {
  std::mt19937 rng(9);
  for (const Member& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    Layer l = RandomLayer(*m.rule, rng);
    auto kernel = m.make();
    ASSERT_TRUE(kernel->Config(l.Info(), nullptr, nullptr, context_));
    const std::vector<uint32_t> dims = {l.in, l.h, l.w};
    EXPECT_EQ(kernel->CheckInputs({Planar(dims, l.input)}), 0);
    EXPECT_EQ(kernel->CheckInputs({Planar(dims, {}, DataType::FLOAT16)}), 0);
    EXPECT_EQ(kernel->CheckInputs({Planar(dims, {}, DataType::INT32)}), -2);
    EXPECT_EQ(kernel->CheckInputs({Planar({l.in + 1, l.h, l.w}, {})}), -2);
    EXPECT_EQ(kernel->CheckInputs({Planar(dims, {}, DataType::FLOAT32, Layout::HWC)}), -2);
    EXPECT_EQ(kernel->CheckInputs({Planar(dims, l.input), Planar(dims, l.input)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({Planar(dims, {})}), 0);
    EXPECT_EQ(kernel->CheckOutputs({Planar(dims, {}, DataType::FLOAT16)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);

    // A tensor of another channel count, or too small for the kernel, is reported instead of read past.
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({Planar({l.in + 1, l.h, l.w}, {})}, outputs, context_), std::runtime_error);
    if (l.ky > 1 && l.pt + l.pb == 0) {
      EXPECT_THROW(kernel->Forward({Planar({l.in, 1, l.w}, {})}, outputs, context_), std::runtime_error);
    }

    // A weight text shorter than the fields ask for fails Config.
    auto info = l.Info();
    info->weight = zvtest::WeightText(std::vector<float>(l.weight.size() - 1, 0.0f));
    EXPECT_THROW(m.make()->Config(info, nullptr, nullptr, context_), std::runtime_error);
  }
}

std::vector<float> ReadRow(std::istream& in) {
  std::string line;
  std::getline(in, line);
  std::istringstream row(line);
  std::vector<float> values;
  float v;
  while (row >> v) values.push_back(v);
  return values;
}

// torch.nn.Conv2d results (tools/gen_conv_fixture.py), run by every member that accepts the layer.
TEST_F(PlanarConv2dTest, MatchesFrameworkFixtures) {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/conv2d_fixture.txt");
  ASSERT_TRUE(file.good());
  const std::vector<float> count = ReadRow(file);
  ASSERT_EQ(count.size(), 1u);
  std::set<std::string> ran;
  for (int c = 0; c < static_cast<int>(count[0]); ++c) {
    std::string name;
    std::getline(file, name);
    const std::vector<float> f = ReadRow(file);
    ASSERT_EQ(f.size(), 16u) << name;
    Layer l;
    uint32_t* fields[] = {&l.in, &l.out, &l.h,      &l.w,  &l.ky, &l.kx, &l.sy, &l.sx,
                          &l.dy, &l.dx,  &l.groups, &l.pl, &l.pr, &l.pt, &l.pb};
    for (int k = 0; k < 15; ++k) *fields[k] = static_cast<uint32_t>(f[k]);
    l.bias = f[15] != 0.0f;
    l.weight = ReadRow(file);
    l.bias_values = ReadRow(file);
    l.input = ReadRow(file);
    const std::vector<float> want = ReadRow(file);
    ASSERT_EQ(want.size(), static_cast<size_t>(l.out) * l.OutH() * l.OutW()) << name;
    const std::vector<float> magnitude = Reference(l, Abs(l.input), Abs(l.weight), Abs(l.bias_values));
    for (const Member& m : AllMembers()) {
      if (m.make()->CheckSupport(l.Info(), nullptr) != 0) continue;
      SCOPED_TRACE(name + " by " + m.name);
      Compare(m, l, want, magnitude, false);
      ran.insert(name + " " + m.name);
    }
  }
  // The cases each member family was made for.
  for (const char* expected : {"pointwise_16_16 Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                               "pointwise_16_16 Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
                               "pointwise_grouped Conv2d_K1x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                               "pointwise_grouped Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1",
                               "depthwise_padded Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
                               "depthwise_valid Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
                               "general Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"}) {
    EXPECT_EQ(ran.count(expected), 1u) << expected;
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
