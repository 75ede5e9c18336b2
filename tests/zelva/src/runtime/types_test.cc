#include "zelva/src/runtime/types.h"

#include <gtest/gtest.h>

namespace zelva {
namespace runtime {
namespace {

TEST(TypesTest, UnknownValuesHaveNoSizeAndPrintAsNumbers) {
  for (uint32_t t : {8u, 255u, 0xFFFFFFFFu}) EXPECT_EQ(DataTypeSize(t), 0u) << t;
  EXPECT_EQ(LayoutStrings().size(), 12u);  // codes 17..21, 24.. and the gaps have no string form
  EXPECT_EQ(LayoutToString(Layout::GN8C8HW8n8c), "GN8C8HW8n8c");
  EXPECT_EQ(LayoutToString(Layout::C), "24");
  EXPECT_EQ(LayoutToString(13), "13");
  EXPECT_EQ(LocationToString(Location::MetalNoCopyBuffer), "MetalNoCopyBuffer");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
