// The reference of the upsampling family (Upsample2dInfo on planar tensors) and the index and weight rules
// every member shares. It is also the core of the Fallback member, the one member of all three modes. The
// family tester holds it against torch.nn.functional.interpolate (tests/data/upsampling_fixture.txt,
// tools/gen_upsampling_fixture.py) and every member against it.
//
// Convention, per axis, with `in` and `out` the sizes along it:
//   out      scale_height / scale_width when positive (then the file is of a version that carries them), else
//            floor(in x scale_factor_y / scale_factor_x).
//   scale    "Bilinear" and "Bicubic" with align_corner: (in - 1) / (out - 1), 0 for out 1; otherwise
//            1 / factor when the factor gave the size, in / out when the size was given. Float.
//   Nearest  source index floor(o x scale) capped at in - 1, o itself when out equals in and o / 2 when out
//            is twice in (align_corner does not enter).
//   Bilinear source position s = scale x o with align_corner, else max(scale x (o + 0.5) - 0.5, 0);
//            i0 = min(floor(s), in - 1), i1 = i0 + 1 capped at in - 1, w1 = s - i0 clamped to [0, 1],
//            w0 = 1 - w1. A pixel is (a w0x + b w1x) w0y + (c w0x + d w1x) w1y, a b the top row at i0x and
//            i1x, c d the bottom row, in that order of operations.
//   Bicubic  s as bilinear without the clamp at 0; i = min(floor(s), in - 1), t = s - i clamped to [0, 1];
//            taps i - 1 .. i + 2 clamped to the input, weights of the cubic convolution with A = -0.75:
//            ((A + 2) x - (A + 3)) x x + 1 at x = t and 1 - t, ((A x - 5A) x + 8A) x - 4A at x = t + 1 and
//            2 - t. Each of the four rows is summed left to right, then the rows top to bottom.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

enum class UpsampleMode : uint8_t { kNearest, kBilinear, kBicubic };

// One axis of a layer on an input: sizes and the scale of the rules above.
struct UpsampleAxis {
  uint32_t in, out;
  float scale;
};

// The axis for `in`: `size` (scale_height or scale_width) when positive, else `factor`.
UpsampleAxis MakeUpsampleAxis(uint32_t in, float factor, float size, bool align_corners);

uint32_t NearestIndex(const UpsampleAxis& axis, uint32_t o);

struct LinearTap {
  uint32_t i0, i1;
  float w0, w1;
};
LinearTap LinearTapAt(const UpsampleAxis& axis, uint32_t o, bool align_corners);

struct CubicTap {
  uint32_t i[4];
  float w[4];
};
CubicTap CubicTapAt(const UpsampleAxis& axis, uint32_t o, bool align_corners);

// [planes, y.in, x.in] to [planes, y.out, x.out].
void UpsampleReference(const float* input, float* output, uint32_t planes, const UpsampleAxis& y,
                       const UpsampleAxis& x, UpsampleMode mode, bool align_corners);

}  // namespace kernel
}  // namespace zelva
