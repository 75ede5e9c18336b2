#include "zelva/src/runtime/device.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {
namespace {

// The device of an engine's context: an AlignedPool as `pool`, an AlignUpPool as `up_pool`, no host pool.
class DeviceTest : public ::testing::Test {
 protected:
  std::shared_ptr<Context> context = CreateCPUContext(4096);
  DeviceCPU* device = context->GetDeviceCPU();
  AlignedPool* pool = dynamic_cast<AlignedPool*>(device->pool.get());
  AlignUpPool* up_pool = dynamic_cast<AlignUpPool*>(device->up_pool.get());
};

TEST_F(DeviceTest, ContextPoolsAndTheUpPoolFlag) {
  ASSERT_TRUE(pool != nullptr && up_pool != nullptr);
  EXPECT_EQ(pool->alignment, 4096u);
  EXPECT_EQ(up_pool->alignment, 4096u);
  EXPECT_EQ(device->host_pool, nullptr);

  const TensorShape shape({4, 5}, DataType::FLOAT32, Layout::BC);
  std::shared_ptr<Tensor> weight, working, forced;
  device->CreateTensor(weight, shape);
  device->use_up_pool = true;
  device->CreateTensor(working, shape);
  device->use_up_pool = false;
  device->CreateTensorInUpPool(forced, shape);
  EXPECT_EQ(pool->used_blocks.count(weight->data), 1u);
  EXPECT_EQ(up_pool->used_blocks.count(working->data), 1u);
  EXPECT_EQ(up_pool->used_blocks.count(forced->data), 1u);
  EXPECT_EQ(weight->device, device);

  // The deleters were fixed at creation: `working` goes back to the up-pool although the flag is clear now.
  working.reset();
  forced.reset();
  weight.reset();
  EXPECT_TRUE(pool->used_blocks.empty() && up_pool->used_blocks.empty());
  EXPECT_EQ(pool->free_blocks.size(), 1u);
  EXPECT_EQ(up_pool->free_blocks.size(), 2u);

  // Another context has pools of its own, and tears down cleanly once its tensors are back.
  auto other = CreateCPUContext(4096);
  other->GetDeviceCPU()->use_up_pool = true;
  other->GetDeviceCPU()->CreateTensor(working, shape);
  EXPECT_EQ(up_pool->used_blocks.count(working->data), 0u);
  working.reset();
  EXPECT_NO_THROW(other.reset());
}

TEST_F(DeviceTest, UseUpPoolWithoutUpPoolFallsBackToPool) {
  std::shared_ptr<Tensor> empty;  // a zero-sized shape still takes a block
  device->CreateTensor(empty, TensorShape({4, 0}, DataType::FLOAT32, Layout::BC));
  EXPECT_EQ(pool->used_blocks.count(empty->data), 1u);

  auto plain = DeviceCPU::Create(DeviceConfig(), device->pool, nullptr, nullptr);
  plain->use_up_pool = true;
  std::shared_ptr<Tensor> t;
  plain->CreateTensor(t, TensorShape({3}, DataType::FLOAT32, Layout::C));
  EXPECT_EQ(pool->used_blocks.count(t->data), 1u);
  t.reset();
  EXPECT_THROW(plain->CreateTensorInUpPool(t, TensorShape({3}, DataType::FLOAT32, Layout::C)),
               std::runtime_error);
}

TEST_F(DeviceTest, SourceIsCopiedAndOnlyZeroFormsClear) {
  const float source[6] = {1, 2, 3, 4, 5, 6};
  std::shared_ptr<Tensor> t;
  device->CreateVector(t, 6, source);
  EXPECT_NE(t->data, source);
  EXPECT_EQ(std::memcmp(t->data, source, sizeof(source)), 0);
  std::memset(t->data, 0xAB, sizeof(source));
  void* block = t->data;
  t.reset();

  // Same size again: the dirty block comes back as it was.
  device->CreateTensor(t, TensorShape({6}, DataType::FLOAT32, Layout::C));
  ASSERT_EQ(t->data, block);
  EXPECT_EQ(static_cast<unsigned char*>(t->data)[5], 0xAB);
  t.reset();
  device->CreateZeroVector(t, 6);
  ASSERT_EQ(t->data, block);
  EXPECT_EQ(std::vector<float>(t->Data<float>(), t->Data<float>() + 6), std::vector<float>(6, 0.0f));
  t.reset();
  device->CreateZeroFlexible(t, {2, 3});
  ASSERT_EQ(t->data, block);
  EXPECT_EQ(t->Data<float>()[5], 0.0f);
  t.reset();
  device->CreateFlexible(t, {3, 2}, source);
  EXPECT_EQ(t->Data<float>()[4], 5.0f);
}

TEST_F(DeviceTest, WrappingNeitherCopiesNorFrees) {
  std::vector<float> host = {1, 2, 3, 4, 5, 6};
  std::shared_ptr<Tensor> planar, vector, general;
  device->WrapPlanar(planar, {1, 2, 3}, host.data());
  device->WrapVector(vector, 6, host.data());
  device->WrapTensor(general, TensorShape({6}, DataType::INT32, Layout::FLEXIABLE), host.data());
  EXPECT_EQ(planar->data, host.data());
  static_cast<float*>(vector->data)[0] = 10;
  planar.reset();
  vector.reset();
  general.reset();
  EXPECT_EQ(host, (std::vector<float>{10, 2, 3, 4, 5, 6}));
  EXPECT_EQ(pool->TotalBytes() + up_pool->TotalBytes(), 0u);
}

// Released tensor objects are made again for later tensors: each new tensor must still be wholly its own
// shape, strides, data and ownership, whatever the object held before (a larger rank, another pool, wrapped
// memory).
TEST_F(DeviceTest, TensorsMadeAfterReleasesAreWhollyNew) {
  std::vector<float> host(24, 1.0f);
  std::shared_ptr<Tensor> a, b, c;
  device->CreateTensor(
      a, TensorShape({2, 3, 4}, DataType::FLOAT32, Layout::CHW, Location::MainMemory, TensorShape::Extra(7)));
  device->WrapPlanar(b, {1, 4, 6}, host.data());
  std::weak_ptr<Tensor> old = a;
  a.reset();
  b.reset();
  EXPECT_TRUE(old.expired());

  device->use_up_pool = true;
  device->CreateTensor(c, TensorShape({5, 6}, DataType::INT32, Layout::BC));
  device->use_up_pool = false;
  device->CreateVector(a, 3, host.data());
  EXPECT_EQ(c->shape.dims, (std::vector<uint32_t>{5, 6}));
  EXPECT_EQ(c->shape.data_type, DataType::INT32);
  EXPECT_EQ(c->shape.extra.step_size, 0);
  EXPECT_EQ(TensorCPU::Cast(c)->strides, (std::vector<int32_t>{6, 1}));
  EXPECT_EQ(TensorCPU::Cast(a)->strides, (std::vector<int32_t>{1}));
  EXPECT_NE(c->data, host.data());
  EXPECT_EQ(c->shared_from_this(), c);
  EXPECT_GT(up_pool->TotalBytes(), 0u);
  c.reset();
  a.reset();
  EXPECT_EQ(host, std::vector<float>(24, 1.0f));  // the wrapped memory was never the pools'
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
