#include "zelva/src/runtime/tensor.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {
namespace {

class TensorTest : public ::testing::Test {
 protected:
  std::shared_ptr<Context> context = CreateCPUContext(64);
  DeviceCPU& device = *context->GetDeviceCPU();
};

TEST_F(TensorTest, StridesAreRowMajorInElements) {
  std::shared_ptr<Tensor> t;
  device.CreateTensor(t, TensorShape({2, 3, 4}, DataType::FLOAT32, Layout::CHW));
  EXPECT_EQ(TensorCPU::Cast(t)->strides, (std::vector<int32_t>{12, 4, 1}));
  device.CreateTensor(t, TensorShape({}, DataType::FLOAT32, Layout::FLEXIABLE));
  EXPECT_TRUE(TensorCPU::Cast(t)->strides.empty());
}

TEST_F(TensorTest, TypedAccessAndUnknownType) {
  std::vector<float> host(2 * 3 * 4);
  for (size_t i = 0; i < host.size(); ++i) host[i] = static_cast<float>(i);
  std::shared_ptr<Tensor> t;
  device.WrapPlanar(t, {2, 3, 4}, host.data());
  const TensorCPU* cpu = TensorCPU::Cast(t);
  EXPECT_EQ(*cpu->ElementPtr<float>(1, 2, 3), 23.0f);
  EXPECT_EQ(*cpu->ElementPtr<float>(1, 1), 16.0f);
  EXPECT_EQ(t->Data<float>(), host.data());

  device.WrapTensor(t, TensorShape({2, 3, 4}, 8, Layout::CHW), host.data());
  EXPECT_EQ(TensorCPU::Cast(t)->ElementPtr(1, 2, 3), host.data());
}

TEST_F(TensorTest, MoreIndicesThanDimsIsRefused) {
  float x[6] = {};
  std::shared_ptr<Tensor> t;
  device.WrapTensor(t, TensorShape({2, 3}, DataType::FLOAT32, Layout::BC), x);
  EXPECT_THROW(TensorCPU::Cast(t)->ElementPtr(0, 0, 0), std::runtime_error);
  EXPECT_THROW(TensorCPU::Cast(nullptr), std::runtime_error);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
