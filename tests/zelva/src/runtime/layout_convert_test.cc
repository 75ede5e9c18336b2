#include "zelva/src/runtime/layout_convert.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include "zelva/src/runtime/context.h"

namespace zelva {
namespace runtime {
namespace {

using Index = std::vector<uint32_t>;

class LayoutConvertTest : public ::testing::Test {
 protected:
  std::shared_ptr<Context> context = CreateCPUContext(64);
  DeviceCPU& device = *context->GetDeviceCPU();

  // Source elements numbered by their linear position, so every value is distinct.
  std::shared_ptr<Tensor> Numbered(Index dims, uint32_t layout) {
    std::shared_ptr<Tensor> t;
    device.CreateTensor(t, TensorShape(std::move(dims), DataType::FLOAT32, layout, Location::MainMemory,
                                       TensorShape::Extra(3)));
    for (int32_t i = 0; i < t->shape.ElementCount(); ++i) t->Data<float>()[i] = static_cast<float>(i);
    return t;
  }
};

// Each target layout as the rule that places source index [g, n, c, h, w] (or [o, i]) in the blocked dims.
TEST_F(LayoutConvertTest, EveryConverterPlacesEachElementByItsLayoutRule) {
  struct Case {
    const char* name;
    std::function<std::shared_ptr<Tensor>(const std::shared_ptr<Tensor>&, DeviceCPU&)> convert;
    uint32_t in_layout, out_layout;
    Index dims;
    std::function<Index(const Index&)> target;
  };
  const Case cases[] = {
      {"G4NCHW4g",
       ConvertGNCHWToG4NCHW4g,
       Layout::GNCHW,
       Layout::G4NCHW4g,
       {8, 1, 1, 3, 3},
       [](const Index& x) { return Index{x[0] / 4, x[1], x[2], x[3], x[4], x[0] % 4}; }},
      {"G8NCHW8g",
       ConvertGNCHWToG8NCHW8g,
       Layout::GNCHW,
       Layout::G8NCHW8g,
       {16, 1, 2, 2, 3},
       [](const Index& x) { return Index{x[0] / 8, x[1], x[2], x[3], x[4], x[0] % 8}; }},
      {"GN4C4HW4n4c",
       ConvertGNCHWToGN4C4HW4n4c,
       Layout::GNCHW,
       Layout::GN4C4HW4n4c,
       {2, 8, 4, 3, 2},
       [](const Index& x) { return Index{x[0], x[1] / 4, x[2] / 4, x[3], x[4], x[2] % 4, x[1] % 4}; }},
      {"GN8C8HW8n8c",
       ConvertGNCHWToGN8C8HW8n8c,
       Layout::GNCHW,
       Layout::GN8C8HW8n8c,
       {1, 16, 8, 3, 3},
       [](const Index& x) { return Index{x[0], x[1] / 8, x[2] / 8, x[3], x[4], x[2] % 8, x[1] % 8}; }},
      {"GN4CHW4n",
       ConvertGNCHWToGN4CHW4n,
       Layout::GNCHW,
       Layout::GN4CHW4n,
       {2, 8, 3, 1, 3},
       [](const Index& x) { return Index{x[0], x[1] / 4, x[2], x[3], x[4], x[1] % 4}; }},
      {"GN8CHW8n",
       ConvertGNCHWToGN8CHW8n,
       Layout::GNCHW,
       Layout::GN8CHW8n,
       {1, 16, 3, 2, 2},
       [](const Index& x) { return Index{x[0], x[1] / 8, x[2], x[3], x[4], x[1] % 8}; }},
      // The channel-blocked converter labels its output with the batch-blocked layout.
      {"GNC8HW8c",
       ConvertGNCHWToGNC8HW8c,
       Layout::GNCHW,
       Layout::GN8CHW8n,
       {2, 3, 16, 2, 1},
       [](const Index& x) { return Index{x[0], x[1], x[2] / 8, x[3], x[4], x[2] % 8}; }},
      // Fully connected weights: the output lane innermost.
      {"O8I8o8i8",
       ConvertOIToO8I8o8i8,
       Layout::OI,
       Layout::O8I8o8i8,
       {16, 24},
       [](const Index& x) {
         return Index{x[0] / 8, x[1] / 8, x[1] % 8, x[0] % 8};
       }},
  };
  for (const Case& tc : cases) {
    SCOPED_TRACE(tc.name);
    const auto in = Numbered(tc.dims, tc.in_layout);
    const auto out = tc.convert(in, device);
    ASSERT_NE(out, nullptr);
    Index last = tc.dims, out_dims;
    for (uint32_t& d : last) --d;
    for (uint32_t d : tc.target(last)) out_dims.push_back(d + 1);
    ASSERT_EQ(out->shape.dims, out_dims);
    EXPECT_EQ(out->shape.layout, tc.out_layout);
    EXPECT_EQ(out->shape.data_type, DataType::FLOAT32);
    EXPECT_EQ(out->shape.location, Location::MainMemory);
    EXPECT_EQ(out->shape.extra.step_size, 3);
    // Walk every source index in row-major order; its value is its linear position.
    Index x(tc.dims.size(), 0);
    for (int32_t s = 0; s < in->shape.ElementCount(); ++s) {
      const Index y = tc.target(x);
      size_t offset = 0;
      for (size_t k = 0; k < y.size(); ++k) offset = offset * out_dims[k] + y[k];
      ASSERT_EQ(out->Data<float>()[offset], static_cast<float>(s)) << "source element " << s;
      for (size_t k = x.size(); k-- > 0 && ++x[k] == tc.dims[k];) x[k] = 0;
    }
  }
}

TEST_F(LayoutConvertTest, RefusalsAndBadDims) {
  EXPECT_EQ(ConvertGNCHWToG8NCHW8g(Numbered({8, 1, 1, 1, 1}, Layout::CHW), device), nullptr);
  auto elsewhere = Numbered({8, 1, 1, 1, 1}, Layout::GNCHW);
  elsewhere->shape.location = Location::CPUObject;
  EXPECT_EQ(ConvertGNCHWToG8NCHW8g(elsewhere, device), nullptr);
  EXPECT_EQ(ConvertOIToO8I8o8i8(elsewhere, device), nullptr);
  EXPECT_EQ(ConvertGNCHWToG4NCHW4g(nullptr, device), nullptr);
  // The fully connected converter looks at the location only.
  EXPECT_NE(ConvertOIToO8I8o8i8(Numbered({8, 8}, Layout::FLEXIABLE), device), nullptr);

  EXPECT_THROW(ConvertGNCHWToG4NCHW4g(Numbered({6, 1, 1, 3, 3}, Layout::GNCHW), device), std::runtime_error);
  EXPECT_THROW(ConvertOIToO8I8o8i8(Numbered({8, 12}, Layout::OI), device), std::runtime_error);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
