// The concatenation family: joins along the channel axis in every layout it takes (the inputs one behind
// the other, in order), and what it refuses.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/concatenate/members.h"

namespace zelva {
namespace kernel {
namespace {

using runtime::Layout;

std::vector<zvtest::PlainMember> AllMembers() {
  return ZV_PLAIN_MEMBERS(ZV_CONCATENATE_MEMBERS);
}

std::shared_ptr<runtime::ConcatenateInfo> Along(uint16_t dim) {
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = dim;
  return info;
}

// Planar channels of 3 and 5 give 8, the first input first; blocked inputs add up their blocks; one input is
// copied; three inputs keep their order.
TEST(ConcatenateFamily, JoinsInInputOrderInEveryLayout) {
  struct Case {
    uint32_t layout;
    std::vector<std::vector<uint32_t>> dims;
  };
  const std::vector<Case> cases = {
      {Layout::CHW, {{3, 2, 5}, {5, 2, 5}}},
      {Layout::CHW, {{4, 3, 3}}},
      {Layout::CHW, {{1, 1, 7}, {2, 1, 7}, {1, 1, 7}}},
      {Layout::C4HW4, {{1, 3, 2, 4}, {2, 3, 2, 4}}},
      {Layout::C8HW8, {{2, 2, 3, 8}, {1, 2, 3, 8}, {1, 2, 3, 8}}},
  };
  uint32_t seed = 1;
  for (const zvtest::PlainMember& m : AllMembers()) {
    for (const Case& c : cases) {
      auto ctx = zvtest::MakeTestContext();
      runtime::TensorList inputs;
      std::vector<float> want;
      uint32_t leading = 0;
      for (const auto& dims : c.dims) {
        uint32_t n = 1;
        for (const uint32_t d : dims) n *= d;
        const std::vector<float> values = zvtest::RandomFloats(n, seed++);
        inputs.push_back(zvtest::MakeTensor(ctx, dims, c.layout, values));
        want.insert(want.end(), values.begin(), values.end());
        leading += dims[0];
      }
      const std::string what =
          m.name + " layout " + std::to_string(c.layout) + ", " + std::to_string(c.dims.size()) + " inputs";
      auto kernel = m.make();
      const auto outputs = zvtest::RunKernel(*kernel, Along(1), inputs, ctx);
      ASSERT_EQ(outputs.size(), 1u) << what;
      std::vector<uint32_t> dims = c.dims[0];
      dims[0] = leading;
      EXPECT_EQ(outputs[0]->shape.dims, dims) << what;
      EXPECT_EQ(outputs[0]->shape.layout, c.layout) << what;
      zvtest::ExpectAccuracy(zvtest::Values(outputs[0]), want, kBitExact, what);
    }
  }
}

// Another axis, parameters of another backend, another description; inputs of mixed layouts, types or step
// sizes, layouts outside CHW, C4HW4 and C8HW8; outputs other than one tensor; inputs that would not fill the
// output exactly.
TEST(ConcatenateFamily, RefusalsAndChecks) {
  auto ctx = zvtest::MakeTestContext();
  for (const zvtest::PlainMember& m : AllMembers()) {
    SCOPED_TRACE(m.name);
    auto kernel = m.make();
    EXPECT_EQ(kernel->GetName(), m.name);
    EXPECT_EQ(kernel->CheckSupport(Along(1), nullptr), 0);
    for (const uint16_t dim : {0, 2, 3}) EXPECT_EQ(kernel->CheckSupport(Along(dim), nullptr), -1) << dim;
    EXPECT_FALSE(kernel->Config(Along(2), nullptr, nullptr, ctx));
    zvtest::ExpectCommonRefusals(*kernel, Along(1), std::make_shared<runtime::BatchNorm2dInfo>(), ctx);
    ASSERT_TRUE(kernel->Config(Along(1), nullptr, nullptr, ctx));

    const std::vector<float> data(32, 1.0f);
    const auto chw = zvtest::MakeTensor(ctx, {8, 2, 2}, Layout::CHW, data);
    const auto c8 = zvtest::MakeTensor(ctx, {1, 2, 2, 8}, Layout::C8HW8, data);
    const auto c4 = zvtest::MakeTensor(ctx, {2, 2, 2, 4}, Layout::C4HW4, data);
    EXPECT_EQ(kernel->CheckInputs({chw, chw}), 0);
    EXPECT_EQ(kernel->CheckInputs({c4, c4}), 0);
    EXPECT_EQ(kernel->CheckInputs({c8}), 0);
    EXPECT_EQ(kernel->CheckInputs({chw, c8}), -2);
    EXPECT_EQ(kernel->CheckInputs({c8, c4}), -2);
    EXPECT_EQ(kernel->CheckInputs({}), -2);
    EXPECT_EQ(kernel->CheckInputs({zvtest::MakeTensor(ctx, {1, 8, 4}, Layout::NCHW, data)}), -2);
    EXPECT_EQ(kernel->CheckInputs({zvtest::MakeTensor(ctx, {32}, 1, data)}), -2);
    std::shared_ptr<runtime::Tensor> stepped;
    runtime::TensorShape shape = chw->shape;
    shape.extra.step_size = 2;
    ctx->GetDeviceCPU()->CreateTensor(stepped, shape, data.data());
    EXPECT_EQ(kernel->CheckInputs({chw, stepped}), -2);
    std::shared_ptr<runtime::Tensor> halves;
    shape = chw->shape;
    shape.data_type = runtime::DataType::FLOAT16;
    ctx->GetDeviceCPU()->CreateTensor(halves, shape);
    EXPECT_EQ(kernel->CheckInputs({chw, halves}), -2);
    EXPECT_EQ(kernel->CheckOutputs({chw}), 0);
    EXPECT_EQ(kernel->CheckOutputs({chw, chw}), -2);
    EXPECT_EQ(kernel->CheckOutputs({}), -2);

    // Planes of another size than the first input's would overrun the output: reported, nothing written.
    runtime::TensorList outputs;
    EXPECT_THROW(kernel->Forward({chw, zvtest::MakeTensor(ctx, {2, 4, 4}, Layout::CHW, data)}, outputs, ctx),
                 std::runtime_error);
    EXPECT_TRUE(outputs.empty());
  }
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
