#include "zelva/src/kernel/cpu/fallback/batchnorm/batchnorm2d_fallback.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/model_builder.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

std::vector<float> ReadRow(std::istream& in) {
  std::string line;
  std::getline(in, line);
  std::istringstream row(line);
  std::vector<float> values;
  float v;
  while (row >> v) values.push_back(v);
  return values;
}

std::shared_ptr<runtime::BatchNorm2dInfo> Info(const std::vector<float>& scale,
                                               const std::vector<float>& shift,
                                               const std::vector<float>& mean,
                                               const std::vector<float>& variance, float eps) {
  auto info = std::make_shared<runtime::BatchNorm2dInfo>();
  info->num_features = static_cast<uint16_t>(scale.size());
  info->eps = eps;
  info->scale = zvtest::WeightText(scale);
  info->shift = zvtest::WeightText(shift);
  info->mean = zvtest::WeightText(mean);
  info->variance = zvtest::WeightText(variance);
  return info;
}

class BatchNorm2dTest : public ::testing::Test {
 protected:
  std::vector<float> Run(BatchNorm2d_Fallback_Float_M1& kernel, const std::vector<uint32_t>& dims,
                         const std::vector<float>& x) {
    std::shared_ptr<runtime::Tensor> input;
    context_->GetDeviceCPU()->CreateTensor(input, TensorShape(dims, DataType::FLOAT32, Layout::CHW),
                                           x.data());
    runtime::TensorList outputs;
    kernel.Forward({input}, outputs, context_);
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(outputs[0]->shape.dims, dims);
    return std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + x.size());
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
};

// Reference values from the eval-mode layer of a deep-learning framework (tools/gen_batchnorm_fixture.py).
TEST_F(BatchNorm2dTest, MatchesFrameworkFixture) {
  std::ifstream file(std::string(ZELVA_TEST_DATA_DIR) + "/batchnorm2d_fixture.txt");
  ASSERT_TRUE(file.good());
  const std::vector<float> head = ReadRow(file);
  ASSERT_EQ(head.size(), 4u);
  const uint32_t c = static_cast<uint32_t>(head[0]), h = static_cast<uint32_t>(head[1]),
                 w = static_cast<uint32_t>(head[2]);
  const std::vector<float> scale = ReadRow(file), shift = ReadRow(file), mean = ReadRow(file),
                           variance = ReadRow(file), x = ReadRow(file), expected = ReadRow(file);
  ASSERT_EQ(expected.size(), c * h * w);

  BatchNorm2d_Fallback_Float_M1 kernel;
  ASSERT_TRUE(kernel.Config(Info(scale, shift, mean, variance, head[3]), nullptr, nullptr, context_));
  const std::vector<float> y = Run(kernel, {c, h, w}, x);
  for (size_t k = 0; k < y.size(); ++k)
    EXPECT_NEAR(y[k], expected[k], 1e-5f * (1.0f + std::fabs(expected[k]))) << k;
}

TEST_F(BatchNorm2dTest, IdentityZeroVarianceAndNoAffine) {
  const std::vector<float> x = {1.5f, -2.0f, 0.25f, 3.0f, -0.5f, 8.0f};
  BatchNorm2d_Fallback_Float_M1 identity;
  ASSERT_TRUE(identity.Config(Info({1, 1}, {0, 0}, {0, 0}, {1, 1}, 0.0f), nullptr, nullptr, context_));
  EXPECT_EQ(Run(identity, {2, 1, 3}, x), x);

  // variance 0 and eps 0: division by zero, no guard; the channel is no longer finite, the other untouched.
  BatchNorm2d_Fallback_Float_M1 zero;
  ASSERT_TRUE(zero.Config(Info({1, 1}, {0, 0}, {0, 0}, {0, 1}, 0.0f), nullptr, nullptr, context_));
  EXPECT_TRUE(std::isinf(zero.folded_scale()->Data<float>()[0]));
  const std::vector<float> y = Run(zero, {2, 1, 3}, x);
  for (int k = 0; k < 3; ++k) EXPECT_FALSE(std::isfinite(y[k])) << k;
  EXPECT_EQ(y[3], 3.0f);

  // Without affine parameters only the statistics act: (x - 1) / sqrt(4) per channel.
  auto info = Info({}, {}, {1, 1}, {4, 4}, 0.0f);
  info->num_features = 2;
  info->if_affine = false;
  BatchNorm2d_Fallback_Float_M1 plain;
  ASSERT_TRUE(plain.Config(info, nullptr, nullptr, context_));
  EXPECT_EQ(Run(plain, {2, 1, 3}, x)[0], 0.25f);
}

TEST_F(BatchNorm2dTest, RefusalsAndChecks) {
  BatchNorm2d_Fallback_Float_M1 kernel;
  auto info = Info({1}, {0}, {0}, {1}, 0.0f);
  EXPECT_FALSE(kernel.Config(info, std::make_shared<runtime::InferenceParamActQuant>(), nullptr, context_));
  EXPECT_FALSE(kernel.Config(std::make_shared<runtime::BatchNorm1dInfo>(), nullptr, nullptr, context_));
  EXPECT_FALSE(kernel.IsConfigured());

  // A weight text shorter than the feature count is reported, not read past.
  auto short_info = Info({1}, {0}, {0}, {1}, 0.0f);
  short_info->num_features = 2;
  EXPECT_THROW(kernel.Config(short_info, nullptr, nullptr, context_), std::runtime_error);

  ASSERT_TRUE(kernel.Config(info, nullptr, nullptr, context_));
  std::shared_ptr<runtime::Tensor> planar, blocked;
  std::vector<float> four(4, 1.0f);
  context_->GetDeviceCPU()->CreateTensor(planar, TensorShape({1, 2, 2}, DataType::FLOAT32, Layout::CHW),
                                         four.data());
  context_->GetDeviceCPU()->CreateTensor(blocked, TensorShape({1, 1, 1, 4}, DataType::FLOAT32, Layout::C4HW4),
                                         four.data());
  EXPECT_EQ(kernel.CheckInputs({planar}), 0);
  EXPECT_EQ(kernel.CheckOutputs({planar}), 0);
  EXPECT_EQ(kernel.CheckInputs({blocked}), -2);
  EXPECT_EQ(kernel.CheckInputs({planar, planar}), -2);

  // A tensor whose channel count is not the layer's is reported.
  std::shared_ptr<runtime::Tensor> two;
  context_->GetDeviceCPU()->CreateTensor(two, TensorShape({2, 1, 2}, DataType::FLOAT32, Layout::CHW),
                                         four.data());
  runtime::TensorList outputs;
  EXPECT_THROW(kernel.Forward({two}, outputs, context_), std::runtime_error);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
