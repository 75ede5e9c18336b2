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

// Dense row-major offset of a full index, computed here independently of the tensor's strides.
size_t Offset(const std::vector<uint32_t>& dims, const Index& index) {
  size_t offset = 0;
  for (size_t k = 0; k < dims.size(); ++k) offset = offset * dims[k] + index[k];
  return offset;
}

struct GNCHWCase {
  const char* name;
  std::function<std::shared_ptr<Tensor>(const std::shared_ptr<Tensor>&, DeviceCPU&)> convert;
  uint32_t layout;
  std::vector<uint32_t> dims;  // [G, N, C, H, W]
  std::function<std::vector<uint32_t>(const std::vector<uint32_t>&)> out_dims;
  std::function<Index(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t)> target;
};

class LayoutConvertTest : public ::testing::Test {
 protected:
  std::shared_ptr<Context> context = CreateCPUContext(64);
  DeviceCPU& device = *context->GetDeviceCPU();

  // Source elements numbered by their linear position, so every value is distinct.
  template <typename T>
  std::shared_ptr<Tensor> Numbered(std::vector<uint32_t> dims, uint32_t data_type, uint32_t layout) {
    std::shared_ptr<Tensor> t;
    device.CreateTensor(
        t, TensorShape(std::move(dims), data_type, layout, Location::MainMemory, TensorShape::Extra(3)));
    T* p = t->Data<T>();
    for (int32_t i = 0; i < t->shape.ElementCount(); ++i) p[i] = static_cast<T>(i);
    return t;
  }
};

TEST_F(LayoutConvertTest, GNCHWTargetsPlaceEveryElementByTheirIndexRule) {
  const std::vector<GNCHWCase> cases = {
      {"G4NCHW4g",
       ConvertGNCHWToG4NCHW4g,
       Layout::G4NCHW4g,
       {8, 1, 1, 3, 3},
       [](auto d) { return std::vector<uint32_t>{d[0] / 4, d[1], d[2], d[3], d[4], 4}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g / 4, n, c, h, w, g % 4}; }},
      {"G8NCHW8g",
       ConvertGNCHWToG8NCHW8g,
       Layout::G8NCHW8g,
       {16, 1, 2, 2, 3},
       [](auto d) { return std::vector<uint32_t>{d[0] / 8, d[1], d[2], d[3], d[4], 8}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g / 8, n, c, h, w, g % 8}; }},
      {"GN4C4HW4n4c",
       ConvertGNCHWToGN4C4HW4n4c,
       Layout::GN4C4HW4n4c,
       {2, 8, 4, 3, 2},
       [](auto d) { return std::vector<uint32_t>{d[0], d[1] / 4, d[2] / 4, d[3], d[4], 4, 4}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g, n / 4, c / 4, h, w, c % 4, n % 4}; }},
      {"GN8C8HW8n8c",
       ConvertGNCHWToGN8C8HW8n8c,
       Layout::GN8C8HW8n8c,
       {1, 16, 8, 3, 3},
       [](auto d) { return std::vector<uint32_t>{d[0], d[1] / 8, d[2] / 8, d[3], d[4], 8, 8}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g, n / 8, c / 8, h, w, c % 8, n % 8}; }},
      {"GN4CHW4n",
       ConvertGNCHWToGN4CHW4n,
       Layout::GN4CHW4n,
       {2, 8, 3, 1, 3},
       [](auto d) { return std::vector<uint32_t>{d[0], d[1] / 4, d[2], d[3], d[4], 4}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g, n / 4, c, h, w, n % 4}; }},
      {"GN8CHW8n",
       ConvertGNCHWToGN8CHW8n,
       Layout::GN8CHW8n,
       {1, 16, 3, 2, 2},
       [](auto d) { return std::vector<uint32_t>{d[0], d[1] / 8, d[2], d[3], d[4], 8}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g, n / 8, c, h, w, n % 8}; }},
      {"GNC8HW8c",
       ConvertGNCHWToGNC8HW8c,
       Layout::GN8CHW8n,
       {2, 3, 16, 2, 1},
       [](auto d) { return std::vector<uint32_t>{d[0], d[1], d[2] / 8, d[3], d[4], 8}; },
       [](auto g, auto n, auto c, auto h, auto w) { return Index{g, n, c / 8, h, w, c % 8}; }},
  };
  for (const GNCHWCase& tc : cases) {
    SCOPED_TRACE(tc.name);
    const auto in = Numbered<float>(tc.dims, DataType::FLOAT32, Layout::GNCHW);
    const auto out = tc.convert(in, device);
    ASSERT_NE(out, nullptr);
    const std::vector<uint32_t> out_dims = tc.out_dims(tc.dims);
    ASSERT_EQ(out->shape.dims, out_dims);
    EXPECT_EQ(out->shape.layout, tc.layout);
    EXPECT_EQ(out->shape.data_type, DataType::FLOAT32);
    EXPECT_EQ(out->shape.location, Location::MainMemory);
    EXPECT_EQ(out->shape.extra.step_size, 3);
    const auto& d = tc.dims;
    const float* src = in->Data<float>();
    const float* dst = out->Data<float>();
    for (uint32_t g = 0; g < d[0]; ++g)
      for (uint32_t n = 0; n < d[1]; ++n)
        for (uint32_t c = 0; c < d[2]; ++c)
          for (uint32_t h = 0; h < d[3]; ++h)
            for (uint32_t w = 0; w < d[4]; ++w)
              ASSERT_EQ(dst[Offset(out_dims, tc.target(g, n, c, h, w))], src[Offset(d, {g, n, c, h, w})])
                  << g << "," << n << "," << c << "," << h << "," << w;
  }
}

TEST_F(LayoutConvertTest, FullyConnectedWeightPutsTheOutputLaneInnermost) {
  const uint32_t O = 16, I = 24;
  const auto in = Numbered<float>({O, I}, DataType::FLOAT32, Layout::OI);
  const auto out = ConvertOIToO8I8o8i8(in, device);
  ASSERT_NE(out, nullptr);
  const std::vector<uint32_t> out_dims = {O / 8, I / 8, 8, 8};
  ASSERT_EQ(out->shape.dims, out_dims);
  EXPECT_EQ(out->shape.layout, Layout::O8I8o8i8);
  for (uint32_t o = 0; o < O; ++o)
    for (uint32_t i = 0; i < I; ++i)
      ASSERT_EQ(out->Data<float>()[Offset(out_dims, {o / 8, i / 8, i % 8, o % 8})],
                static_cast<float>(o * I + i));
}

TEST_F(LayoutConvertTest, RefusalsAndBadDims) {
  const auto chw = Numbered<float>({8, 1, 1, 1, 1}, DataType::FLOAT32, Layout::CHW);
  EXPECT_EQ(ConvertGNCHWToG8NCHW8g(chw, device), nullptr);
  auto elsewhere = Numbered<float>({8, 1, 1, 1, 1}, DataType::FLOAT32, Layout::GNCHW);
  elsewhere->shape.location = Location::CPUObject;
  EXPECT_EQ(ConvertGNCHWToG8NCHW8g(elsewhere, device), nullptr);
  EXPECT_EQ(ConvertOIToO8I8o8i8(elsewhere, device), nullptr);
  EXPECT_EQ(ConvertGNCHWToG4NCHW4g(nullptr, device), nullptr);
  // The fully connected converter looks at the location only.
  EXPECT_NE(ConvertOIToO8I8o8i8(Numbered<float>({8, 8}, DataType::FLOAT32, Layout::FLEXIABLE), device),
            nullptr);

  const auto six_groups = Numbered<float>({6, 1, 1, 3, 3}, DataType::FLOAT32, Layout::GNCHW);
  EXPECT_THROW(ConvertGNCHWToG4NCHW4g(six_groups, device), std::runtime_error);
  EXPECT_THROW(ConvertOIToO8I8o8i8(Numbered<float>({8, 12}, DataType::FLOAT32, Layout::OI), device),
               std::runtime_error);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
