// The fully connected family tester: every row of the member list, every instruction set the processor has,
// against the scalar dense reference under the row's accuracy class over random sizes with tails (and the
// truncation of the blocked members); the input checks and refusals; PyTorch's nn.Linear fixture through the
// reference and every member.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/family/fullconnection/reference.h"
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
  Isa isa;
  Accuracy accuracy;
  uint32_t layout;
  FcInput input;
  uint32_t block;  // the weight order's lanes: sizes are cut down to whole blocks
  std::shared_ptr<runtime::IKernel> (*make)();
};

void PrintTo(const Member& m, std::ostream* os) {
  *os << m.name;
}

constexpr uint32_t Lanes(FcWeight form) {
  return form == FcWeight::kRows ? 1 : form == FcWeight::kBlock4 ? 4 : 8;
}

#define ZV_FC_TEST_ROW(group, isa, cls, accuracy, layout, rule, form, core) \
  Member{#cls, Isa::isa, accuracy, layout, FcInput::rule, Lanes(FcWeight::form), &NewKernel<cls>},
const std::vector<Member>& Members() {
  static const std::vector<Member> members = {ZV_FULLCONNECTION_MEMBERS(ZV_FC_TEST_ROW)};
  return members;
}
#undef ZV_FC_TEST_ROW

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

// The expectation of a member: the leading (out, in) part cut down to the member's block goes through the
// reference, the outputs beyond keep the bias (or zero).
std::vector<float> Expected(const Member& m, const float* x, uint32_t in, uint32_t out,
                            const std::vector<float>& w, const std::vector<float>& bias) {
  const uint32_t rows = out / m.block * m.block, cols = in / m.block * m.block;
  std::vector<float> kept(static_cast<size_t>(rows) * cols);
  for (uint32_t o = 0; o < rows; ++o)
    for (uint32_t i = 0; i < cols; ++i) kept[o * cols + i] = w[o * in + i];
  std::vector<float> y = bias.empty() ? std::vector<float>(out, 0.0f) : bias;
  DenseReference(x, cols, rows, kept.data(), bias.empty() ? nullptr : bias.data(), y.data());
  return y;
}

class FullConnectionTest : public ::testing::TestWithParam<Member> {
 protected:
  void SetUp() override {
    if (!zvtest::CanRun(GetParam().isa)) GTEST_SKIP() << GetParam().name << ": the processor lacks its isa";
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

  // Forward as the net runs it; the output agrees with GetOutputShapes.
  std::vector<float> Run(runtime::IKernel& kernel, const std::shared_ptr<runtime::Tensor>& input) {
    EXPECT_EQ(kernel.CheckInputs({input}), runtime::kKernelOk);
    const std::vector<TensorShape> shapes = kernel.GetOutputShapes({input->shape});
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    if (outputs.size() != 1 || shapes.size() != 1) {
      ADD_FAILURE() << "one output expected";
      return {};
    }
    EXPECT_EQ(outputs[0]->shape.dims, shapes[0].dims);
    EXPECT_EQ(outputs[0]->shape.layout, shapes[0].layout);
    return zvtest::Values(outputs[0]);
  }

  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

TEST_P(FullConnectionTest, MatchesReferenceOverRandomSizes) {
  const Member& m = GetParam();
  std::mt19937 rng(1234);
  std::uniform_int_distribution<uint32_t> any(1, 70), blocks(1, 9), coin(0, 1), batches(1, 4);
  for (int trial = 0; trial < 40; ++trial) {
    // Half the trials on whole blocks of 8, the rest on any size (tails, and truncation for blocked members).
    const bool whole = trial % 2 == 0;
    const uint32_t in = whole ? 8 * blocks(rng) : any(rng);
    const uint32_t out = whole ? 8 * blocks(rng) : any(rng);
    const uint32_t batch = m.input == FcInput::kBatchRows ? batches(rng) : 1;
    const std::vector<float> w = zvtest::RandomFloats(in * out, rng(), -1.0f, 1.0f);
    const std::vector<float> x = zvtest::RandomFloats(batch * in, rng(), -1.0f, 1.0f);
    const std::vector<float> bias =
        coin(rng) != 0 ? zvtest::RandomFloats(out, rng(), -1.0f, 1.0f) : std::vector<float>();
    const std::string what = m.name + " in " + std::to_string(in) + " out " + std::to_string(out) +
                             " batch " + std::to_string(batch) + (bias.empty() ? " no bias" : " bias");

    std::shared_ptr<runtime::IKernel> kernel = m.make();
    ASSERT_TRUE(kernel->Config(Info(in, out, w, bias), nullptr, nullptr, context_)) << what;
    EXPECT_TRUE(kernel->IsConfigured());
    const std::vector<float> y = Run(*kernel, Tensor(InputShape(in, batch, trial), x));
    std::vector<float> want;
    for (uint32_t b = 0; b < batch; ++b) {
      const std::vector<float> row = Expected(m, x.data() + b * in, in, out, w, bias);
      want.insert(want.end(), row.begin(), row.end());
    }
    zvtest::ExpectAccuracy(y, want, m.accuracy, what);
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
  zvtest::ExpectCommonRefusals(*kernel, Info(in, out, w, bias), std::make_shared<runtime::BatchNorm2dInfo>(),
                               context_);
  runtime::TensorList outputs;
  EXPECT_THROW(kernel->Forward({Tensor(InputShape(in, 1, 0), std::vector<float>(in))}, outputs, context_),
               std::runtime_error);

  // Weight or bias text shorter than the layer needs is reported, not read past.
  EXPECT_THROW(
      kernel->Config(Info(in, out, std::vector<float>(in * out - 1, 0.5f), bias), nullptr, nullptr, context_),
      std::runtime_error);
  EXPECT_THROW(kernel->Config(Info(in, out, w, {1.0f}), nullptr, nullptr, context_), std::runtime_error);

  ASSERT_TRUE(kernel->Config(Info(in, out, w, bias), nullptr, nullptr, context_));
  const TensorShape good = InputShape(in, 2, 0);
  const auto input = Tensor(good, std::vector<float>(2 * in));
  EXPECT_EQ(kernel->CheckInputs({input}), runtime::kKernelOk);
  EXPECT_EQ(kernel->CheckInputs({}), runtime::kKernelBadTensor);
  EXPECT_EQ(kernel->CheckInputs({nullptr}), runtime::kKernelBadTensor);
  EXPECT_EQ(kernel->CheckInputs({input, input}), runtime::kKernelBadTensor);
  TensorShape half = good;
  half.data_type = DataType::FLOAT16;
  EXPECT_EQ(kernel->CheckInputs({Tensor(half, std::vector<float>(2 * in))}), runtime::kKernelBadTensor);
  TensorShape remote = good;
  remote.location = Location::OpenGLSSBO;
  EXPECT_EQ(kernel->CheckInputs({Tensor(remote, std::vector<float>(2 * in))}), runtime::kKernelBadTensor);

  // One channel too many, in the place the member reads the channel count from.
  TensorShape wide = good;
  wide.dims[m.input == FcInput::kBatchRows ? 1 : 0] += 1;
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

// Cases of nn.Linear with and without bias (tools/gen_linear_fixture.py).
struct LinearCase {
  uint32_t in = 0, out = 0, batch = 0;
  std::vector<float> w, bias, x, y;
};

std::vector<LinearCase> ReadLinearFixture() {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/linear_fixture.txt");
  EXPECT_TRUE(file.good());
  std::vector<LinearCase> cases;
  for (std::vector<float> head = zvtest::ReadFixtureRow(file); head.size() == 4;
       head = zvtest::ReadFixtureRow(file)) {
    LinearCase c;
    c.in = static_cast<uint32_t>(head[0]);
    c.out = static_cast<uint32_t>(head[1]);
    c.batch = static_cast<uint32_t>(head[3]);
    c.w = zvtest::ReadFixtureRow(file);
    c.bias = zvtest::ReadFixtureRow(file);
    c.x = zvtest::ReadFixtureRow(file);
    c.y = zvtest::ReadFixtureRow(file);
    EXPECT_EQ(c.w.size(), c.in * c.out);
    EXPECT_EQ(c.bias.size(), head[2] != 0 ? c.out : 0u);
    EXPECT_EQ(c.y.size(), c.batch * c.out);
    cases.push_back(std::move(c));
  }
  EXPECT_EQ(cases.size(), 3u);
  return cases;
}

constexpr Accuracy kVersusPyTorch = Within(1e-5f, 1e-5f);

// The reference itself, which the bit-exact members equal, against PyTorch.
TEST(FullConnectionReference, MatchesPyTorch) {
  for (const LinearCase& c : ReadLinearFixture()) {
    std::vector<float> y(c.batch * c.out);
    for (uint32_t b = 0; b < c.batch; ++b)
      DenseReference(c.x.data() + b * c.in, c.in, c.out, c.w.data(), c.bias.empty() ? nullptr : c.bias.data(),
                     y.data() + b * c.out);
    zvtest::ExpectAccuracy(y, c.y, kVersusPyTorch, "reference " + std::to_string(c.in));
  }
}

INSTANTIATE_TEST_SUITE_P(Members, FullConnectionTest, ::testing::ValuesIn(Members()), zvtest::MemberName());

}  // namespace
}  // namespace kernel
}  // namespace zelva
