// One tester for every fully connected member of every instruction set, held against the scalar dense
// reference: random sizes with tails (and the truncation of the blocked members), the input checks and
// refusals, and a framework fixture.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/model_builder.h"
#include "zelva/src/kernel/cpu/avx/fullconnection/members.h"
#include "zelva/src/kernel/cpu/fallback/fullconnection/dense_reference.h"
#include "zelva/src/kernel/cpu/sse/fullconnection/members.h"
#include "zelva/src/kernel/registry/registry.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;
using runtime::TensorShape;

struct Member {
  std::string name;
  KernelGroup group;
  std::shared_ptr<runtime::IKernel> (*make)();
  uint32_t layout;
  FcInput input;
  FcWeight weight;
};

void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}

#define ZV_FC_TEST_MEMBER(group, cls, ...) \
  Member{#cls,                             \
         KernelGroup::group,               \
         &NewKernel<cls>,                  \
         cls##_Member::kLayout,            \
         cls##_Member::kInput,             \
         cls##_Member::kWeight},

const std::vector<Member>& AllMembers() {
  static const std::vector<Member> members = {ZV_SSE_FULLCONNECTION_MEMBERS(ZV_FC_TEST_MEMBER)
                                                  ZV_AVX_FULLCONNECTION_MEMBERS(ZV_FC_TEST_MEMBER)};
  return members;
}

std::shared_ptr<runtime::FullConnectionInfo> Info(uint32_t in, uint32_t out, const std::vector<float>& w,
                                                  const std::vector<float>& bias) {
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->id = "fc";
  info->in_features = static_cast<uint16_t>(in);
  info->out_features = static_cast<uint16_t>(out);
  info->if_bias = !bias.empty();
  info->weight = zvtest::WeightText(w);
  info->bias = zvtest::WeightText(bias);
  return info;
}

// The expectation of a member: the leading (out, in) part rounded down to the member's block goes through the
// reference, the outputs beyond keep the bias (or zero).
std::vector<float> Expected(const Member& m, const float* x, uint32_t in, uint32_t out,
                            const std::vector<float>& w, const std::vector<float>& bias) {
  const uint32_t block = fc_detail::BlockOf(m.weight);
  const uint32_t rows = out / block * block, cols = in / block * block;
  std::vector<float> kept(static_cast<size_t>(rows) * cols);
  for (uint32_t o = 0; o < rows; ++o)
    for (uint32_t i = 0; i < cols; ++i) kept[o * cols + i] = w[o * in + i];
  std::vector<float> y(out, 0.0f);
  if (!bias.empty()) y = bias;
  DenseReference(x, cols, rows, kept.data(), bias.empty() ? nullptr : bias.data(), y.data());
  return y;
}

// Sum of |w x| per output: the scale of the rounding differences of another summation order.
std::vector<float> Magnitudes(const float* x, uint32_t in, uint32_t out, const std::vector<float>& w,
                              const std::vector<float>& bias) {
  std::vector<float> mag(out);
  for (uint32_t o = 0; o < out; ++o) {
    double s = bias.empty() ? 0.0 : std::fabs(bias[o]);
    for (uint32_t i = 0; i < in; ++i) s += std::fabs(w[o * in + i] * x[i]);
    mag[o] = static_cast<float>(s);
  }
  return mag;
}

bool HasAvx() {
  return __builtin_cpu_supports("avx");
}

class FullConnectionTest : public ::testing::TestWithParam<Member> {
 protected:
  void SetUp() override {
    if (GetParam().group == KernelGroup::kAVX && !HasAvx()) GTEST_SKIP() << "no AVX on this processor";
  }

  // An input shape the member accepts: `batch` rows for the batch member, one vector otherwise; `variant`
  // picks among the shapes of members that demand no layout.
  TensorShape InputShape(uint32_t in, uint32_t batch, int variant) const {
    const Member& m = GetParam();
    switch (m.input) {
      case FcInput::kBatchRows:
        return TensorShape({batch, in}, DataType::FLOAT32, m.layout);
      case FcInput::kFirstDim:
        if (m.layout == Layout::FLEXIABLE) return TensorShape({in, 1, 1}, DataType::FLOAT32, m.layout);
        return TensorShape({in}, DataType::FLOAT32, m.layout);
      case FcInput::kElements:
        break;
    }
    if (variant % 3 == 1) return TensorShape({in, 1, 1}, DataType::FLOAT32, Layout::CHW);
    if (variant % 3 == 2 && in % 8 == 0)
      return TensorShape({in / 8, 1, 1, 8}, DataType::FLOAT32, Layout::C8HW8);
    return TensorShape({in}, DataType::FLOAT32, Layout::C);
  }

  std::shared_ptr<runtime::Tensor> Tensor(const TensorShape& shape, const std::vector<float>& values) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, shape, values.data());
    return t;
  }

  std::shared_ptr<runtime::Tensor> Run(runtime::IKernel& kernel,
                                       const std::shared_ptr<runtime::Tensor>& input) {
    EXPECT_EQ(kernel.CheckInputs({input}), runtime::kKernelOk);
    const std::vector<TensorShape> shapes = kernel.GetOutputShapes({input->shape});
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(shapes.size(), 1u);
    EXPECT_EQ(outputs[0]->shape.dims, shapes[0].dims);
    EXPECT_EQ(outputs[0]->shape.layout, shapes[0].layout);
    return outputs[0];
  }

  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_P(FullConnectionTest, MatchesReferenceOverRandomSizes) {
  const Member& m = GetParam();
  const bool blocked = m.weight != FcWeight::kRows;
  std::mt19937 rng(1234);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  std::uniform_int_distribution<uint32_t> any(1, 70), blocks(1, 9), coin(0, 1), batches(1, 4);
  for (int trial = 0; trial < 40; ++trial) {
    // Half the trials on whole blocks of 8, the rest on any size (tails, and truncation for blocked members).
    const bool whole = trial % 2 == 0;
    const uint32_t in = whole ? 8 * blocks(rng) : any(rng);
    const uint32_t out = whole ? 8 * blocks(rng) : any(rng);
    const uint32_t batch = m.input == FcInput::kBatchRows ? batches(rng) : 1;
    std::vector<float> w(in * out), bias, x(batch * in);
    for (float& v : w) v = value(rng);
    for (float& v : x) v = value(rng);
    if (coin(rng) != 0) {
      bias.resize(out);
      for (float& v : bias) v = value(rng);
    }
    SCOPED_TRACE(m.name + " in " + std::to_string(in) + " out " + std::to_string(out) + " batch " +
                 std::to_string(batch) + (bias.empty() ? " no bias" : " bias"));

    std::shared_ptr<runtime::IKernel> kernel = m.make();
    EXPECT_FALSE(kernel->IsConfigured());
    ASSERT_TRUE(kernel->Config(Info(in, out, w, bias), nullptr, nullptr, context_));
    EXPECT_TRUE(kernel->IsConfigured());
    const std::shared_ptr<runtime::Tensor> y = Run(*kernel, Tensor(InputShape(in, batch, trial), x));
    ASSERT_EQ(static_cast<uint32_t>(y->shape.ElementCount()), batch * out);

    for (uint32_t b = 0; b < batch; ++b) {
      const float* xb = x.data() + b * in;
      const float* yb = y->Data<float>() + b * out;
      const std::vector<float> expected = Expected(m, xb, in, out, w, bias);
      const std::vector<float> mag = Magnitudes(xb, in, out, w, bias);
      for (uint32_t o = 0; o < out; ++o) {
        if (blocked) {
          // One running sum per output in input order: the reference's own order, bit for bit.
          EXPECT_EQ(yb[o], expected[o]) << "output " << o;
        } else {
          EXPECT_NEAR(yb[o], expected[o], 1e-6f * (1.0f + mag[o])) << "output " << o;
        }
      }
    }
  }
}

TEST_P(FullConnectionTest, RefusalsAndInputChecks) {
  const Member& m = GetParam();
  const uint32_t in = 16, out = 8;
  const std::vector<float> w(in * out, 0.5f), bias(out, 1.0f);
  std::shared_ptr<runtime::IKernel> kernel = m.make();
  EXPECT_EQ(kernel->GetName(), m.name);

  EXPECT_EQ(kernel->CheckSupport(Info(in, out, w, bias), nullptr), runtime::kKernelOk);
  EXPECT_EQ(kernel->CheckSupport(nullptr, nullptr), runtime::kKernelNotSupported);
  EXPECT_FALSE(kernel->Config(Info(in, out, w, bias), std::make_shared<runtime::InferenceParamActQuant>(),
                              nullptr, context_));
  EXPECT_FALSE(kernel->Config(std::make_shared<runtime::BatchNorm2dInfo>(), nullptr, nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
  runtime::TensorList outputs;
  const std::vector<float> x(in, 1.0f);
  EXPECT_THROW(kernel->Forward({Tensor(InputShape(in, 1, 0), x)}, outputs, context_), std::runtime_error);

  // Weight or bias text shorter than the layer needs is reported, not read past.
  EXPECT_THROW(
      kernel->Config(Info(in, out, std::vector<float>(in * out - 1, 0.5f), bias), nullptr, nullptr, context_),
      std::runtime_error);
  auto short_bias = Info(in, out, w, {1.0f});
  EXPECT_THROW(kernel->Config(short_bias, nullptr, nullptr, context_), std::runtime_error);

  ASSERT_TRUE(kernel->Config(Info(in, out, w, bias), nullptr, nullptr, context_));
  const TensorShape good = InputShape(in, 2, 0);
  EXPECT_EQ(kernel->CheckInputs({Tensor(good, std::vector<float>(2 * in))}), runtime::kKernelOk);
  EXPECT_EQ(kernel->CheckInputs({}), runtime::kKernelBadTensor);
  EXPECT_EQ(kernel->CheckInputs({nullptr}), runtime::kKernelBadTensor);
  const auto input = Tensor(good, std::vector<float>(2 * in));
  EXPECT_EQ(kernel->CheckInputs({input, input}), runtime::kKernelBadTensor);

  TensorShape half = good;
  half.data_type = DataType::FLOAT16;
  EXPECT_EQ(kernel->CheckInputs({Tensor(half, std::vector<float>(2 * in))}), runtime::kKernelBadTensor);
  TensorShape remote = good;
  remote.location = Location::OpenGLSSBO;
  EXPECT_EQ(kernel->CheckInputs({Tensor(remote, std::vector<float>(2 * in))}), runtime::kKernelBadTensor);

  // One channel too many, in the place the member reads the channel count from.
  TensorShape wide = good;
  if (m.input == FcInput::kBatchRows) {
    wide.dims[1] = in + 1;
  } else {
    wide.dims[0] += 1;
  }
  EXPECT_EQ(kernel->CheckInputs({Tensor(wide, std::vector<float>(2 * in + 16))}), runtime::kKernelBadTensor);

  // The layout code: demanded exactly where the member demands one, any layout otherwise.
  TensorShape other = good;
  other.layout = good.layout == Layout::CHW ? Layout::C4HW4 : Layout::CHW;
  EXPECT_EQ(kernel->CheckInputs({Tensor(other, std::vector<float>(2 * in))}),
            m.layout == kFcAnyLayout ? runtime::kKernelOk : runtime::kKernelBadTensor);
  if (m.input == FcInput::kElements) {
    EXPECT_EQ(kernel->CheckInputs({Tensor(TensorShape({2, 1, 1, 8}, DataType::FLOAT32, Layout::C8HW8),
                                          std::vector<float>(in))}),
              runtime::kKernelOk);
  }
}

// Reference values of nn.Linear with and without bias (tools/gen_linear_fixture.py), through every member.
TEST_P(FullConnectionTest, MatchesFrameworkFixture) {
  const Member& m = GetParam();
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/linear_fixture.txt");
  ASSERT_TRUE(file.good());
  int cases = 0;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream head(line);
    uint32_t in = 0, out = 0, has_bias = 0, batch = 0;
    if (!(head >> in >> out >> has_bias >> batch)) break;
    auto read = [&file]() {
      std::string text;
      std::getline(file, text);
      std::istringstream row(text);
      std::vector<float> values;
      float v;
      while (row >> v) values.push_back(v);
      return values;
    };
    const std::vector<float> w = read(), bias = read(), x = read(), expected = read();
    ASSERT_EQ(w.size(), in * out);
    ASSERT_EQ(bias.size(), has_bias != 0 ? out : 0u);
    ASSERT_EQ(expected.size(), batch * out);
    ++cases;

    std::shared_ptr<runtime::IKernel> kernel = m.make();
    ASSERT_TRUE(kernel->Config(Info(in, out, w, bias), nullptr, nullptr, context_));
    const uint32_t rows = m.input == FcInput::kBatchRows ? batch : 1;
    for (uint32_t b = 0; b < batch; b += rows) {
      const std::vector<float> xb(x.begin() + b * in, x.begin() + (b + rows) * in);
      const std::shared_ptr<runtime::Tensor> y = Run(*kernel, Tensor(InputShape(in, rows, 0), xb));
      for (uint32_t k = 0; k < rows * out; ++k) {
        const float e = expected[b * out + k];
        EXPECT_NEAR(y->Data<float>()[k], e, 1e-5f * (1.0f + std::fabs(e)))
            << m.name << " row " << b << " " << k;
      }
    }
  }
  EXPECT_EQ(cases, 3);
}

INSTANTIATE_TEST_SUITE_P(Members, FullConnectionTest, ::testing::ValuesIn(AllMembers()),
                         [](const ::testing::TestParamInfo<Member>& info) { return info.param.name; });

// The 8x8 method drops the fraction of sizes that are not multiples of 8: inputs beyond the last whole block
// are ignored and outputs beyond it stay at their bias.
TEST(FullConnectionAvxM2, TruncatesToWholeBlocksOfEight) {
  if (!HasAvx()) GTEST_SKIP() << "no AVX on this processor";
  auto context = zvtest::MakeTestContext();
  const uint32_t in = 20, out = 21;
  std::vector<float> w(in * out, 0.0f), bias(out), x(in, 1.0f);
  for (uint32_t o = 0; o < out; ++o) {
    bias[o] = 0.25f * static_cast<float>(o);
    for (uint32_t i = 0; i < in; ++i) w[o * in + i] = 1.0f;
  }
  for (uint32_t i = 16; i < in; ++i) x[i] = 1e30f;  // never read into a sum

  for (const bool with_bias : {true, false}) {
    FullConnection_AVX_C_Float_M2 kernel;
    ASSERT_TRUE(
        kernel.Config(Info(in, out, w, with_bias ? bias : std::vector<float>()), nullptr, nullptr, context));
    std::shared_ptr<runtime::Tensor> input;
    context->GetDeviceCPU()->CreateVector(input, in, x.data());
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context);
    const float* y = outputs[0]->Data<float>();
    for (uint32_t o = 0; o < 16; ++o) EXPECT_EQ(y[o], (with_bias ? bias[o] : 0.0f) + 16.0f) << o;
    for (uint32_t o = 16; o < out; ++o) EXPECT_EQ(y[o], with_bias ? bias[o] : 0.0f) << o;
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
