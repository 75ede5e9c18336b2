// The cores of the warp affine family and what they see. Declarations only; the one core is defined in
// cpu/sse/warpaffine.
//
// Meaning: F.grid_sample(x, F.affine_grid(theta, x.shape, align_corners), mode, padding_mode, align_corners)
// on one planar [C, H, W] image, in float, step by step as follows. Output pixel (i, j):
//   xn = Base(j, W), yn = Base(i, H), where Base(k, n) is 0 for n <= 1; otherwise the linspace value
//        v = -1 + s k for k < n / 2 and 1 - s (n - 1 - k) for the rest, s = 2 / (n - 1), and without
//        align_corners v x (n - 1) / n;
//   gx = t0 xn + t1 yn + t2, gy = t3 xn + t4 yn + t5;
//   ix = ((gx + 1) / 2) (W - 1) with align_corners, ((gx + 1) W - 1) / 2 without; iy likewise with H;
//   padding "border": clipped to [0, size - 1]; "reflection": reflected about -0.5 and size - 0.5 (about 0
//   and size - 1 with align_corners), then clipped; "zeros": as it is, and taps outside read 0;
//   "nearest": the value at (round half to even iy, ix); "bilinear": the four taps around (iy, ix) with
//   weights nw = (x0 + 1 - ix)(y0 + 1 - iy), ne = (ix - x0)(y0 + 1 - iy), sw = (x0 + 1 - ix)(iy - y0),
//   se = (ix - x0)(iy - y0), x0 = floor(ix), y0 = floor(iy), summed as ((nw + ne) + sw) + se.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

enum class WarpMode : uint8_t { kBilinear, kNearest };
enum class WarpPadding : uint8_t { kZeros, kBorder, kReflection };

struct WarpAffineArgs {
  const float* input;
  uint32_t channels, height, width;
  const float* theta;  // 6 values, row-major 2 x 3
  WarpMode mode;
  WarpPadding padding;
  bool align_corners;
  float* output;
  // Per-call room for the sampling table of H x W pixels: four tap offsets (-1 outside) and four weights.
  int32_t* taps;
  float* weights;
};

// ---- SSE (cpu/sse/warpaffine): the table of taps and weights once per call (shared by every channel), then
// each channel four output pixels a vector: the taps gathered, multiplied and summed in the order above.
void WarpAffineSse(const WarpAffineArgs& args);

// The coordinate steps shared by the core and the reference: the base grid value and the sampling coordinate
// (unnormalised and padded) of one axis.
float WarpBase(uint32_t k, uint32_t n, bool align_corners);
float WarpSourceCoordinate(float g, uint32_t size, WarpPadding padding, bool align_corners);
// A whole coordinate (floor or rounded) as a tap index; -2 (outside, as is its neighbour) for one outside
// (-2, size + 1) or not a number, so that far coordinates convert safely.
inline int32_t WarpTap(float v, uint32_t size) {
  return v > -2.0f && v < static_cast<float>(size) + 1.0f ? static_cast<int32_t>(v) : -2;
}

}  // namespace kernel
}  // namespace zelva
