// The input family: every row of its list reads the converters' support test inverted at Config and hands on
// the very tensors it was given.
#include <gtest/gtest.h>

#include <string>

#include "support/kernel_tester.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/family/input/members.h"

namespace zelva {
namespace kernel {
namespace {

TEST(InputFamily, ConfigReadsTheConverterTestInvertedAndForwardHandsOnTheInputs) {
  auto context = zvtest::MakeTestContext();
  auto info = std::make_shared<runtime::InputInfo>();
  auto param = std::make_shared<runtime::InferenceParamActQuant>();
#define ZV_TEST_MEMBER(group, isa, cls, accuracy)                                                    \
  {                                                                                                  \
    SCOPED_TRACE(#cls);                                                                              \
    cls bare;                                                                                        \
    EXPECT_EQ(bare.GetName(), #cls);                                                                 \
    EXPECT_EQ(bare.CheckSupport(nullptr, nullptr), 0);                                               \
    EXPECT_FALSE(                                                                                    \
        bare.Config(nullptr, nullptr, nullptr, context)); /* what a converter accepts, it refuses */ \
    EXPECT_FALSE(bare.IsConfigured());                                                               \
    cls described;                                                                                   \
    EXPECT_EQ(described.CheckSupport(info, nullptr), -1);                                            \
    EXPECT_TRUE(described.Config(info, nullptr, nullptr, context));                                  \
    EXPECT_TRUE(described.IsConfigured());                                                           \
    EXPECT_TRUE(cls().Config(nullptr, param, nullptr, context));                                     \
    auto tensor = zvtest::MakeTensor(context, {1, 2, 3}, runtime::Layout::CHW, {1, 2, 3, 4, 5, 6});  \
    runtime::TensorList outputs{nullptr, nullptr};                                                   \
    described.Forward({tensor}, outputs, context);                                                   \
    ASSERT_EQ(outputs.size(), 1u);                                                                   \
    EXPECT_EQ(outputs[0], tensor);                                                                   \
    EXPECT_EQ(described.GetOutputShapes({tensor->shape})[0].dims, tensor->shape.dims);               \
  }
  ZV_INPUT_MEMBERS(ZV_TEST_MEMBER)
#undef ZV_TEST_MEMBER
}

}  // namespace
}  // namespace kernel
}  // namespace zelva
