// The SSE core of the soft arg-max family (declared in family/softargmax/cores.h).
#include <sleef.h>
#include <xmmintrin.h>

#include <cmath>
#include <cstddef>

#include "zelva/src/kernel/family/softargmax/cores.h"

namespace zelva {
namespace kernel {

namespace {

float HorizontalSum(__m128 v) {
  const __m128 h = _mm_add_ps(v, _mm_movehl_ps(v, v));
  return _mm_cvtss_f32(_mm_add_ss(h, _mm_shuffle_ps(h, h, 1)));
}

}  // namespace

void SoftArgMaxSse(const SoftArgMaxArgs& a) {
  const size_t plane = static_cast<size_t>(a.height) * a.width;
  const uint32_t w = a.width, w4 = w & ~3u;
  const __m128 beta = _mm_set1_ps(a.beta), four = _mm_set1_ps(4.0f);
  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* v = a.input + c * plane;
    // The channel's largest beta x value.
    __m128 mv = _mm_set1_ps(a.beta * v[0]);
    size_t i = 0;
    for (; i + 4 <= plane; i += 4) mv = _mm_max_ps(mv, _mm_mul_ps(beta, _mm_loadu_ps(v + i)));
    float m = std::fmax(
        std::fmax(_mm_cvtss_f32(mv), _mm_cvtss_f32(_mm_shuffle_ps(mv, mv, 1))),
        std::fmax(_mm_cvtss_f32(_mm_shuffle_ps(mv, mv, 2)), _mm_cvtss_f32(_mm_shuffle_ps(mv, mv, 3))));
    for (; i < plane; ++i) m = std::fmax(m, a.beta * v[i]);
    const __m128 mm = _mm_set1_ps(m);

    float s = 0.0f, sx = 0.0f, sy = 0.0f;
    for (uint32_t y = 0; y < a.height; ++y) {
      const float* row = v + static_cast<size_t>(y) * w;
      __m128 vs = _mm_setzero_ps(), vx = _mm_setzero_ps(), col = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
      for (uint32_t x = 0; x < w4; x += 4) {
        const __m128 e = Sleef_expf4_u10sse2(_mm_sub_ps(_mm_mul_ps(beta, _mm_loadu_ps(row + x)), mm));
        vs = _mm_add_ps(vs, e);
        vx = _mm_add_ps(vx, _mm_mul_ps(e, col));
        col = _mm_add_ps(col, four);
      }
      float rs = HorizontalSum(vs), rx = HorizontalSum(vx);
      for (uint32_t x = w4; x < w; ++x) {
        const float e = std::exp(a.beta * row[x] - m);
        rs += e;
        rx += e * static_cast<float>(x);
      }
      s += rs;
      sx += rx;
      sy += rs * static_cast<float>(y);
    }
    a.output[2 * c] = sx / s * a.size_x / a.width_x;
    a.output[2 * c + 1] = sy / s * a.size_y / a.height_y;
  }
}

}  // namespace kernel
}  // namespace zelva
