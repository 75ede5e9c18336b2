#include "zelva/src/runtime/types.h"

#include <gtest/gtest.h>

namespace zelva {
namespace runtime {
namespace {

TEST(TypesTest, FileValuesKeepTheirNumbersAndGaps) {
  EXPECT_EQ(DataType::UINT8, 7u);
  EXPECT_EQ(Layout::NCHW, 8u);
  EXPECT_EQ(Layout::GN4C4HW4n4c, 12u);
  EXPECT_EQ(Layout::GN8C8HW8n8c, 16u);
  EXPECT_EQ(Layout::FLEXIABLE, 23u);
  EXPECT_EQ(Layout::SC, 30u);
  EXPECT_EQ(Layout::O8I8o8i8, 35u);
  EXPECT_EQ(Location::MainMemory, 0x10001u);
  EXPECT_EQ(Location::MetalTempImage, 0x42002u);
}

TEST(TypesTest, ElementSizeIsZeroOutsideTheTable) {
  const uint32_t expected[] = {4, 2, 4, 2, 1, 4, 2, 1};
  for (uint32_t t = 0; t < 8; ++t) EXPECT_EQ(DataTypeSize(t), expected[t]) << t;
  for (uint32_t t : {8u, 9u, 255u, 0xFFFFFFFFu}) EXPECT_EQ(DataTypeSize(t), 0u) << t;
}

TEST(TypesTest, StringTablesForDiagnostics) {
  EXPECT_EQ(DataTypeStrings().size(), 8u);
  EXPECT_EQ(LayoutStrings().size(), 12u);
  EXPECT_EQ(LocationStrings().size(), 12u);
  EXPECT_EQ(DataTypeToString(DataType::FLOAT16), "FLOAT16");
  EXPECT_EQ(LayoutToString(Layout::FLEXIABLE), "FLEXIABLE");
  EXPECT_EQ(LayoutToString(Layout::GN8C8HW8n8c), "GN8C8HW8n8c");
  EXPECT_EQ(LocationToString(Location::MetalNoCopyBuffer), "MetalNoCopyBuffer");
  // Codes without a string form, and the gaps, print as numbers.
  EXPECT_EQ(LayoutToString(Layout::C), "24");
  EXPECT_EQ(LayoutToString(13), "13");
  EXPECT_EQ(DataTypeToString(8), "8");
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
