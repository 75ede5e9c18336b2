// The GEMM bridge's BLAS call: operand order, alpha and beta. Its dense products are held to the scalar
// reference by the fully connected and recurrent family testers, whose members run them.
#include "zelva/src/kernel/functional/gemm.h"

#include <gtest/gtest.h>

#include <vector>

namespace zelva {
namespace kernel {
namespace functional {
namespace {

TEST(GemmBridge, RowMajorProductWithAlphaAndBeta) {
  // a 2x3, b 3x2: c = 2 * a b + 0.5 * c, checked entry by entry (small integers, exact in float).
  const std::vector<float> a = {1, 2, 3, 4, 5, 6}, b = {7, 8, 9, 10, 11, 12};
  std::vector<float> c = {2, 4, 6, 8};
  GemmRowMajor(2, 3, 2, 2.0f, a.data(), b.data(), 0.5f, c.data());
  EXPECT_EQ(c, (std::vector<float>{2 * 58 + 1, 2 * 64 + 2, 2 * 139 + 3, 2 * 154 + 4}));
}

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace zelva
