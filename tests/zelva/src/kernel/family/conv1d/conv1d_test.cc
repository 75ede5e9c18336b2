// The one-dimensional convolution family: every row of its list against the plain reference on random layers
// the row accepts (lengths around the vector widths, padding, bias on and off, groups), the reference and
// every row against torch.nn.Conv1d (tests/data/conv1d_fixture.txt, tools/gen_conv1d_fixture.py), and the
// refusals of each row's rule.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <set>

#include "support/kernel_tester.h"
#include "zelva/src/kernel/family/conv1d/members.h"

namespace zvtest {
namespace {

using namespace zelva;
using kernel::Conv1dRule;

using Member = RuledMember<Conv1dRule>;

std::vector<Member> Members() {
  return ZV_RULED_MEMBERS(Conv1dRule, ZV_CONV1D_MEMBERS);
}

struct Layer {
  uint32_t in = 1, out = 1, len = 1, k = 1, s = 1, d = 1, g = 1, pf = 0, pb = 0;
  bool bias = false;
  std::vector<float> weight, bias_values, input;

  uint32_t OutLen() const { return (len + pf + pb - (d * (k - 1) + 1)) / s + 1; }
  std::shared_ptr<runtime::Conv1dInfo> Info() const {
    auto i = std::make_shared<runtime::Conv1dInfo>();
    i->id = "conv1d";
    i->in_channels = static_cast<uint16_t>(in);
    i->out_channels = static_cast<uint16_t>(out);
    i->kernel_size = static_cast<uint16_t>(k);
    i->stride = static_cast<uint16_t>(s);
    i->dilation = static_cast<uint16_t>(d);
    i->groups = static_cast<uint16_t>(g);
    i->padding_f = static_cast<uint16_t>(pf);
    i->padding_b = static_cast<uint16_t>(pb);
    i->if_bias = bias;
    i->weight = WeightText(weight);
    i->bias = bias ? WeightText(bias_values) : std::string();
    return i;
  }
  std::string Describe() const {
    return "in " + std::to_string(in) + " out " + std::to_string(out) + " len " + std::to_string(len) + " k" +
           std::to_string(k) + " s" + std::to_string(s) + " d" + std::to_string(d) + " g" +
           std::to_string(g) + " pad " + std::to_string(pf) + "," + std::to_string(pb) +
           (bias ? " bias" : "");
  }
};

std::vector<float> Reference(const Layer& l) {
  const uint32_t plen = l.len + l.pf + l.pb;
  std::vector<float> padded(static_cast<size_t>(l.in) * plen, 0.0f);
  for (uint32_t c = 0; c < l.in; ++c)
    std::copy(l.input.begin() + c * l.len, l.input.begin() + (c + 1) * l.len,
              padded.begin() + c * plen + l.pf);
  std::vector<float> out(static_cast<size_t>(l.out) * l.OutLen());
  kernel::Conv1dReference({padded.data(), plen, out.data(), l.OutLen(), l.weight.data(),
                           l.bias ? l.bias_values.data() : nullptr, l.in, l.out, l.g, l.k, l.s, l.d});
  return out;
}

std::vector<float> RunMember(const Member& m, const Layer& l) {
  auto ctx = MakeTestContext();
  auto kernel = m.make();
  auto outputs =
      RunKernel(*kernel, l.Info(), {MakeTensor(ctx, {l.in, l.len}, runtime::Layout::CL, l.input)}, ctx);
  if (outputs.size() != 1) return {};
  EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{l.out, l.OutLen()})) << m.name;
  EXPECT_EQ(outputs[0]->shape.layout, runtime::Layout::CL) << m.name;
  return Values(outputs[0]);
}

uint32_t Pick(uint32_t rule, uint32_t any) {
  return rule == kernel::kConv1dNonZero ? any : rule;
}

Layer RandomLayer(const Conv1dRule& rule, uint32_t len, std::mt19937& rng) {
  Layer l;
  l.k = Pick(rule.kernel, 1 + rng() % 5);
  l.s = Pick(rule.stride, 1 + rng() % 3);
  l.d = Pick(rule.dilation, 1 + rng() % 2);
  l.g = Pick(rule.groups, 1 + rng() % 3);
  l.in = l.g * (1 + rng() % 3);
  l.out = l.g * (1 + rng() % 3);
  l.pf = rng() % 3;
  l.pb = rng() % 3;
  l.len = std::max(len, l.d * (l.k - 1) + 1);
  l.bias = rng() % 2 == 0;
  l.weight = RandomFloats(static_cast<size_t>(l.out) * (l.in / l.g) * l.k, rng(), -1.0f, 1.0f);
  l.bias_values = RandomFloats(l.out, rng(), -1.0f, 1.0f);
  l.input = RandomFloats(static_cast<size_t>(l.in) * l.len, rng(), -1.0f, 1.0f);
  return l;
}

TEST(Conv1dFamily, EveryMemberMatchesTheReferenceOnRandomLayers) {
  std::mt19937 rng(17);
  for (const Member& m : Members()) {
    if (SkipUnrunnable(m)) continue;
    // Around the eight-wide vectors and the rounds of four of them, and their tails.
    for (const uint32_t len : {1u, 3u, 7u, 8u, 9u, 31u, 32u, 33u, 41u, 70u}) {
      const Layer l = RandomLayer(*m.rule, len, rng);
      const std::string what = m.name + " " + l.Describe();
      ASSERT_EQ(m.make()->CheckSupport(l.Info(), nullptr), 0) << what;
      ExpectAccuracy(RunMember(m, l), Reference(l), m.accuracy, what);
      if (::testing::Test::HasFailure()) return;
    }
  }
}

TEST(Conv1dFamily, ReferenceAndMembersMatchTorchFixtures) {
  MemberCoverage coverage;
  ForEachFixtureCase("conv1d_fixture.txt", [&](const std::string& name, std::istream& file) {
    const std::vector<float> f = ReadFixtureRow(file);
    ASSERT_EQ(f.size(), 10u) << name;
    Layer l;
    uint32_t* fields[] = {&l.in, &l.out, &l.len, &l.k, &l.s, &l.d, &l.g, &l.pf, &l.pb};
    for (int k = 0; k < 9; ++k) *fields[k] = static_cast<uint32_t>(f[k]);
    l.bias = f[9] != 0.0f;
    l.weight = ReadFixtureRow(file);
    l.bias_values = ReadFixtureRow(file);
    l.input = ReadFixtureRow(file);
    const std::vector<float> torch = ReadFixtureRow(file);
    const std::vector<float> want = Reference(l);
    ExpectAccuracy(want, torch, kernel::Within(1e-5f, 1e-5f), name + " by the reference");
    for (const Member& m : Members()) {
      if (!CanRun(m.isa) || m.make()->CheckSupport(l.Info(), nullptr) != 0) continue;
      ExpectAccuracy(RunMember(m, l), want, m.accuracy, name + " by " + m.name);
      coverage.Ran(m.name);
    }
  });
  coverage.ExpectEachRan(Members());
}

// Each row refuses what its name does not take, and every row refuses groups that do not divide the channels,
// zero sizes, an InferenceParam and another kind of layer; misuse after an accepted Config is reported.
TEST(Conv1dFamily, RefusalsAndReportedMisuse) {
  std::mt19937 rng(5);
  auto ctx = MakeTestContext();
  for (const Member& m : Members()) {
    SCOPED_TRACE(m.name);
    const Layer base = RandomLayer(*m.rule, 12, rng);
    auto kernel = m.make();
    ExpectCommonRefusals(*kernel, base.Info(), std::make_shared<runtime::Conv2dInfo>(), ctx);
    auto refused = [&](const char* what, const std::function<void(runtime::Conv1dInfo&)>& change) {
      auto info = base.Info();
      change(*info);
      ExpectRefused(*kernel, info, ctx, what);
    };
    refused("groups 0", [](runtime::Conv1dInfo& i) { i.groups = 0; });
    refused("kernel 0", [](runtime::Conv1dInfo& i) { i.kernel_size = 0; });
    refused("stride 0", [](runtime::Conv1dInfo& i) { i.stride = 0; });
    refused("channels off the groups", [](runtime::Conv1dInfo& i) {
      i.groups = 2;
      i.in_channels = 3;
    });
    if (m.rule->kernel != kernel::kConv1dNonZero) {
      refused("kernel", [](runtime::Conv1dInfo& i) { i.kernel_size = 5; });
      refused("stride", [](runtime::Conv1dInfo& i) { i.stride = 2; });
      refused("dilation", [](runtime::Conv1dInfo& i) { i.dilation = 2; });
      refused("groups", [](runtime::Conv1dInfo& i) { i.groups = i.in_channels = i.out_channels = 2; });
    }
    ASSERT_TRUE(kernel->Config(base.Info(), nullptr, nullptr, ctx));
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {base.in, 5}, runtime::Layout::CL)}), 0);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {base.in + 1, 5}, runtime::Layout::CL)}), -2);
    EXPECT_EQ(kernel->CheckInputs({MakeTensor(ctx, {base.in, 5}, runtime::Layout::CHW)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({MakeTensor(ctx, {base.in + 1, 5}, runtime::Layout::CL)}, outputs, ctx),
                 std::runtime_error);
    EXPECT_THROW(m.make()->Forward({MakeTensor(ctx, {base.in, 5}, runtime::Layout::CL)}, outputs, ctx),
                 std::runtime_error);  // not configured
    auto shorter = base.Info();
    shorter->weight = WeightText(std::vector<float>(base.weight.size() - 1, 0.0f));
    EXPECT_THROW(m.make()->Config(shorter, nullptr, nullptr, ctx), std::runtime_error);
  }
}

}  // namespace
}  // namespace zvtest
