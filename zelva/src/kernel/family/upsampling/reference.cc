#include "zelva/src/kernel/family/upsampling/reference.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {

UpsampleAxis MakeUpsampleAxis(uint32_t in, float factor, float size, bool align_corners) {
  UpsampleAxis a;
  a.in = in;
  const bool sized = size > 0.0f;
  if (sized) {
    a.out = static_cast<uint32_t>(std::lround(size));
  } else {
    const double out = std::floor(static_cast<double>(in) * static_cast<double>(factor));
    a.out = out > 0.0 && out < 4294967296.0 ? static_cast<uint32_t>(out) : 0u;
  }
  if (align_corners) {
    a.scale = a.out > 1 ? static_cast<float>(in - 1) / static_cast<float>(a.out - 1) : 0.0f;
  } else if (!sized) {
    a.scale = static_cast<float>(1.0 / static_cast<double>(factor));
  } else {
    a.scale = a.out != 0 ? static_cast<float>(in) / static_cast<float>(a.out) : 0.0f;
  }
  return a;
}

uint32_t NearestIndex(const UpsampleAxis& a, uint32_t o) {
  if (a.out == a.in) return o;
  if (a.out == 2 * a.in) return o >> 1;
  const float s = std::floor(static_cast<float>(o) * a.scale);
  return std::min(static_cast<uint32_t>(s), a.in - 1);
}

namespace {

float SourcePosition(const UpsampleAxis& a, uint32_t o, bool align_corners, bool cubic) {
  if (align_corners) return a.scale * static_cast<float>(o);
  const float s = a.scale * (static_cast<float>(o) + 0.5f) - 0.5f;
  return !cubic && s < 0.0f ? 0.0f : s;
}

// min(floor(s), in - 1) and s less that, clamped to [0, 1].
void IndexAndFraction(float s, uint32_t in, int64_t* index, float* fraction) {
  *index = std::min(static_cast<int64_t>(std::floor(s)), static_cast<int64_t>(in) - 1);
  *fraction = std::min(std::max(s - static_cast<float>(*index), 0.0f), 1.0f);
}

constexpr float kCubicA = -0.75f;

float CubicNear(float x) {
  return ((kCubicA + 2.0f) * x - (kCubicA + 3.0f)) * x * x + 1.0f;
}
float CubicFar(float x) {
  return ((kCubicA * x - 5.0f * kCubicA) * x + 8.0f * kCubicA) * x - 4.0f * kCubicA;
}

}  // namespace

LinearTap LinearTapAt(const UpsampleAxis& a, uint32_t o, bool align_corners) {
  int64_t i;
  float t;
  IndexAndFraction(SourcePosition(a, o, align_corners, false), a.in, &i, &t);
  LinearTap tap;
  tap.i0 = static_cast<uint32_t>(i);
  tap.i1 = tap.i0 + (tap.i0 + 1 < a.in ? 1 : 0);
  tap.w1 = t;
  tap.w0 = 1.0f - t;
  return tap;
}

CubicTap CubicTapAt(const UpsampleAxis& a, uint32_t o, bool align_corners) {
  int64_t i;
  float t;
  IndexAndFraction(SourcePosition(a, o, align_corners, true), a.in, &i, &t);
  CubicTap tap;
  for (int k = 0; k < 4; ++k)
    tap.i[k] =
        static_cast<uint32_t>(std::min(std::max(i - 1 + k, int64_t{0}), static_cast<int64_t>(a.in) - 1));
  tap.w[0] = CubicFar(t + 1.0f);
  tap.w[1] = CubicNear(t);
  tap.w[2] = CubicNear(1.0f - t);
  tap.w[3] = CubicFar((1.0f - t) + 1.0f);
  return tap;
}

void UpsampleReference(const float* input, float* output, uint32_t planes, const UpsampleAxis& y,
                       const UpsampleAxis& x, UpsampleMode mode, bool align_corners) {
  for (uint32_t p = 0; p < planes; ++p) {
    const float* in = input + static_cast<size_t>(p) * y.in * x.in;
    float* out = output + static_cast<size_t>(p) * y.out * x.out;
    for (uint32_t oy = 0; oy < y.out; ++oy) {
      for (uint32_t ox = 0; ox < x.out; ++ox) {
        float v = 0.0f;
        if (mode == UpsampleMode::kNearest) {
          v = in[static_cast<size_t>(NearestIndex(y, oy)) * x.in + NearestIndex(x, ox)];
        } else if (mode == UpsampleMode::kBilinear) {
          const LinearTap ty = LinearTapAt(y, oy, align_corners), tx = LinearTapAt(x, ox, align_corners);
          const float* r0 = in + static_cast<size_t>(ty.i0) * x.in;
          const float* r1 = in + static_cast<size_t>(ty.i1) * x.in;
          const float top = r0[tx.i0] * tx.w0 + r0[tx.i1] * tx.w1;
          const float bottom = r1[tx.i0] * tx.w0 + r1[tx.i1] * tx.w1;
          v = top * ty.w0 + bottom * ty.w1;
        } else {
          const CubicTap ty = CubicTapAt(y, oy, align_corners), tx = CubicTapAt(x, ox, align_corners);
          for (int r = 0; r < 4; ++r) {
            const float* row = in + static_cast<size_t>(ty.i[r]) * x.in;
            const float h = row[tx.i[0]] * tx.w[0] + row[tx.i[1]] * tx.w[1] + row[tx.i[2]] * tx.w[2] +
                            row[tx.i[3]] * tx.w[3];
            v = r == 0 ? h * ty.w[0] : v + h * ty.w[r];
          }
        }
        out[static_cast<size_t>(oy) * x.out + ox] = v;
      }
    }
  }
}

}  // namespace kernel
}  // namespace zelva
