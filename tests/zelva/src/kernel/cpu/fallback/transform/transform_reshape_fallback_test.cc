#include "zelva/src/kernel/cpu/fallback/transform/transform_reshape_fallback.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "support/model_builder.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::DataType;
using runtime::Layout;
using runtime::TensorShape;

std::shared_ptr<runtime::TensorReshapeInfo> Reshape(std::vector<int16_t> new_shape) {
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  info->new_shape = std::move(new_shape);
  return info;
}

class TransformReshapeTest : public ::testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> Make(const TensorShape& shape, const std::vector<float>& values) {
    std::shared_ptr<runtime::Tensor> t;
    context_->GetDeviceCPU()->CreateTensor(t, shape, values.data());
    return t;
  }
  std::shared_ptr<runtime::Context> context_ = zvtest::MakeTestContext();
  Transform_MainMemory_Reshape_Fallback kernel_;
};

TEST_F(TransformReshapeTest, SupportAndConfig) {
  EXPECT_EQ(kernel_.CheckSupport(Reshape({1, -1}), nullptr), 0);
  EXPECT_EQ(kernel_.CheckSupport(Reshape({1, -1}), std::make_shared<runtime::InferenceParamActQuant>()), -1);
  EXPECT_EQ(kernel_.CheckSupport(std::make_shared<runtime::TensorExpandInfo>(), nullptr), -1);
  EXPECT_EQ(kernel_.CheckSupport(nullptr, nullptr), -1);
  EXPECT_FALSE(kernel_.Config(nullptr, nullptr, nullptr, context_));
  EXPECT_FALSE(kernel_.IsConfigured());
}

// A blocked tensor comes out in planar (logical) order.
TEST_F(TransformReshapeTest, BlockedToVectorUnblocks) {
  ASSERT_TRUE(kernel_.Config(Reshape({1, -1}), nullptr, nullptr, context_));
  const uint32_t channels = 16, width = 74;  // stored as [4, 1, 74, 4]
  std::vector<float> planar(channels * width), blocked(channels * width);
  for (uint32_t c = 0; c < channels; ++c)
    for (uint32_t w = 0; w < width; ++w) {
      planar[c * width + w] = static_cast<float>(c * 1000 + w);
      blocked[((c / 4) * width + w) * 4 + c % 4] = planar[c * width + w];
    }
  auto input = Make(TensorShape({4, 1, 74, 4}, DataType::FLOAT32, Layout::C4HW4), blocked);
  runtime::TensorList outputs;
  kernel_.Forward({input}, outputs, context_);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0]->shape.dims, std::vector<uint32_t>{1184});
  EXPECT_EQ(outputs[0]->shape.layout, Layout::C);
  EXPECT_EQ(std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + 1184), planar);
}

TEST_F(TransformReshapeTest, ShapeRulesAndPlainCopy) {
  ASSERT_TRUE(kernel_.Config(Reshape({1, 16, -1}), nullptr, nullptr, context_));
  std::vector<float> values(16 * 5 * 3);
  for (size_t k = 0; k < values.size(); ++k) values[k] = static_cast<float>(k) * 0.5f;
  auto input = Make(TensorShape({16, 5, 3}, DataType::FLOAT32, Layout::CHW), values);
  runtime::TensorList outputs;
  kernel_.Forward({input}, outputs, context_);
  EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{16, 15}));
  EXPECT_EQ(outputs[0]->shape.layout, Layout::CL);
  EXPECT_EQ(std::vector<float>(outputs[0]->Data<float>(), outputs[0]->Data<float>() + values.size()), values);

  // Rank decides the layout; a batch other than 1 stays; 0 counts as unknown like -1.
  const TensorShape in({2, 3, 4}, DataType::FLOAT32, Layout::CHW);
  const struct {
    std::vector<int16_t> new_shape;
    std::vector<uint32_t> dims;
    uint32_t layout;
  } cases[] = {
      {{1, 2, 3, 4}, {2, 3, 4}, Layout::CHW},
      {{1, 0, 6}, {4, 6}, Layout::CL},
      {{2, 12}, {2, 12}, Layout::CL},
      {{1, 1, 2, 3, 4}, {1, 2, 3, 4}, Layout::FLEXIABLE},
  };
  for (const auto& c : cases) {
    Transform_MainMemory_Reshape_Fallback k;
    ASSERT_TRUE(k.Config(Reshape(c.new_shape), nullptr, nullptr, context_));
    const auto out = k.GetOutputShapes({in});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].dims, c.dims);
    EXPECT_EQ(out[0].layout, c.layout);
  }

  Transform_MainMemory_Reshape_Fallback wrong;
  ASSERT_TRUE(wrong.Config(Reshape({1, 5, 5}), nullptr, nullptr, context_));
  EXPECT_THROW(wrong.GetOutputShapes({in}), std::runtime_error);
}

TEST_F(TransformReshapeTest, TensorChecks) {
  auto good = Make(TensorShape({2}, DataType::FLOAT32, Layout::C), {1, 2});
  auto half = Make(TensorShape({2}, DataType::FLOAT16, Layout::C), {1});
  EXPECT_EQ(kernel_.CheckInputs({good}), 0);
  EXPECT_EQ(kernel_.CheckInputs({half}), -2);
  EXPECT_EQ(kernel_.CheckInputs({good, good}), -2);
  EXPECT_EQ(kernel_.CheckOutputs({}), -2);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
