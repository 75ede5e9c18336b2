// One tester for the activation family, SSE and AVX members alike, driven by the two member lists. Exact
// members are held bit for bit against plain scalar formulas; the members whose body is an approximation by
// design (the bit-trick exponential, the AVX polynomial) are held bit for bit against those formulas,
// written out here independently, and their exact rests against double-precision values and the torch
// fixture (tools/gen_activation_fixture.py).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "support/model_builder.h"
#include "zelva/src/kernel/cpu/avx/activation/members.h"
#include "zelva/src/kernel/cpu/fallback/activation/members.h"
#include "zelva/src/kernel/cpu/sse/activation/activation_reference.h"
#include "zelva/src/kernel/cpu/sse/activation/members.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/half.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

struct Member {
  std::string name;
  std::function<std::shared_ptr<runtime::IKernel>()> make;
  uint32_t code;
  KernelGroup group;
  bool inplace;
};

#define ZV_TEST_ACTIVATION_MEMBER(group, cls, code, core, placement) \
  Member{#cls, &NewKernel<cls>, code, KernelGroup::group, placement == kInplace},

const std::vector<Member>& Members() {
  static const std::vector<Member> members = {ZV_SSE_ACTIVATION_MEMBERS(
      ZV_TEST_ACTIVATION_MEMBER) ZV_AVX_ACTIVATION_MEMBERS(ZV_TEST_ACTIVATION_MEMBER)
                                                  ZV_FALLBACK_ACTIVATION_MEMBERS(ZV_TEST_ACTIVATION_MEMBER)};
  return members;
}

bool Runnable(const Member& m) {
  return m.group != KernelGroup::kAVX || __builtin_cpu_supports("avx");
}

// ---- Independent formulas ---------------------------------------------------------------------------------

float Bits(uint32_t b) {
  float f;
  std::memcpy(&f, &b, 4);
  return f;
}

// The bit-trick exponential, one float at a time.
float FastExpFormula(float t) {
  t = std::fmin(512.0f, std::fmax(-512.0f, t));
  const float v = t * 1512775.0f + 1072632448.0f;
  const int32_t k = static_cast<int32_t>(std::nearbyint(v));
  const uint64_t word = static_cast<uint64_t>(static_cast<uint32_t>(k)) << 32;
  double d;
  std::memcpy(&d, &word, 8);
  return static_cast<float>(d);
}

// The 8-lane polynomial sigmoid, one float at a time.
float PolySigmoidFormula(float x) {
  float t = 0.0f - x;
  t = std::fmin(t, 88.376259f);
  t = std::fmax(t, -88.376259f);
  const float k = std::floor(t * 1.442695f + 0.5f);
  float r = t - k * 0.693359375f;
  r = r - k * -0.00021219444f;
  const float coeff[5] = {0.0013982f, 0.0083334520f, 0.041665796f, 0.16666666f, 0.5f};
  float p = 0.00019875691f;
  for (float c : coeff) p = p * r + c;
  const float e = (p * r * r + r + 1.0f) * std::ldexp(1.0f, static_cast<int>(k));
  return 1.0f / (1.0f + e);
}

// The exact function each code stands for, in double.
double Exact(uint32_t code, double x, double alpha, double beta) {
  switch (code) {
    case kActLinear:
      return x * alpha + beta;
    case kActSigmoid:
      return 1.0 / (1.0 + std::exp(-x));
    case kActReLU:
      return x > 0 ? x : 0;
    case kActReLU6:
      return std::min(std::max(x, 0.0), 6.0);
    case kActLeaky:
    case kActPReLU:
      return x >= 0 ? x : x * alpha;
    case kActTanH:
      return std::tanh(x);
    case kActHSigmoid:
      return std::min(std::max(x + 3, 0.0), 6.0) / 6;
    case kActHSwish:
      return x * std::min(std::max(x + 3, 0.0), 6.0) / 6;
    case kActSiLU:
      return x / (1.0 + std::exp(-x));
  }
  return std::nan("");
}

// The exact members' formulas in float, operation by operation.
float ExactFloat(uint32_t code, float x, float alpha, float beta) {
  const float zero = 0.0f, six = 6.0f, sixth = Bits(0x3E2AAAABu);
  switch (code) {
    case kActLinear:
      return x * alpha + beta;
    case kActReLU:
      return std::fmax(x, zero);
    case kActReLU6:
      return std::fmin(std::fmax(x, zero), six);
    case kActLeaky:
    case kActPReLU:
      return std::fmin(x, zero) * alpha + std::fmax(x, zero);
    case kActHSigmoid:
      return std::fmin(std::fmax(x + 3.0f, zero), six) * sixth;
    case kActHSwish:
      return std::fmin(std::fmax(x + 3.0f, zero), six) * sixth * x;
  }
  return std::nanf("");
}

// How many leading elements of a run of n a member computes by its approximate body (0 for exact members).
uint32_t ApproximateBody(const Member& m, uint32_t n) {
  if (m.group == KernelGroup::kAVX) return m.code == kActSigmoid ? n / 8 * 8 : 0;
  switch (m.code) {
    case kActSigmoid:
    case kActSiLU:
      return n / 16 * 16;
    case kActTanH:
      return n / 4 * 4;
  }
  return 0;
}

// The body formula of an approximate member.
float BodyFormula(const Member& m, float x) {
  if (m.group == KernelGroup::kAVX) return PolySigmoidFormula(x);
  if (m.code == kActTanH) {
    const float e = FastExpFormula(x), i = 1.0f / e;
    return (e - i) / (e + i);
  }
  const float s = 1.0f / (FastExpFormula(0.0f - x) + 1.0f);
  return m.code == kActSiLU ? s * x : s;
}

bool Approximate(const Member& m) {
  return ApproximateBody(m, 64) > 0;
}

bool Close(float got, double want) {
  return std::fabs(got - want) <= 2e-7 + 4e-6 * std::fabs(want);
}

// ---- Driving a member through the kernel interface --------------------------------------------------------

std::shared_ptr<runtime::ActivationInfo> Info(uint32_t code, float alpha = 1.0f, float beta = 0.0f) {
  auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_type = static_cast<uint16_t>(code);
  info->activation_alpha = runtime::FloatToHalf(alpha);
  info->activation_beta = runtime::FloatToHalf(beta);
  return info;
}

class ActivationFamilyTest : public ::testing::TestWithParam<Member> {
 protected:
  void SetUp() override {
    if (!Runnable(GetParam())) GTEST_SKIP() << "no AVX on this processor";
  }

  std::shared_ptr<runtime::IKernel> Configured(float alpha = 1.0f, float beta = 0.0f) {
    std::shared_ptr<runtime::IKernel> kernel = GetParam().make();
    EXPECT_TRUE(kernel->Config(Info(GetParam().code, alpha, beta), nullptr, nullptr, context_));
    return kernel;
  }

  // Runs the kernel over x (shaped as dims), checking the shape and placement of the output.
  std::vector<float> Run(runtime::IKernel& kernel, const std::vector<float>& x,
                         std::vector<uint32_t> dims = {}) {
    if (dims.empty()) dims = {1, 1, static_cast<uint32_t>(x.size())};
    std::shared_ptr<runtime::Tensor> input;
    const TensorShape shape(dims, DataType::FLOAT32, Layout::CHW);
    context_->GetDeviceCPU()->CreateTensor(input, shape, x.data());
    EXPECT_EQ(kernel.GetOutputShapes({shape})[0].dims, dims);
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    if (outputs.empty()) return {};
    EXPECT_EQ(outputs[0]->shape.dims, dims);
    EXPECT_EQ(outputs[0] == input, GetParam().inplace);
    return std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + x.size());
  }

  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

// Every size from 1 to 40 and a few larger ones: bodies of 16 and 32 with every rest length.
TEST_P(ActivationFamilyTest, BodyAndRestOverAllTailLengths) {
  const Member& m = GetParam();
  std::mt19937 rng(7 + m.code);
  std::uniform_real_distribution<float> value(-12.0f, 12.0f);
  const float alpha = runtime::HalfToFloat(runtime::FloatToHalf(0.3f)), beta = -0.75f;
  auto kernel = Configured(alpha, beta);
  std::vector<uint32_t> sizes;
  for (uint32_t n = 1; n <= 40; ++n) sizes.push_back(n);
  for (uint32_t n : {47u, 63u, 64u, 65u, 100u, 257u, 1031u}) sizes.push_back(n);
  for (uint32_t n : sizes) {
    std::vector<float> x(n);
    for (float& v : x) v = value(rng);
    const std::vector<float> y = Run(*kernel, x);
    ASSERT_EQ(y.size(), n);
    const uint32_t body = ApproximateBody(m, n);
    for (uint32_t i = 0; i < n; ++i) {
      if (!Approximate(m)) {
        ASSERT_EQ(y[i], ExactFloat(m.code, x[i], alpha, beta)) << "n " << n << " i " << i << " x " << x[i];
      } else if (i < body) {
        ASSERT_EQ(y[i], BodyFormula(m, x[i])) << "body, n " << n << " i " << i << " x " << x[i];
      } else {
        ASSERT_TRUE(Close(y[i], Exact(m.code, x[i], alpha, beta)))
            << "rest, n " << n << " i " << i << " x " << x[i] << " y " << y[i];
      }
    }
  }
}

// The torch fixture, cut into runs of several lengths so that each value lands in bodies and in rests.
TEST_P(ActivationFamilyTest, MatchesTorchFixture) {
  const Member& m = GetParam();
  const char* torch_name = nullptr;
  switch (m.code) {
    case kActSigmoid:
      torch_name = "sigmoid";
      break;
    case kActTanH:
      torch_name = "tanh";
      break;
    case kActHSigmoid:
      torch_name = "hardsigmoid";
      break;
    case kActHSwish:
      torch_name = "hardswish";
      break;
    case kActSiLU:
      torch_name = "silu";
      break;
    case kActReLU6:
      torch_name = "relu6";
      break;
    case kActLeaky:
      torch_name = "leaky_relu";
      break;
    case kActPReLU:
      torch_name = "prelu";
      break;
    default:
      GTEST_SKIP() << "no torch record for this function";
  }
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/activation_fixture.txt");
  ASSERT_TRUE(file.good());
  std::string name;
  float alpha = 0.0f;
  size_t count = 0;
  std::vector<float> x, t;
  while (file >> name >> alpha >> count) {
    x.resize(count);
    t.resize(count);
    for (float& v : x) file >> v;
    for (float& v : t) file >> v;
    if (name == torch_name) break;
  }
  ASSERT_EQ(name, torch_name);
  auto kernel = Configured(alpha, 0.0f);
  size_t rests = 0;
  for (size_t len : {size_t{47}, size_t{15}, size_t{7}, size_t{3}, size_t{1}}) {
    for (size_t start = 0; start < count; start += len) {
      const size_t n = std::min(len, count - start);
      const std::vector<float> y = Run(*kernel, std::vector<float>(x.begin() + start, x.begin() + start + n));
      const uint32_t body = ApproximateBody(m, static_cast<uint32_t>(n));
      for (size_t i = 0; i < n; ++i) {
        const float xi = x[start + i];
        if (i < body) {
          ASSERT_EQ(y[i], BodyFormula(m, xi)) << name << " x " << xi;
        } else {
          ++rests;
          ASSERT_TRUE(Close(y[i], t[start + i]))
              << name << " x " << xi << " y " << y[i] << " torch " << t[start + i];
        }
      }
    }
  }
  EXPECT_GE(rests, count);
}

// Vector max/min turn a NaN into the constant; the single-float rest of ReLU keeps it. 5 elements: one group
// of 4 (NaN at 0), one single float (NaN at 4).
TEST_P(ActivationFamilyTest, NaNInGroupAndInSingleRest) {
  const Member& m = GetParam();
  if (Approximate(m) || m.code == kActLinear) GTEST_SKIP() << "NaN behaviour fixed for max/min members only";
  const float nan = std::numeric_limits<float>::quiet_NaN();
  auto kernel = Configured(0.5f, 0.0f);
  const std::vector<float> y = Run(*kernel, {nan, 1.0f, -1.0f, 2.0f, nan});
  // ReLU6, Leaky, PReLU, HSigmoid: the NaN becomes 0 at the first max; HSwish multiplies by x at the end.
  if (m.code == kActHSwish) {
    EXPECT_TRUE(std::isnan(y[0]));
    EXPECT_TRUE(std::isnan(y[4]));
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
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_EQ(kernel->CheckSupport(Info(m.code), nullptr), 0);
  EXPECT_EQ(kernel->CheckSupport(Info((m.code + 1) % 10), nullptr), -1);
  EXPECT_EQ(kernel->CheckSupport(Info(m.code), std::make_shared<runtime::InferenceParamActQuant>()), -1);
  EXPECT_EQ(kernel->CheckSupport(std::make_shared<runtime::ElementWiseOperatorInfo>(), nullptr), -1);
  EXPECT_FALSE(kernel->Config(Info((m.code + 3) % 10), nullptr, nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_TRUE(kernel->Config(Info(m.code), nullptr, nullptr, context_));
  EXPECT_TRUE(kernel->IsConfigured());
  EXPECT_EQ(kernel->ResetState(), -4);

  std::vector<float> four(4, 1.0f);
  std::shared_ptr<runtime::Tensor> f, i;
  context_->GetDeviceCPU()->CreateTensor(f, TensorShape({1, 1, 1, 4}, DataType::FLOAT32, Layout::C4HW4),
                                         four.data());
  context_->GetDeviceCPU()->CreateTensor(i, TensorShape({4}, DataType::INT32, Layout::CHW), four.data());
  EXPECT_EQ(kernel->CheckInputs({f}), 0);
  EXPECT_EQ(kernel->CheckOutputs({f}), 0);
  EXPECT_EQ(kernel->CheckInputs({f, f}), -2);
  EXPECT_EQ(kernel->CheckInputs({i}), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  runtime::TensorList outputs;
  EXPECT_THROW(kernel->Forward({}, outputs, context_), std::runtime_error);
}

// Parameters print as their member's name.
void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}

std::string MemberName(const ::testing::TestParamInfo<Member>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(AllMembers, ActivationFamilyTest, ::testing::ValuesIn(Members()), MemberName);

// ---- Cases the family is known by -------------------------------------------------------------------------

class ActivationCasesTest : public ::testing::Test {
 protected:
  std::vector<float> Run(runtime::IKernel& kernel, uint32_t code, const std::vector<float>& x,
                         float alpha = 1.0f, float beta = 0.0f) {
    EXPECT_TRUE(kernel.Config(Info(code, alpha, beta), nullptr, nullptr, context_));
    std::shared_ptr<runtime::Tensor> input;
    context_->GetDeviceCPU()->CreateTensor(
        input, TensorShape({static_cast<uint32_t>(x.size())}, DataType::FLOAT32, Layout::CHW), x.data());
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    return std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + x.size());
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_F(ActivationCasesTest, SigmoidBodyAndRestDifferOnEqualInputs) {
  Sigmoid_SSE_Float_M1 kernel;
  const std::vector<float> y = Run(kernel, kActSigmoid, std::vector<float>(17, 0.7f));
  for (int i = 1; i < 16; ++i) EXPECT_EQ(y[i], y[0]);
  EXPECT_NE(y[16], y[0]);
  EXPECT_NEAR(y[16], 1.0 / (1.0 + std::exp(-0.7)), 1e-7);
  EXPECT_GT(std::fabs(y[0] - y[16]), 1e-4f);  // a few percent in the exponential
}

TEST_F(ActivationCasesTest, TanHFastGroupAndExactRest) {
  TanH_SSE_Float_M1 kernel;
  const std::vector<float> y = Run(kernel, kActTanH, {0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.5f});
  EXPECT_NE(y[0], 0.0f);  // FastExp(0) is not exactly 1
  EXPECT_LT(std::fabs(y[0]), 0.05f);
  EXPECT_EQ(y[4], 0.0f);
  EXPECT_EQ(y[5], tanhf(0.5f));
}

TEST_F(ActivationCasesTest, HSigmoidAtThreeIsOneAndInplaceOverwrites) {
  HSigmoid_SSE_Float_M1 kernel;
  EXPECT_EQ(Run(kernel, kActHSigmoid, {3.0f})[0], 1.0f);

  HSigmoid_Inplace_SSE_Float_M1 inplace;
  ASSERT_TRUE(inplace.Config(Info(kActHSigmoid), nullptr, nullptr, context_));
  std::vector<float> x = {-4.0f, 0.0f, 3.0f, 1.5f, 9.0f};
  std::shared_ptr<runtime::Tensor> input;
  context_->GetDeviceCPU()->CreateTensor(input, TensorShape({5}, DataType::FLOAT32, Layout::CHW), x.data());
  runtime::TensorList outputs;
  inplace.Forward({input}, outputs, context_);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0].get(), input.get());
  EXPECT_EQ(input->Data<float>()[0], 0.0f);
  EXPECT_EQ(input->Data<float>()[2], 1.0f);
  EXPECT_EQ(input->Data<float>()[4], 1.0f);
}

TEST_F(ActivationCasesTest, SlopesComeFromTheHalfAlpha) {
  // 0.1 is not a half: the kernel works with the half's value, one slope for the whole tensor.
  const float slope = runtime::HalfToFloat(runtime::FloatToHalf(0.1f));
  ASSERT_NE(slope, 0.1f);
  PReLU_SSE_Float_M1 prelu;
  const std::vector<float> y = Run(prelu, kActPReLU, {-2.0f, 4.0f, -8.0f, 1.0f, -1.0f}, 0.1f);
  EXPECT_EQ(prelu.param().activation_alpha, slope);
  EXPECT_EQ(y[0], -2.0f * slope);
  EXPECT_EQ(y[1], 4.0f);
  EXPECT_EQ(y[4], -1.0f * slope);
  Linear_SSE_Float_M1 linear;
  EXPECT_EQ(Run(linear, kActLinear, {1.5f, -2.0f, 0.25f}, 1.0f, 0.0f),
            (std::vector<float>{1.5f, -2.0f, 0.25f}));
}

TEST(ActivationReferenceTest, ScalarReferences) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> x = {-1.0f, 0.0f, 2.5f, nan}, y(4);
  ReluReference(x.data(), 4, y.data());
  EXPECT_EQ(y[0], 0.0f);
  EXPECT_EQ(y[2], 2.5f);
  EXPECT_TRUE(std::isnan(y[3]));
  SigmoidReference(x.data(), 3, y.data());
  EXPECT_NEAR(y[0], 1.0 / (1.0 + std::exp(1.0)), 1e-7);
  EXPECT_EQ(y[1], 0.5f);
  TanhReference(x.data(), 3, y.data());
  EXPECT_NEAR(y[2], std::tanh(2.5), 1e-7);
}

TEST(ActivationRegistrationTest, EveryMemberIsRegisteredUnderItsName) {
  KernelRegistry registry;
  RegisterSSEKernels(registry);
  RegisterAVXKernels(registry);
  RegisterFallbackKernels(registry);
  for (const Member& m : Members()) {
    auto kernel = LookupKernel(registry, m.name);
    ASSERT_NE(kernel, nullptr) << m.name;
    EXPECT_EQ(kernel->GetName(), m.name);
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
