// The SSE cores of the 16-bit integer 1x1 convolution (declared in family/conv2d_int16/cores.h). SSE2 only.
#include <emmintrin.h>

#include <cmath>
#include <cstddef>

#include "zelva/src/kernel/family/conv2d_int16/cores.h"

namespace zelva {
namespace kernel {

namespace {

// One float at `step` fractional bits, by the rule of cores.h: scaled exactly by the power of two, clamped,
// rounded half to even (the default rounding of the conversion), saturated by the clamp.
inline int16_t QuantizeOne(float v, float scale) {
  if (std::isnan(v)) return 32767;
  const float s = std::fmin(std::fmax(v * scale, -32768.0f), 32767.0f);
  return static_cast<int16_t>(std::nearbyint(s));
}

}  // namespace

void QuantizeInt16Sse(const float* in, int16_t* out, uint32_t count, int32_t step) {
  const float scale = std::ldexp(1.0f, step);
  const __m128 vs = _mm_set1_ps(scale), lo = _mm_set1_ps(-32768.0f), hi = _mm_set1_ps(32767.0f);
  uint32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    // min(x, hi) returns hi for a NaN x (the second operand), so NaN saturates high like the scalar rule.
    const __m128 a = _mm_max_ps(_mm_min_ps(_mm_mul_ps(_mm_loadu_ps(in + i), vs), hi), lo);
    const __m128 b = _mm_max_ps(_mm_min_ps(_mm_mul_ps(_mm_loadu_ps(in + i + 4), vs), hi), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i),
                     _mm_packs_epi32(_mm_cvtps_epi32(a), _mm_cvtps_epi32(b)));
  }
  for (; i < count; ++i) out[i] = QuantizeOne(in[i], scale);
}

void Conv2dInt16C8Sse(const Conv2dInt16Args& a) {
  const __m128 scale = _mm_set1_ps(a.scale);
  const size_t in_block = static_cast<size_t>(a.pixels) * 8,
               w_block = 64;  // int16 per input block of weights
  for (uint32_t ob = 0; ob < a.out_blocks; ++ob) {
    const int16_t* wb = a.weight + static_cast<size_t>(ob) * a.in_blocks * w_block;
    const __m128 b0 = _mm_loadu_ps(a.bias + 8 * ob), b1 = _mm_loadu_ps(a.bias + 8 * ob + 4);
    float* out = a.output + static_cast<size_t>(ob) * in_block;
    for (uint32_t p = 0; p < a.pixels; ++p) {
      __m128i acc0 = _mm_setzero_si128(), acc1 = _mm_setzero_si128();
      const int16_t* x = a.input + static_cast<size_t>(p) * 8;
      const int16_t* w = wb;
      for (uint32_t ib = 0; ib < a.in_blocks; ++ib, x += in_block, w += w_block) {
        const __m128i xv = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x));
        const __m128i x0 = _mm_shuffle_epi32(xv, 0x00), x1 = _mm_shuffle_epi32(xv, 0x55);
        const __m128i x2 = _mm_shuffle_epi32(xv, 0xAA), x3 = _mm_shuffle_epi32(xv, 0xFF);
        const __m128i* wv = reinterpret_cast<const __m128i*>(w);
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(x0, _mm_loadu_si128(wv + 0)));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(x0, _mm_loadu_si128(wv + 1)));
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(x1, _mm_loadu_si128(wv + 2)));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(x1, _mm_loadu_si128(wv + 3)));
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(x2, _mm_loadu_si128(wv + 4)));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(x2, _mm_loadu_si128(wv + 5)));
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(x3, _mm_loadu_si128(wv + 6)));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(x3, _mm_loadu_si128(wv + 7)));
      }
      _mm_storeu_ps(out + static_cast<size_t>(p) * 8,
                    _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(acc0), scale), b0));
      _mm_storeu_ps(out + static_cast<size_t>(p) * 8 + 4,
                    _mm_add_ps(_mm_mul_ps(_mm_cvtepi32_ps(acc1), scale), b1));
    }
  }
}

}  // namespace kernel
}  // namespace zelva
