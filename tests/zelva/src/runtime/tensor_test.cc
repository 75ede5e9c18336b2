#include "zelva/src/runtime/tensor.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {
namespace {

TEST(TensorShapeTest, ByteSizeAndTypeNames) {
  struct Case {
    std::vector<uint32_t> dims;
    uint32_t data_type, layout;
    int32_t bytes;
  } cases[] = {
      {{2, 3, 4}, DataType::FLOAT32, Layout::FLEXIABLE, 96},
      {{2, 3, 4}, DataType::FLOAT16, Layout::FLEXIABLE, 48},
      {{5}, DataType::UINT8, Layout::FLEXIABLE, 5},
      {{}, DataType::FLOAT32, Layout::FLEXIABLE, 4},  // rank 0: one element
      {{}, DataType::INT16, Layout::FLEXIABLE, 2},
      {{2, 3, 4}, 8, Layout::FLEXIABLE, 0},  // unknown type
      {{}, 0xFFFFFFFFu, Layout::FLEXIABLE, 0},
      {{3, 0, 7}, DataType::FLOAT32, Layout::FLEXIABLE, 0},
      {{2, 5, 7, 4}, DataType::FLOAT32, Layout::C4HW4, 2 * 5 * 7 * 4 * 4},  // lanes are in the dims
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TensorShape(c.dims, c.data_type, c.layout).ByteSize(), c.bytes) << c.dims.size() << " dims";
  }
  // Only the twelve named layouts print by name; the others (17..21, 24.. and the gaps) as numbers.
  EXPECT_EQ(LayoutStrings().size(), 12u);
  EXPECT_EQ(LayoutToString(Layout::GN8C8HW8n8c), "GN8C8HW8n8c");
  EXPECT_EQ(LayoutToString(Layout::C), "24");
  EXPECT_EQ(LayoutToString(13), "13");
  EXPECT_EQ(LocationToString(Location::MetalNoCopyBuffer), "MetalNoCopyBuffer");
}

TEST(TensorTest, StridesAndElementAddresses) {
  auto context = CreateCPUContext(64);
  DeviceCPU& device = *context->GetDeviceCPU();
  std::vector<float> host(2 * 3 * 4);
  for (size_t i = 0; i < host.size(); ++i) host[i] = static_cast<float>(i);
  std::shared_ptr<Tensor> t;
  device.WrapPlanar(t, {2, 3, 4}, host.data());
  const TensorCPU* cpu = TensorCPU::Cast(t);
  EXPECT_EQ(cpu->strides, (std::vector<int32_t>{12, 4, 1}));
  EXPECT_EQ(*cpu->ElementPtr<float>(1, 2, 3), 23.0f);
  EXPECT_EQ(*cpu->ElementPtr<float>(1, 1), 16.0f);  // fewer indices: the start of a sub-block
  EXPECT_THROW(cpu->ElementPtr(0, 0, 0, 0), std::runtime_error);
  EXPECT_THROW(TensorCPU::Cast(nullptr), std::runtime_error);

  device.WrapTensor(t, TensorShape({2, 3, 4}, 8, Layout::CHW), host.data());  // unknown type: no offset
  EXPECT_EQ(TensorCPU::Cast(t)->ElementPtr(1, 2, 3), host.data());
  device.CreateTensor(t, TensorShape({}, DataType::FLOAT32, Layout::FLEXIABLE));
  EXPECT_TRUE(TensorCPU::Cast(t)->strides.empty());
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
