// The SSE core of the warp affine family (declared in family/warpaffine/cores.h).
#include <xmmintrin.h>

#include <cmath>
#include <cstddef>

#include "zelva/src/kernel/family/warpaffine/cores.h"

namespace zelva {
namespace kernel {

namespace {

// Offset of tap (y, x) in a plane, -1 outside.
inline int32_t Offset(int32_t y, int32_t x, int32_t h, int32_t w) {
  return y >= 0 && y < h && x >= 0 && x < w ? y * w + x : -1;
}

inline float Tap(const float* plane, int32_t offset) {
  return offset >= 0 ? plane[offset] : 0.0f;
}

}  // namespace

void WarpAffineSse(const WarpAffineArgs& a) {
  const int32_t h = static_cast<int32_t>(a.height), w = static_cast<int32_t>(a.width);
  const size_t pixels = static_cast<size_t>(a.height) * a.width;
  const float* t = a.theta;
  const bool nearest = a.mode == WarpMode::kNearest;
  // The table: per output pixel p, taps[4p + k] and weights[4p + k] for nw, ne, sw, se (nearest: tap 0).
  size_t p = 0;
  for (uint32_t i = 0; i < a.height; ++i) {
    const float yn = WarpBase(i, a.height, a.align_corners);
    for (uint32_t j = 0; j < a.width; ++j, ++p) {
      const float xn = WarpBase(j, a.width, a.align_corners);
      const float gx = t[0] * xn + t[1] * yn + t[2], gy = t[3] * xn + t[4] * yn + t[5];
      const float ix = WarpSourceCoordinate(gx, a.width, a.padding, a.align_corners);
      const float iy = WarpSourceCoordinate(gy, a.height, a.padding, a.align_corners);
      int32_t* tap = a.taps + 4 * p;
      float* wt = a.weights + 4 * p;
      if (nearest) {
        tap[0] = Offset(WarpTap(std::nearbyint(iy), a.height), WarpTap(std::nearbyint(ix), a.width), h, w);
        continue;
      }
      const float x0 = std::floor(ix), y0 = std::floor(iy);
      const int32_t xi = WarpTap(x0, a.width), yi = WarpTap(y0, a.height);
      tap[0] = Offset(yi, xi, h, w);
      tap[1] = Offset(yi, xi + 1, h, w);
      tap[2] = Offset(yi + 1, xi, h, w);
      tap[3] = Offset(yi + 1, xi + 1, h, w);
      wt[0] = (x0 + 1.0f - ix) * (y0 + 1.0f - iy);
      wt[1] = (ix - x0) * (y0 + 1.0f - iy);
      wt[2] = (x0 + 1.0f - ix) * (iy - y0);
      wt[3] = (ix - x0) * (iy - y0);
    }
  }

  for (uint32_t c = 0; c < a.channels; ++c) {
    const float* plane = a.input + c * pixels;
    float* out = a.output + c * pixels;
    if (nearest) {
      for (size_t q = 0; q < pixels; ++q) out[q] = Tap(plane, a.taps[4 * q]);
      continue;
    }
    size_t q = 0;
    for (; q + 4 <= pixels; q += 4) {
      const int32_t* tp = a.taps + 4 * q;
      const float* wt = a.weights + 4 * q;
      __m128 acc = _mm_setzero_ps();
      for (int k = 0; k < 4; ++k) {
        const __m128 v = _mm_setr_ps(Tap(plane, tp[k]), Tap(plane, tp[4 + k]), Tap(plane, tp[8 + k]),
                                     Tap(plane, tp[12 + k]));
        const __m128 wk = _mm_setr_ps(wt[k], wt[4 + k], wt[8 + k], wt[12 + k]);
        acc = k == 0 ? _mm_mul_ps(v, wk) : _mm_add_ps(acc, _mm_mul_ps(v, wk));
      }
      _mm_storeu_ps(out + q, acc);
    }
    for (; q < pixels; ++q) {
      const int32_t* tp = a.taps + 4 * q;
      const float* wt = a.weights + 4 * q;
      out[q] = ((Tap(plane, tp[0]) * wt[0] + Tap(plane, tp[1]) * wt[1]) + Tap(plane, tp[2]) * wt[2]) +
               Tap(plane, tp[3]) * wt[3];
    }
  }
}

}  // namespace kernel
}  // namespace zelva
