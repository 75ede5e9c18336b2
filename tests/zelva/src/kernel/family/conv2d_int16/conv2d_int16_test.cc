// The 16-bit integer 1x1 convolution: the reference against PyTorch on quantised values
// (tests/data/conv2d_int16_fixture.txt, tools/gen_conv2d_int16_fixture.py; ties, saturation, sums beyond 24
// bits), the member against the reference bit for bit on random layers (blocked input, by index), and the
// layers it refuses: no parameter, another geometry, steps out of range.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/conv2d_int16/members.h"
#include "zelva/src/kernel/family/conv2d_int16/reference.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;
using zelva::kernel::Conv2dInt16Reference;

using Member = PlainMember;

std::vector<Member> Members() {
  return ZV_PLAIN_MEMBERS(ZV_CONV2D_INT16_MEMBERS);
}

struct Layer {
  uint32_t in, out, h, w;
  int32_t ws, xs;
  bool bias;
  std::vector<float> weight, bias_values, input;

  std::shared_ptr<runtime::Conv2dInfo> Info() const {
    auto info = std::make_shared<runtime::Conv2dInfo>();
    info->in_channels = static_cast<uint16_t>(in);
    info->out_channels = static_cast<uint16_t>(out);
    info->kernel_x = info->kernel_y = 1;
    info->groups = 1;
    info->if_bias = bias;
    info->weight = WeightText(weight);
    if (bias) info->bias = WeightText(bias_values);
    return info;
  }
  std::shared_ptr<runtime::InferenceParamConv2DQuant> Param() const {
    auto p = std::make_shared<runtime::InferenceParamConv2DQuant>();
    p->weight_step_size = static_cast<int16_t>(ws);
    p->output_step_size = static_cast<int16_t>(xs);
    return p;
  }
  std::vector<float> Reference() const {
    std::vector<float> out_values(static_cast<size_t>(out) * h * w);
    Conv2dInt16Reference(input.data(), in, h * w, weight.data(), bias ? bias_values.data() : nullptr, out, ws,
                         xs, out_values.data());
    return out_values;
  }
};

// Runs the member as the net does (with its parameter), input blocked and output unblocked.
std::vector<float> RunMember(const Member& m, const Layer& l) {
  static const auto ctx = MakeTestContext();  // outlives the kernel's weights
  auto kernel = m.make();
  EXPECT_TRUE(kernel->Config(l.Info(), l.Param(), nullptr, ctx)) << m.name;
  return RunOnMap(std::move(kernel), nullptr, l.input, l.in, l.h, l.w, runtime::Layout::C8HW8,
                  runtime::Layout::C8HW8, {l.out, l.h, l.w});
}

TEST(Conv2dInt16Family, ReferenceAndMemberMatchTorch) {
  ForEachFixtureCase("conv2d_int16_fixture.txt", [](const std::string& name, std::istream& file) {
    const std::vector<float> p = ReadFixtureRow(file);
    ASSERT_EQ(p.size(), 7u) << name;
    Layer l{static_cast<uint32_t>(p[0]),
            static_cast<uint32_t>(p[1]),
            static_cast<uint32_t>(p[2]),
            static_cast<uint32_t>(p[3]),
            static_cast<int32_t>(p[4]),
            static_cast<int32_t>(p[5]),
            p[6] != 0.0f,
            ReadFixtureRow(file),
            ReadFixtureRow(file),
            ReadFixtureRow(file)};
    const std::vector<float> want = ReadFixtureRow(file);
    ExpectAccuracy(l.Reference(), want, zelva::kernel::kBitExact, name);
    for (const Member& m : Members()) {
      if (CanRun(m.isa)) ExpectAccuracy(RunMember(m, l), want, m.accuracy, m.name + " " + name);
    }
  });
}

TEST(Conv2dInt16Family, MemberMatchesTheReferenceOnRandomLayers) {
  uint32_t seed = 9;
  const struct {
    uint32_t in, out, h, w;
    int32_t ws, xs;
    float xscale;
  } shapes[] = {{8, 8, 1, 1, 15, 15, 1.0f},
                {24, 16, 3, 7, 13, 9, 8.0f},
                {16, 32, 5, 3, 6, 0, 300.0f},
                {40, 8, 2, 9, -3, 3, 4000.0f},
                {8, 24, 1, 13, 30, -16, 1e5f}};
  for (const Member& m : Members()) {
    if (!CanRun(m.isa)) continue;
    for (const auto& s : shapes) {
      for (const bool bias : {true, false}) {
        Layer l{s.in, s.out, s.h, s.w, s.ws, s.xs, bias, {}, {}, {}};
        l.weight = RandomFloats(static_cast<size_t>(s.in) * s.out, seed++, -1.0f, 1.0f);
        for (float& v : l.weight)
          v = std::ldexp(v, 10 - s.ws);  // |quantised weights| <= 1024: sums fit int32
        l.bias_values = RandomFloats(s.out, seed++);
        l.input = RandomFloats(static_cast<size_t>(s.in) * s.h * s.w, seed++, -s.xscale, s.xscale);
        // Values past the int16 range and not numbers saturate alike in the vector and scalar quantisers.
        const float nan = std::numeric_limits<float>::quiet_NaN(),
                    inf = std::numeric_limits<float>::infinity();
        const float extremes[] = {nan, inf, -inf, 1e30f, -1e30f, 0.0f, -0.0f};
        for (size_t k = 0; k < 7 && k < l.input.size(); ++k) l.input[k * l.input.size() / 7] = extremes[k];
        const std::string what = m.name + " " + std::to_string(s.in) + "->" + std::to_string(s.out) +
                                 " steps " + std::to_string(s.ws) + "/" + std::to_string(s.xs);
        ExpectAccuracy(RunMember(m, l), l.Reference(), m.accuracy, what);
        if (::testing::Test::HasFailure()) return;
      }
    }
  }
}

// The rule: the parameter is required; the name's geometry and blocked channel counts; steps in range.
TEST(Conv2dInt16Family, RefusalsAndTensorChecks) {
  auto ctx = MakeTestContext();
  Layer base{16, 8, 2, 3, 12, 8, true, RandomFloats(128, 1), RandomFloats(8, 2), RandomFloats(96, 3)};
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), base.Param()), 0);
    EXPECT_EQ(kernel->CheckSupport(base.Info(), nullptr), -1);  // an Int16 layer without its parameter
    EXPECT_EQ(kernel->CheckSupport(base.Info(), std::make_shared<runtime::InferenceParamActQuant>()), -1);
    EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ConvTranspose2dInfo>(), base.Param()), -1);
    EXPECT_FALSE(kernel->Config(base.Info(), nullptr, nullptr, ctx));
    EXPECT_FALSE(kernel->IsConfigured());
    const std::vector<std::pair<const char*, void (*)(runtime::Conv2dInfo&)>> geometry = {
        {"kernel 3x3", [](runtime::Conv2dInfo& i) { i.kernel_x = i.kernel_y = 3; }},
        {"kernel_y 2", [](runtime::Conv2dInfo& i) { i.kernel_y = 2; }},
        {"stride 2", [](runtime::Conv2dInfo& i) { i.stride_x = 2; }},
        {"dilation 2", [](runtime::Conv2dInfo& i) { i.dilation_y = 2; }},
        {"groups 2", [](runtime::Conv2dInfo& i) { i.groups = 2; }},
        {"padding", [](runtime::Conv2dInfo& i) { i.padding_t = 1; }},
        {"in 12", [](runtime::Conv2dInfo& i) { i.in_channels = 12; }},
        {"out 4", [](runtime::Conv2dInfo& i) { i.out_channels = 4; }},
        {"out 0", [](runtime::Conv2dInfo& i) { i.out_channels = 0; }}};
    for (const auto& g : geometry) {
      auto info = base.Info();
      g.second(*info);
      EXPECT_EQ(kernel->CheckSupport(info, base.Param()), -1) << g.first;
    }
    for (const int16_t step : {int16_t{-17}, int16_t{31}}) {
      auto p = base.Param();
      p->weight_step_size = step;
      EXPECT_EQ(kernel->CheckSupport(base.Info(), p), -1) << step;
      p = base.Param();
      p->output_step_size = step;
      EXPECT_EQ(kernel->CheckSupport(base.Info(), p), -1) << step;
    }

    runtime::TensorList outputs;
    const auto good = MakeTensor(ctx, {2, 2, 3, 8}, runtime::Layout::C8HW8);
    EXPECT_THROW(kernel->Forward({good}, outputs, ctx), std::runtime_error);  // not configured
    auto short_weights = base.Info();
    short_weights->weight = WeightText(std::vector<float>(127, 0.0f));
    EXPECT_THROW(m.make()->Config(short_weights, base.Param(), nullptr, ctx), std::runtime_error);
    ASSERT_TRUE(kernel->Config(base.Info(), base.Param(), nullptr, ctx));
    EXPECT_EQ(kernel->CheckInputs({good}), 0);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {1, 2, 3, 8}, runtime::Layout::C8HW8)}), -2);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {16, 2, 3}, runtime::Layout::CHW)}), -2);
    EXPECT_THROW(kernel->Forward({MakeTensor(ctx, {1, 2, 3, 8}, runtime::Layout::C8HW8)}, outputs, ctx),
                 std::runtime_error);
    kernel->Forward({good}, outputs, ctx);
    ASSERT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  }
}

}  // namespace
}  // namespace zvtest
