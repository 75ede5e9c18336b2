#include "zelva/src/runtime/tensor_shape.h"

#include <gtest/gtest.h>

#include <string>
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

TEST(TensorShapeTest, CopyAndMoveCarryEveryField) {
  TensorShape original({8, 1, 80}, DataType::INT16, Layout::CL, Location::MetalBuffer,
                       TensorShape::Extra(-7));
  TensorShape copy(original);
  EXPECT_EQ(copy.dims, original.dims);
  EXPECT_EQ(copy.data_type, DataType::INT16);
  EXPECT_EQ(copy.layout, Layout::CL);
  EXPECT_EQ(copy.location, Location::MetalBuffer);
  EXPECT_EQ(copy.extra.step_size, -7);
  copy.dims[0] = 1;
  EXPECT_EQ(original.dims[0], 8u);  // deep copy

  TensorShape moved(std::move(copy));
  EXPECT_EQ(moved.dims, (std::vector<uint32_t>{1, 1, 80}));
  EXPECT_EQ(moved.extra.step_size, -7);
  EXPECT_EQ(TensorShape::Extra().step_size, 0);
}

// Records the keys in visiting order, descending into nested objects.
class KeyRecorder : public Visitor {
 public:
  std::vector<std::string> keys;
  std::shared_ptr<Visitor> self;

  void Visit(Serializable& value, const std::string& name) override {
    keys.push_back(name + "{");
    value.VisitAttr(self);
    keys.push_back("}");
  }
#define ZV_RECORD(T)                                 \
  void Visit(T&, const std::string& name) override { \
    keys.push_back(name);                            \
  }
  ZV_RECORD(std::vector<std::vector<uint16_t>>)
  ZV_RECORD(std::vector<uint64_t>)
  ZV_RECORD(std::vector<uint32_t>)
  ZV_RECORD(std::vector<int64_t>)
  ZV_RECORD(std::vector<int32_t>)
  ZV_RECORD(std::vector<std::string>)
  ZV_RECORD(std::vector<int16_t>)
  ZV_RECORD(std::vector<uint16_t>)
  ZV_RECORD(std::vector<half>)
  ZV_RECORD(std::vector<float>)
  ZV_RECORD(std::string)
  ZV_RECORD(char)
  ZV_RECORD(bool)
  ZV_RECORD(uint64_t)
  ZV_RECORD(int64_t)
  ZV_RECORD(uint32_t)
  ZV_RECORD(int32_t)
  ZV_RECORD(uint16_t)
  ZV_RECORD(int16_t)
  ZV_RECORD(uint8_t)
  ZV_RECORD(int8_t)
  ZV_RECORD(double)
  ZV_RECORD(half)
  ZV_RECORD(float)
#undef ZV_RECORD
};

TEST(TensorShapeTest, VisitsFieldsInFileOrder) {
  auto recorder = std::make_shared<KeyRecorder>();
  recorder->self = recorder;
  std::shared_ptr<Visitor> visitor = recorder;
  TensorShape shape({1, 2}, DataType::FLOAT32, Layout::BC);
  shape.VisitAttr(visitor);
  recorder->self.reset();
  EXPECT_EQ(recorder->keys,
            (std::vector<std::string>{"serializable_type", "dims", "data_type", "layout", "location",
                                      "extra{", "serializable_type", "step_size", "}"}));
  EXPECT_EQ(shape.serializable_type, "TensorShape");
  EXPECT_EQ(shape.extra.serializable_type, "Extra");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
