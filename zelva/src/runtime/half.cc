#include "zelva/src/runtime/half.h"

#include <cstring>

namespace zelva {
namespace runtime {
namespace {

// Two tables indexed by the sign and the 8 exponent bits of a float: the half bits that the exponent alone
// gives, and how far the 23-bit mantissa is shifted right to land under it. Dropping the shifted-out bits is
// the truncation. Zero and float subnormals flush to signed zero; exponents below the half range give half
// subnormals; exponents above it give infinity; infinity and NaN keep the top 10 mantissa bits.
struct HalfTables {
  uint16_t base[512] = {};
  uint8_t shift[512] = {};

  constexpr HalfTables() {
    for (int i = 0; i < 256; ++i) {
      const int e = i - 127;
      uint16_t b = 0;
      uint8_t s = 0;
      if (e < -24) {  // too small even for a half subnormal
        b = 0x0000;
        s = 24;
      } else if (e < -14) {  // half subnormal: the implicit bit moves into the mantissa
        b = static_cast<uint16_t>(0x0400 >> (-e - 14));
        s = static_cast<uint8_t>(-e - 1);
      } else if (e <= 15) {  // normal
        b = static_cast<uint16_t>((e + 15) << 10);
        s = 13;
      } else if (e < 128) {  // overflow
        b = 0x7C00;
        s = 24;
      } else {  // infinity and NaN
        b = 0x7C00;
        s = 13;
      }
      base[i] = b;
      base[i | 0x100] = static_cast<uint16_t>(b | 0x8000);
      shift[i] = s;
      shift[i | 0x100] = s;
    }
  }
};

// Built by the compiler: usable from any static initialiser.
constexpr HalfTables kHalfTables;

}  // namespace

half FloatToHalf(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  const uint32_t index = bits >> 23;
  half result;
  result.setBits(
      static_cast<uint16_t>(kHalfTables.base[index] + ((bits & 0x007FFFFFu) >> kHalfTables.shift[index])));
  return result;
}

}  // namespace runtime
}  // namespace zelva
