#include "zelva/src/runtime/tensor_shape.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelva {
namespace runtime {
namespace {

TEST(TensorShapeTest, ByteSize) {
  struct Case {
    std::vector<uint32_t> dims;
    uint32_t data_type;
    int32_t bytes;
  } cases[] = {
      {{2, 3, 4}, DataType::FLOAT32, 96},
      {{2, 3, 4}, DataType::FLOAT16, 48},
      {{5}, DataType::UINT8, 5},
      {{}, DataType::FLOAT32, 4},  // rank 0: one element
      {{}, DataType::INT16, 2},
      {{2, 3, 4}, 8, 0},  // unknown type
      {{}, 99, 0},
      {{3, 0, 7}, DataType::FLOAT32, 0},
  };
  for (const Case& c : cases) {
    const TensorShape shape(c.dims, c.data_type, Layout::FLEXIABLE);
    EXPECT_EQ(shape.ByteSize(), c.bytes) << c.dims.size() << " dims, type " << c.data_type;
  }
  // Blocked layouts add nothing: their lanes are in the dims.
  EXPECT_EQ(TensorShape({2, 5, 7, 4}, DataType::FLOAT32, Layout::C4HW4).ByteSize(), 2 * 5 * 7 * 4 * 4);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
