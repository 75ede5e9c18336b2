#include "zelva/src/runtime/tensor.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>
#include <vector>

#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {
namespace {

// Independent reference: linear offset of a (possibly partial) index, dense row-major over `dims`.
int64_t RowMajorOffset(const std::vector<uint32_t>& dims, const std::vector<int32_t>& index) {
  int64_t offset = 0;
  for (size_t k = 0; k < dims.size(); ++k) offset = offset * dims[k] + (k < index.size() ? index[k] : 0);
  return offset;
}

void* Address(const TensorCPU& t, const std::vector<int32_t>& i) {
  switch (i.size()) {
    case 1:
      return t.ElementPtr(i[0]);
    case 2:
      return t.ElementPtr(i[0], i[1]);
    case 3:
      return t.ElementPtr(i[0], i[1], i[2]);
    case 4:
      return t.ElementPtr(i[0], i[1], i[2], i[3]);
    case 5:
      return t.ElementPtr(i[0], i[1], i[2], i[3], i[4]);
    case 6:
      return t.ElementPtr(i[0], i[1], i[2], i[3], i[4], i[5]);
    case 7:
      return t.ElementPtr(i[0], i[1], i[2], i[3], i[4], i[5], i[6]);
    default:
      return nullptr;
  }
}

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

TEST_F(TensorTest, ElementAddressesMatchRowMajorOffsetsUpToRank7) {
  std::mt19937 rng(7);
  for (uint32_t data_type : {DataType::FLOAT32, DataType::FLOAT16, DataType::INT8}) {
    for (size_t rank = 1; rank <= 7; ++rank) {
      std::vector<uint32_t> dims(rank);
      for (auto& d : dims) d = 1 + rng() % 4;
      std::shared_ptr<Tensor> t;
      device.CreateTensor(t, TensorShape(dims, data_type, Layout::FLEXIABLE));
      const TensorCPU& cpu = *TensorCPU::Cast(t);
      for (int trial = 0; trial < 20; ++trial) {
        const size_t given = 1 + rng() % rank;  // shorter indices address sub-blocks
        std::vector<int32_t> index(given);
        for (size_t k = 0; k < given; ++k) index[k] = static_cast<int32_t>(rng() % dims[k]);
        const int64_t expected = RowMajorOffset(dims, index) * DataTypeSize(data_type);
        EXPECT_EQ(static_cast<char*>(Address(cpu, index)) - static_cast<char*>(t->data), expected);
      }
    }
  }
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
