#include "zelva/src/runtime/half.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace zelva {
namespace runtime {
namespace {

// Truncating float -> half bits, computed arithmetically in double (exact for every float) rather than by
// tables: values below 2^-14 count whole units of 2^-24; normal values keep the first 10 fraction bits;
// 2^16 and above overflow to infinity; NaN keeps the top 10 bits of its payload.
uint16_t ReferenceHalfBits(float x) {
  uint32_t bits;
  std::memcpy(&bits, &x, sizeof(bits));
  const uint16_t sign = static_cast<uint16_t>((bits >> 16) & 0x8000);
  if (std::isnan(x)) return static_cast<uint16_t>(sign | 0x7C00 | ((bits & 0x7FFFFF) >> 13));
  const double a = std::fabs(static_cast<double>(x));
  if (std::isinf(x) || a >= 65536.0) return static_cast<uint16_t>(sign | 0x7C00);
  if (a < std::ldexp(1.0, -14))
    return static_cast<uint16_t>(sign | static_cast<uint16_t>(std::floor(std::ldexp(a, 24))));
  int e = 0;
  std::frexp(a, &e);  // a = m * 2^e, m in [0.5, 1)
  const int exponent = e - 1;
  const double fraction = std::ldexp(a, -exponent) - 1.0;
  return static_cast<uint16_t>(sign | ((exponent + 15) << 10) |
                               static_cast<uint16_t>(std::floor(fraction * 1024)));
}

float FromBits(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof(f));
  return f;
}

TEST(FloatToHalf, MatchesBitLevelReference) {
  std::mt19937 rng(20018);
  std::uniform_int_distribution<uint32_t> any_bits;
  // Uniform bit patterns cover NaNs, infinities, overflow and flushed values; the exponent sweep covers every
  // exponent of the half range and its borders densely.
  for (int i = 0; i < 200000; ++i) {
    const float x = FromBits(any_bits(rng));
    ASSERT_EQ(FloatToHalf(x).bits(), ReferenceHalfBits(x)) << std::hexfloat << x;
  }
  for (uint32_t exponent = 90; exponent <= 150; ++exponent) {
    for (int i = 0; i < 2000; ++i) {
      const uint32_t bits = (any_bits(rng) & 0x807FFFFFu) | (exponent << 23);
      const float x = FromBits(bits);
      ASSERT_EQ(FloatToHalf(x).bits(), ReferenceHalfBits(x)) << std::hexfloat << x;
    }
  }
  // Truncation, not rounding: 1.0009 would round to 1.0009765625, 65519 to infinity.
  EXPECT_EQ(FloatToHalf(1.0009f).bits(), 0x3C00);
  EXPECT_EQ(FloatToHalf(65519.0f).bits(), 0x7BFF);
  for (float x : {-1.0009f, 65536.0f, 5.9604645e-08f, 5.9604640e-08f, -0.0f,
                  std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                  std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max()}) {
    EXPECT_EQ(FloatToHalf(x).bits(), ReferenceHalfBits(x)) << x;
  }
}

TEST(FloatToHalf, WideningThenNarrowingIsIdentity) {
  // Every half survives widening and narrowing, so a second pass through a half file changes nothing.
  for (uint32_t b = 0; b <= 0xFFFF; ++b) {
    half h;
    h.setBits(static_cast<uint16_t>(b));
    ASSERT_EQ(FloatToHalf(HalfToFloat(h)).bits(), b);
  }
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
