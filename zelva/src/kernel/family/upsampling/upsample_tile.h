// The loop nests of the upsampling cores (cores.h), over a vector type V of the instruction set that includes
// them: V::kLanes floats; Load, Store, Add, Mul, Set1 and Gather (kLanes floats of a row at kLanes indices).
// Every value is formed as in the reference: along x, a w0x + b w1x; then top w0y + bottom w1y.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zelva/src/kernel/family/upsampling/cores.h"

namespace zelva {
namespace kernel {
namespace upsample_tile {

// ---- Planar: output columns in the lanes.

// dst[ox] = row[x0[ox]] * wx0[ox] + row[x1[ox]] * wx1[ox] for every output column.
template <class V>
void PlanarAlongX(const UpsampleArgs& a, const float* row, float* dst) {
  constexpr uint32_t L = V::kLanes;
  uint32_t ox = 0;
  for (; ox + L <= a.out_w; ox += L)
    V::Store(dst + ox, V::Add(V::Mul(V::Gather(row, a.x0 + ox), V::Load(a.wx0 + ox)),
                              V::Mul(V::Gather(row, a.x1 + ox), V::Load(a.wx1 + ox))));
  for (; ox < a.out_w; ++ox) dst[ox] = row[a.x0[ox]] * a.wx0[ox] + row[a.x1[ox]] * a.wx1[ox];
}

// dst[i] = top[i] * w0 + bottom[i] * w1 for n values.
template <class V>
void Blend(const float* top, const float* bottom, float w0, float w1, float* dst, size_t n) {
  constexpr uint32_t L = V::kLanes;
  const typename V::T v0 = V::Set(w0), v1 = V::Set(w1);
  size_t i = 0;
  for (; i + L <= n; i += L)
    V::Store(dst + i, V::Add(V::Mul(V::Load(top + i), v0), V::Mul(V::Load(bottom + i), v1)));
  for (; i < n; ++i) dst[i] = top[i] * w0 + bottom[i] * w1;
}

template <class V>
void PlanarDirect(const UpsampleArgs& a) {
  constexpr uint32_t L = V::kLanes;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* r0 = in + static_cast<size_t>(a.y0[oy]) * a.in_w;
      const float* r1 = in + static_cast<size_t>(a.y1[oy]) * a.in_w;
      float* out = a.output + (static_cast<size_t>(p) * a.out_h + oy) * a.out_w;
      const float wy0 = a.wy0[oy], wy1 = a.wy1[oy];
      const typename V::T vy0 = V::Set(wy0), vy1 = V::Set(wy1);
      uint32_t ox = 0;
      for (; ox + L <= a.out_w; ox += L) {
        const typename V::T wx0 = V::Load(a.wx0 + ox), wx1 = V::Load(a.wx1 + ox);
        const typename V::T top =
            V::Add(V::Mul(V::Gather(r0, a.x0 + ox), wx0), V::Mul(V::Gather(r0, a.x1 + ox), wx1));
        const typename V::T bottom =
            V::Add(V::Mul(V::Gather(r1, a.x0 + ox), wx0), V::Mul(V::Gather(r1, a.x1 + ox), wx1));
        V::Store(out + ox, V::Add(V::Mul(top, vy0), V::Mul(bottom, vy1)));
      }
      for (; ox < a.out_w; ++ox) {
        const float top = r0[a.x0[ox]] * a.wx0[ox] + r0[a.x1[ox]] * a.wx1[ox];
        const float bottom = r1[a.x0[ox]] * a.wx0[ox] + r1[a.x1[ox]] * a.wx1[ox];
        out[ox] = top * wy0 + bottom * wy1;
      }
    }
  }
}

template <class V>
void PlanarRows(const UpsampleArgs& a) {
  float* top = a.scratch;
  float* bottom = a.scratch + a.out_w;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      PlanarAlongX<V>(a, in + static_cast<size_t>(a.y0[oy]) * a.in_w, top);
      PlanarAlongX<V>(a, in + static_cast<size_t>(a.y1[oy]) * a.in_w, bottom);
      Blend<V>(top, bottom, a.wy0[oy], a.wy1[oy],
               a.output + (static_cast<size_t>(p) * a.out_h + oy) * a.out_w, a.out_w);
    }
  }
}

template <class V>
void PlanarPlane(const UpsampleArgs& a) {
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w;
    for (uint32_t iy = 0; iy < a.in_h; ++iy)
      PlanarAlongX<V>(a, in + static_cast<size_t>(iy) * a.in_w,
                      a.scratch + static_cast<size_t>(iy) * a.out_w);
    for (uint32_t oy = 0; oy < a.out_h; ++oy)
      Blend<V>(a.scratch + static_cast<size_t>(a.y0[oy]) * a.out_w,
               a.scratch + static_cast<size_t>(a.y1[oy]) * a.out_w, a.wy0[oy], a.wy1[oy],
               a.output + (static_cast<size_t>(p) * a.out_h + oy) * a.out_w, a.out_w);
  }
}

// ---- Blocked: one pixel's channel block in the lanes.

template <class V>
void BlockedAlongX(const UpsampleArgs& a, const float* row, float* dst) {
  constexpr uint32_t L = V::kLanes;
  for (uint32_t ox = 0; ox < a.out_w; ++ox)
    V::Store(dst + static_cast<size_t>(ox) * L,
             V::Add(V::Mul(V::Load(row + static_cast<size_t>(a.x0[ox]) * L), V::Set(a.wx0[ox])),
                    V::Mul(V::Load(row + static_cast<size_t>(a.x1[ox]) * L), V::Set(a.wx1[ox]))));
}

template <class V>
void BlockedDirect(const UpsampleArgs& a) {
  constexpr uint32_t L = V::kLanes;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w * L;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* r0 = in + static_cast<size_t>(a.y0[oy]) * a.in_w * L;
      const float* r1 = in + static_cast<size_t>(a.y1[oy]) * a.in_w * L;
      float* out = a.output + (static_cast<size_t>(p) * a.out_h + oy) * a.out_w * L;
      const typename V::T vy0 = V::Set(a.wy0[oy]), vy1 = V::Set(a.wy1[oy]);
      for (uint32_t ox = 0; ox < a.out_w; ++ox) {
        const size_t i0 = static_cast<size_t>(a.x0[ox]) * L, i1 = static_cast<size_t>(a.x1[ox]) * L;
        const typename V::T wx0 = V::Set(a.wx0[ox]), wx1 = V::Set(a.wx1[ox]);
        const typename V::T top = V::Add(V::Mul(V::Load(r0 + i0), wx0), V::Mul(V::Load(r0 + i1), wx1));
        const typename V::T bottom = V::Add(V::Mul(V::Load(r1 + i0), wx0), V::Mul(V::Load(r1 + i1), wx1));
        V::Store(out + static_cast<size_t>(ox) * L, V::Add(V::Mul(top, vy0), V::Mul(bottom, vy1)));
      }
    }
  }
}

template <class V>
void BlockedRows(const UpsampleArgs& a) {
  constexpr uint32_t L = V::kLanes;
  const size_t row_out = static_cast<size_t>(a.out_w) * L;
  float* top = a.scratch;
  float* bottom = a.scratch + row_out;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w * L;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      BlockedAlongX<V>(a, in + static_cast<size_t>(a.y0[oy]) * a.in_w * L, top);
      BlockedAlongX<V>(a, in + static_cast<size_t>(a.y1[oy]) * a.in_w * L, bottom);
      Blend<V>(top, bottom, a.wy0[oy], a.wy1[oy],
               a.output + (static_cast<size_t>(p) * a.out_h + oy) * row_out, row_out);
    }
  }
}

template <class V>
void BlockedPlane(const UpsampleArgs& a) {
  constexpr uint32_t L = V::kLanes;
  const size_t row_out = static_cast<size_t>(a.out_w) * L;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w * L;
    for (uint32_t iy = 0; iy < a.in_h; ++iy)
      BlockedAlongX<V>(a, in + static_cast<size_t>(iy) * a.in_w * L, a.scratch + iy * row_out);
    for (uint32_t oy = 0; oy < a.out_h; ++oy)
      Blend<V>(a.scratch + a.y0[oy] * row_out, a.scratch + a.y1[oy] * row_out, a.wy0[oy], a.wy1[oy],
               a.output + (static_cast<size_t>(p) * a.out_h + oy) * row_out, row_out);
  }
}

template <class V>
void BlockedNearest(const UpsampleArgs& a) {
  constexpr uint32_t L = V::kLanes;
  for (uint32_t p = 0; p < a.planes; ++p) {
    const float* in = a.input + static_cast<size_t>(p) * a.in_h * a.in_w * L;
    for (uint32_t oy = 0; oy < a.out_h; ++oy) {
      const float* row = in + static_cast<size_t>(a.y0[oy]) * a.in_w * L;
      float* out = a.output + (static_cast<size_t>(p) * a.out_h + oy) * a.out_w * L;
      for (uint32_t ox = 0; ox < a.out_w; ++ox)
        V::Store(out + static_cast<size_t>(ox) * L, V::Load(row + static_cast<size_t>(a.x0[ox]) * L));
    }
  }
}

}  // namespace upsample_tile
}  // namespace kernel
}  // namespace zelva
