// The activation family's tester: every row of the one member list, through the kernel interface, against
// the family reference under the row's accuracy class; the approximating bodies against the exact function
// in double (libm) and the reference against the torch fixture (tools/gen_activation_fixture.py). Each
// member's output over a fixed input is pinned bit for bit as well, so that no change of a core goes unseen.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/family/activation/reference.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/half.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::Layout;

struct Member {
  std::string name;
  std::shared_ptr<runtime::IKernel> (*make)();
  Isa isa;
  Accuracy accuracy;
  uint32_t code;
  ActivationCore core;
  bool inplace;
};

#define ZV_TEST_ROW(group, isa, cls, accuracy, code, core, placement) \
  Member{#cls, &NewKernel<cls>, Isa::isa, accuracy, code, &core, placement == kInplace},

const std::vector<Member>& Members() {
  static const std::vector<Member> members = {ZV_ACTIVATION_MEMBERS(ZV_TEST_ROW)};
  return members;
}

std::shared_ptr<runtime::ActivationInfo> Info(uint32_t code, float alpha = 1.0f, float beta = 0.0f) {
  auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_type = static_cast<uint16_t>(code);
  info->activation_alpha = runtime::FloatToHalf(alpha);
  info->activation_beta = runtime::FloatToHalf(beta);
  return info;
}

// FNV-1a over the bits of a core's outputs for every run length 0..70 of a fixed input in [-9, 9], with
// alpha 0.25 and beta -0.5: the members' outputs as they were when the family moved into its house.
uint32_t OutputHash(ActivationCore core) {
  uint32_t h = 2166136261u;
  for (uint32_t n = 0; n <= 70; ++n) {
    std::mt19937 rng(n + 1);
    std::uniform_real_distribution<float> d(-9.0f, 9.0f);
    std::vector<float> x(n), y(n);
    for (float& v : x) v = d(rng);
    core(x.data(), n, y.data(), 0.25f, -0.5f);
    h = zvtest::Fnv1a(y, h);
  }
  return h;
}

uint32_t PinnedHash(const std::string& name) {
  static const std::map<std::string, uint32_t> kPinned = {
      {"ReLU_SSE_Float_M1", 0xAB47CCEEu},
      {"ReLU6_SSE_Float_M1", 0x2B487118u},
      {"Sigmoid_SSE_Float_M1", 0x378D10E0u},
      {"HSigmoid_SSE_Float_M1", 0xF89DE669u},
      {"HSwish_SSE_Float_M1", 0x384DF73Eu},
      {"TanH_SSE_Float_M1", 0xA904366Eu},
      {"Leaky_SSE_Float_M1", 0x0CFA5215u},
      {"PReLU_SSE_Float_M1", 0x0CFA5215u},
      {"HSigmoid_Inplace_SSE_Float_M1", 0xF89DE669u},
      {"ReLU_Inplace_SSE_Float_M1", 0xAB47CCEEu},
      {"SiLU_SSE_Float_M1", 0x2B75C973u},
      {"Linear_SSE_Float_M1", 0x7721E012u},
      {"ReLU_AVX_Float_M1", 0xAB47CCEEu},
      {"ReLU6_AVX_Float_M1", 0x2B487118u},
      {"Sigmoid_AVX_Float_M1", 0x2A5D2AC7u},
      {"HSwish_AVX_Float_M1", 0x384DF73Eu},
      {"Leaky_AVX_Float_M1", 0x0CFA5215u},
      {"PReLU_AVX_Float_M1", 0x0CFA5215u},
      {"Linear_Fallback_Float_M1", 0x7721E012u},
  };
  auto it = kPinned.find(name);
  return it == kPinned.end() ? 0 : it->second;
}

class ActivationFamilyTest : public ::testing::TestWithParam<Member> {
 protected:
  void SetUp() override {
    if (!zvtest::CanRun(GetParam().isa)) GTEST_SKIP() << GetParam().name << ": no AVX on this processor";
  }

  // Runs a configured kernel over x as a [1, 1, n] tensor; checks the output's shape and placement.
  std::vector<float> Run(runtime::IKernel& kernel, const std::vector<float>& x) {
    auto input = zvtest::MakeTensor(ctx_, {1, 1, static_cast<uint32_t>(x.size())}, Layout::CHW, x);
    runtime::TensorList outputs = zvtest::RunKernel(kernel, nullptr, {input}, ctx_);
    EXPECT_EQ(outputs.size(), 1u);
    if (outputs.empty()) return {};
    EXPECT_EQ(outputs[0]->shape.dims, input->shape.dims);
    EXPECT_EQ(outputs[0] == input, GetParam().inplace);
    return zvtest::Values(outputs[0]);
  }

  std::shared_ptr<runtime::IKernel> Configured(float alpha, float beta) {
    auto kernel = GetParam().make();
    EXPECT_TRUE(kernel->Config(Info(GetParam().code, alpha, beta), nullptr, nullptr, ctx_));
    return kernel;
  }

  std::shared_ptr<runtime::Context> ctx_ = zvtest::MakeTestContext();
};

// Every run length from 1 to 40 and a few larger ones (bodies of 16 and 32 with every rest): exact members
// bit for bit the reference, approximating members within their bound of the function in double.
TEST_P(ActivationFamilyTest, MatchesReferenceOverAllTailLengths) {
  const Member& m = GetParam();
  const float alpha = runtime::HalfToFloat(runtime::FloatToHalf(0.3f)), beta = -0.75f;
  auto kernel = Configured(alpha, beta);
  std::vector<uint32_t> sizes;
  for (uint32_t n = 1; n <= 40; ++n) sizes.push_back(n);
  for (uint32_t n : {47u, 63u, 64u, 65u, 100u, 257u, 1031u}) sizes.push_back(n);
  double worst = 0.0;
  for (uint32_t n : sizes) {
    const std::vector<float> x = zvtest::RandomFloats(n, 7 + m.code + n, -9.0f, 9.0f);
    const std::vector<float> y = Run(*kernel, x);
    std::vector<float> want(n);
    if (m.accuracy.BitExact()) {
      ActivationReference(m.code, x.data(), n, want.data(), alpha, beta);
    } else {
      for (uint32_t i = 0; i < n; ++i) {
        want[i] = static_cast<float>(ActivationExact(m.code, x[i], alpha, beta));
        worst = std::max(worst, std::fabs(static_cast<double>(y[i]) - want[i]));
      }
    }
    zvtest::ExpectAccuracy(y, want, m.accuracy, m.name + " n " + std::to_string(n));
    if (HasFailure()) return;
  }
  if (!m.accuracy.BitExact()) RecordProperty("worst_abs_error", std::to_string(worst));
}

TEST_P(ActivationFamilyTest, OutputBitsArePinned) {
  EXPECT_EQ(OutputHash(GetParam().core), PinnedHash(GetParam().name)) << GetParam().name;
}

// Vector max/min turn a NaN into the constant; the single-float rest of ReLU keeps it. 5 elements: one group
// of 4 (NaN at 0), one single float (NaN at 4).
TEST_P(ActivationFamilyTest, NaNInGroupAndInSingleRest) {
  const Member& m = GetParam();
  if (!m.accuracy.BitExact() || m.code == kActLinear)
    GTEST_SKIP() << "NaN behaviour fixed for max/min members";
  const float nan = std::numeric_limits<float>::quiet_NaN();
  auto kernel = Configured(0.5f, 0.0f);
  const std::vector<float> y = Run(*kernel, {nan, 1.0f, -1.0f, 2.0f, nan});
  if (m.code == kActHSwish) {  // multiplies by x at the end
    EXPECT_TRUE(std::isnan(y[0]) && std::isnan(y[4]));
    return;
  }
  EXPECT_EQ(y[0], 0.0f);
  if (m.code == kActReLU) {
    EXPECT_TRUE(std::isnan(y[4]));
  } else {
    EXPECT_EQ(y[4], y[0]);
  }
}

TEST_P(ActivationFamilyTest, SupportConfigAndChecks) {
  const Member& m = GetParam();
  std::shared_ptr<runtime::IKernel> kernel = m.make();
  EXPECT_EQ(kernel->GetName(), m.name);
  EXPECT_EQ(kernel->CheckSupport(Info(m.code), nullptr), 0);
  EXPECT_EQ(kernel->CheckSupport(Info((m.code + 1) % 10), nullptr), -1);
  EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ElementWiseOperatorInfo>(), nullptr), -1);
  zvtest::ExpectCommonRefusals(*kernel, Info(m.code), Info((m.code + 3) % 10), ctx_);
  EXPECT_TRUE(kernel->Config(Info(m.code), nullptr, nullptr, ctx_));
  EXPECT_TRUE(kernel->IsConfigured());
  EXPECT_EQ(kernel->ResetState(), -4);

  auto blocked = zvtest::MakeTensor(ctx_, {1, 1, 1, 4}, Layout::C4HW4);
  std::shared_ptr<runtime::Tensor> ints;
  ctx_->GetDeviceCPU()->CreateTensor(ints, runtime::TensorShape({4}, runtime::DataType::INT32, Layout::CHW));
  EXPECT_EQ(kernel->CheckInputs({blocked}), 0);
  EXPECT_EQ(kernel->CheckOutputs({blocked}), 0);
  EXPECT_EQ(kernel->CheckInputs({blocked, blocked}), -2);
  EXPECT_EQ(kernel->CheckInputs({ints}), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  runtime::TensorList outputs;
  EXPECT_THROW(kernel->Forward({}, outputs, ctx_), std::runtime_error);
  EXPECT_THROW(kernel->Forward({ints}, outputs, ctx_), std::runtime_error);
}

void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}
INSTANTIATE_TEST_SUITE_P(AllMembers, ActivationFamilyTest, ::testing::ValuesIn(Members()),
                         zvtest::MemberName());

// The reference against torch (the fixture's functions at its alpha), within a few float roundings.
TEST(ActivationReferenceTest, MatchesTorchFixture) {
  const std::map<std::string, uint32_t> codes = {
      {"sigmoid", kActSigmoid},  {"tanh", kActTanH},  {"hardsigmoid", kActHSigmoid},
      {"hardswish", kActHSwish}, {"silu", kActSiLU},  {"relu6", kActReLU6},
      {"leaky_relu", kActLeaky}, {"prelu", kActPReLU}};
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/activation_fixture.txt");
  ASSERT_TRUE(file.good());
  std::string name;
  float alpha = 0.0f;
  size_t count = 0, seen = 0;
  while (file >> name >> alpha >> count) {
    std::vector<float> x(count), t(count), y(count);
    for (float& v : x) file >> v;
    for (float& v : t) file >> v;
    ASSERT_EQ(codes.count(name), 1u) << name;
    ActivationReference(codes.at(name), x.data(), static_cast<uint32_t>(count), y.data(), alpha, 0.0f);
    zvtest::ExpectAccuracy(y, t, Within(2e-7f, 4e-6f), name);
    ++seen;
  }
  EXPECT_EQ(seen, codes.size());
}

// The tanh's fast group is not exact at 0; its single-float rest is tanhf.
TEST(ActivationCasesTest, FastTanhGroupIsNotExactAtZero) {
  const std::vector<float> t = {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f};
  std::vector<float> y(6);
  TanHSSE(t.data(), 6, y.data(), 0.0f, 0.0f);
  EXPECT_NE(y[0], 0.0f);
  EXPECT_EQ(y[4], 0.0f);
  EXPECT_EQ(y[5], tanhf(0.5f));
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
