#include "zelva/src/kernel/cpu/fallback/input/input_fallback.h"

#include <gtest/gtest.h>

#include "support/model_builder.h"

namespace zelva {
namespace kernel {
namespace {

TEST(InputFallbackTest, ConfigReadsTheConverterTestInverted) {
  auto context = zvtest::MakeTestContext();
  auto info = std::make_shared<runtime::InputInfo>();
  auto param = std::make_shared<runtime::InferenceParamActQuant>();

  Input_Fallback_M1 bare;
  EXPECT_EQ(bare.CheckSupport(nullptr, nullptr), 0);
  EXPECT_FALSE(bare.Config(nullptr, nullptr, nullptr, context));  // what a converter accepts, it refuses
  EXPECT_FALSE(bare.IsConfigured());

  Input_Fallback_M1 described;
  EXPECT_EQ(described.CheckSupport(info, nullptr), -1);
  EXPECT_TRUE(described.Config(info, nullptr, nullptr, context));
  EXPECT_TRUE(described.IsConfigured());

  Input_Fallback_M1 with_param;
  EXPECT_TRUE(with_param.Config(nullptr, param, nullptr, context));
}

TEST(InputFallbackTest, ForwardHandsOnTheSameTensors) {
  auto context = zvtest::MakeTestContext();
  float data[6] = {1, 2, 3, 4, 5, 6};
  std::shared_ptr<runtime::Tensor> tensor;
  context->GetDeviceCPU()->WrapPlanar(tensor, {1, 2, 3}, data);
  Input_Fallback_M1 kernel;
  runtime::TensorList outputs{nullptr, nullptr};
  kernel.Forward({tensor}, outputs, context);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0], tensor);
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
