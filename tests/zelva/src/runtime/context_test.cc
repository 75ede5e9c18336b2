#include "zelva/src/runtime/context.h"

#include <gtest/gtest.h>

namespace zelva {
namespace runtime {
namespace {

TEST(ContextTest, EngineContextHoldsOneDeviceWithTwoPools) {
  auto context = CreateCPUContext(4096);
  DeviceCPU* device = context->GetDeviceCPU();
  EXPECT_EQ(context->reserved_device1, nullptr);
  EXPECT_EQ(context->reserved_device5, nullptr);
  EXPECT_EQ(device->host_pool, nullptr);
  auto* pool = dynamic_cast<AlignedPool*>(device->pool.get());
  auto* up_pool = dynamic_cast<AlignUpPool*>(device->up_pool.get());
  ASSERT_TRUE(pool != nullptr && up_pool != nullptr);
  EXPECT_EQ(pool->alignment, 4096u);
  EXPECT_EQ(up_pool->alignment, 4096u);
}

TEST(ContextTest, InstancesDoNotShareBlocksAndTearDownCleanly) {
  auto first = CreateCPUContext(32);
  auto second = CreateCPUContext(32);
  std::shared_ptr<Tensor> a, b;
  first->GetDeviceCPU()->use_up_pool = true;
  first->GetDeviceCPU()->CreateTensor(a, TensorShape({16}, DataType::FLOAT32, Layout::C));
  void* block = a->data;
  a.reset();
  second->GetDeviceCPU()->use_up_pool = true;
  second->GetDeviceCPU()->CreateTensor(b, TensorShape({16}, DataType::FLOAT32, Layout::C));
  EXPECT_NE(b->data, block);
  b.reset();
  // All tensors returned: the up-pools' destructors find nothing in use.
  EXPECT_NO_THROW(first.reset());
  EXPECT_NO_THROW(second.reset());
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
