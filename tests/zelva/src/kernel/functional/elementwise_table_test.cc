#include "zelva/src/kernel/functional/elementwise_table.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace zelva {
namespace kernel {
namespace functional {
namespace {

TEST(ElementwiseTableTest, ArithmeticCodesInNameOrder) {
  const auto& table = ElementwiseFunctionTable();
  EXPECT_EQ(table.size(), 6u);
  EXPECT_EQ(table.at(0)(6.0f, 1.5f), 7.5f);
  EXPECT_EQ(table.at(1)(6.0f, 1.5f), 4.5f);
  EXPECT_EQ(table.at(2)(6.0f, 1.5f), 9.0f);
  EXPECT_EQ(table.at(3)(6.0f, 1.5f), 4.0f);
  EXPECT_EQ(table.count(6), 0u);
}

TEST(ElementwiseTableTest, MaxMinReturnSecondOperandOnNaNAndEqualZeros) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto& max = ElementwiseFunctionTable().at(4);
  const auto& min = ElementwiseFunctionTable().at(5);
  EXPECT_EQ(max(2.0f, -3.0f), 2.0f);
  EXPECT_EQ(min(2.0f, -3.0f), -3.0f);
  EXPECT_EQ(max(nan, 1.0f), 1.0f);
  EXPECT_TRUE(std::isnan(max(1.0f, nan)));
  EXPECT_EQ(min(nan, 1.0f), 1.0f);
  EXPECT_TRUE(std::isnan(min(1.0f, nan)));
  // Signed zeros compare equal: the second operand comes back.
  EXPECT_FALSE(std::signbit(max(-0.0f, 0.0f)));
  EXPECT_TRUE(std::signbit(max(0.0f, -0.0f)));
  EXPECT_TRUE(std::signbit(min(0.0f, -0.0f)));
}

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace zelva
