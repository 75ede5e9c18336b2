// SSE cores of the layout-transform family (declared in family/layout/cores.h). Loads, stores, unpacks and
// shuffles move bits unchanged, so every core gives the reference's bytes.
#include <xmmintrin.h>

#include <cstddef>

#include "zelva/src/kernel/family/layout/cores.h"

namespace zelva {
namespace kernel {

namespace {

// The planes (or blocks) of one block of `lanes` channels.
template <int kLanes>
void Planes(const float* base, uint32_t stride, const float* (&planes)[kLanes]) {
  for (int k = 0; k < kLanes; ++k) planes[k] = base + static_cast<size_t>(k) * stride;
}
template <int kLanes>
void Planes(float* base, uint32_t stride, float* (&planes)[kLanes]) {
  for (int k = 0; k < kLanes; ++k) planes[k] = base + static_cast<size_t>(k) * stride;
}

const float* Block(const LayoutArgs& a, uint32_t b, int lanes) {
  return a.src + static_cast<size_t>(b) * lanes * a.src_stride;
}
float* Block(const LayoutArgs& a, uint32_t b, int lanes, bool /*dst*/) {
  return a.dst + static_cast<size_t>(b) * lanes * a.dst_stride;
}

// Four lanes of pixel p from four planes.
inline __m128 Gather4(const float* const* s, uint32_t p) {
  return _mm_set_ps(s[3][p], s[2][p], s[1][p], s[0][p]);
}

}  // namespace

void PlanarToC4Sse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s[4];
    Planes<4>(Block(a, b, 4), a.src_stride, s);
    float* d = a.dst + static_cast<size_t>(b) * a.dst_stride;
    for (uint32_t p = 0; p < a.pixels; ++p) _mm_storeu_ps(d + 4 * static_cast<size_t>(p), Gather4(s, p));
  }
}

void PlanarToC4Sse2(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s[4];
    Planes<4>(Block(a, b, 4), a.src_stride, s);
    float* d = a.dst + static_cast<size_t>(b) * a.dst_stride;
    uint32_t p = 0;
    for (; p + 4 <= a.pixels; p += 4, d += 16) {
      __m128 r0 = _mm_loadu_ps(s[0] + p), r1 = _mm_loadu_ps(s[1] + p);
      __m128 r2 = _mm_loadu_ps(s[2] + p), r3 = _mm_loadu_ps(s[3] + p);
      _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
      _mm_storeu_ps(d, r0);
      _mm_storeu_ps(d + 4, r1);
      _mm_storeu_ps(d + 8, r2);
      _mm_storeu_ps(d + 12, r3);
    }
    for (; p < a.pixels; ++p, d += 4) _mm_storeu_ps(d, Gather4(s, p));
  }
}

void PlanarToC8Sse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s[8];
    Planes<8>(Block(a, b, 8), a.src_stride, s);
    float* d = a.dst + static_cast<size_t>(b) * a.dst_stride;
    for (uint32_t p = 0; p < a.pixels; ++p, d += 8) {
      _mm_storeu_ps(d, Gather4(s, p));
      _mm_storeu_ps(d + 4, Gather4(s + 4, p));
    }
  }
}

void C4ToPlanarSse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s = a.src + static_cast<size_t>(b) * a.src_stride;
    float* d[4];
    Planes<4>(Block(a, b, 4, true), a.dst_stride, d);
    uint32_t p = 0;
    for (; p + 4 <= a.pixels; p += 4, s += 16) {
      __m128 r0 = _mm_loadu_ps(s), r1 = _mm_loadu_ps(s + 4), r2 = _mm_loadu_ps(s + 8),
             r3 = _mm_loadu_ps(s + 12);
      _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
      _mm_storeu_ps(d[0] + p, r0);
      _mm_storeu_ps(d[1] + p, r1);
      _mm_storeu_ps(d[2] + p, r2);
      _mm_storeu_ps(d[3] + p, r3);
    }
    for (; p < a.pixels; ++p, s += 4) {
      for (int k = 0; k < 4; ++k) _mm_store_ss(d[k] + p, _mm_load_ss(s + k));
    }
  }
}

void C8ToPlanarSse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s = a.src + static_cast<size_t>(b) * a.src_stride;
    float* d[8];
    Planes<8>(Block(a, b, 8, true), a.dst_stride, d);
    for (uint32_t p = 0; p < a.pixels; ++p, s += 8) {
      for (int k = 0; k < 8; ++k) _mm_store_ss(d[k] + p, _mm_load_ss(s + k));
    }
  }
}

void C8ToPlanarSse2(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s = a.src + static_cast<size_t>(b) * a.src_stride;
    float* d[8];
    Planes<8>(Block(a, b, 8, true), a.dst_stride, d);
    uint32_t p = 0;
    for (; p + 4 <= a.pixels; p += 4, s += 32) {
      for (int half = 0; half < 2; ++half) {
        const float* h = s + 4 * half;
        __m128 r0 = _mm_loadu_ps(h), r1 = _mm_loadu_ps(h + 8), r2 = _mm_loadu_ps(h + 16);
        __m128 r3 = _mm_loadu_ps(h + 24);
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        float* const* q = d + 4 * half;
        _mm_storeu_ps(q[0] + p, r0);
        _mm_storeu_ps(q[1] + p, r1);
        _mm_storeu_ps(q[2] + p, r2);
        _mm_storeu_ps(q[3] + p, r3);
      }
    }
    for (; p < a.pixels; ++p, s += 8) {
      for (int k = 0; k < 8; ++k) _mm_store_ss(d[k] + p, _mm_load_ss(s + k));
    }
  }
}

void C4ToC8Sse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* lo = a.src + static_cast<size_t>(2 * b) * a.src_stride;
    const float* hi = lo + a.src_stride;
    float* d = a.dst + static_cast<size_t>(b) * a.dst_stride;
    for (uint32_t p = 0; p < a.pixels; ++p, d += 8, lo += 4, hi += 4) {
      _mm_storeu_ps(d, _mm_loadu_ps(lo));
      _mm_storeu_ps(d + 4, _mm_loadu_ps(hi));
    }
  }
}

void C8ToC4Sse1(const LayoutArgs& a) {
  for (uint32_t b = 0; b < a.blocks; ++b) {
    const float* s = a.src + static_cast<size_t>(b) * a.src_stride;
    float* lo = a.dst + static_cast<size_t>(2 * b) * a.dst_stride;
    float* hi = lo + a.dst_stride;
    for (uint32_t p = 0; p < a.pixels; ++p, s += 8, lo += 4, hi += 4) {
      _mm_storeu_ps(lo, _mm_loadu_ps(s));
      _mm_storeu_ps(hi, _mm_loadu_ps(s + 4));
    }
  }
}

}  // namespace kernel
}  // namespace zelva
