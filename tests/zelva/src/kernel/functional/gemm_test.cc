// The GEMM bridge: the BLAS call's operand order, and both dense products against the scalar reference.
#include "zelva/src/kernel/functional/gemm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "zelva/src/kernel/family/fullconnection/reference.h"

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

TEST(GemmBridge, DenseProductsAgreeWithReference) {
  std::mt19937 rng(77);
  std::uniform_real_distribution<float> value(-1.0f, 1.0f);
  for (const int32_t in : {1, 3, 15, 16, 17, 33, 100}) {
    for (const int32_t out : {1, 5, 16}) {
      for (const bool with_bias : {false, true}) {
        std::vector<float> w(in * out), x(in), bias(out), expected(out), y(out, 123.0f), z(out, -7.0f);
        for (float& v : w) v = value(rng);
        for (float& v : x) v = value(rng);
        for (float& v : bias) v = value(rng);
        const float* b = with_bias ? bias.data() : nullptr;
        DenseReference(x.data(), in, out, w.data(), b, expected.data());
        DenseForward(x.data(), in, out, w.data(), b, y.data());
        DenseBySgemm(x.data(), in, out, w.data(), b, z.data());
        for (int32_t o = 0; o < out; ++o) {
          const float tol = 1e-6f * static_cast<float>(in + 1);
          EXPECT_NEAR(y[o], expected[o], tol) << in << "x" << out << " output " << o;
          EXPECT_NEAR(z[o], expected[o], tol) << in << "x" << out << " output " << o;
          // A single input is one product per output: the weight column scaled, plus the bias, exactly.
          if (in == 1) {
            EXPECT_EQ(y[o], (with_bias ? bias[o] : 0.0f) + w[o] * x[0]);
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace functional
}  // namespace kernel
}  // namespace zelva
