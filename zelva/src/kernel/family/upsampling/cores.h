// The vector cores of the upsampling family and what they see. Declarations only: the cores live in the
// folder of their instruction set and share the loop nests of upsample_tile.h; the Fallback member runs the
// reference (reference.h). The frame computes, per call, each output row's and column's taps by the rules of
// reference.h and hands them over as tables; every core forms each output value with the operations of the
// reference in its order (separate multiply and add), so every member is bit-exact to it. The members that
// differ only in their number differ in method:
//   M1  direct: each output pixel from its four input pixels.
//   M2  rows: per output row, its two input rows interpolated along x into two scratch rows, then blended.
//   M3  plane: every input row interpolated along x once into a scratch plane, then each output row blended
//       from two of its rows (a row shared by several output rows is interpolated once).
// Nearest cores copy: a planar pixel or a blocked pixel vector from its source.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

struct UpsampleArgs {
  const float* input;  // [planes, in_h, in_w(, lanes)]
  float* output;       // [planes, out_h, out_w(, lanes)]
  uint32_t planes;     // channels (planar) or channel blocks (blocked)
  uint32_t in_h, in_w, out_h, out_w;
  const uint32_t *y0, *y1, *x0, *x1;  // per output row and column; nearest: the source in y0 and x0
  const float *wy0, *wy1, *wx0, *wx1;
  float* scratch;  // as the core's UpsampleScratch asks
};

enum class UpsampleScratch : uint8_t {
  kNone,
  kRows,   // 2 x out_w x lanes floats
  kPlane,  // in_h x out_w x lanes floats
};

struct UpsampleCore {
  void (*run)(const UpsampleArgs& args);  // null: the reference
  UpsampleScratch scratch;
};

// Planar (CHW) bilinear, four or eight output columns a vector (their sources gathered), the tail of a row in
// scalar code of the same order. cpu/sse/upsampling, cpu/avx/upsampling.
void UpsampleBilinearPlanarDirectSse(const UpsampleArgs& args);
void UpsampleBilinearPlanarRowsSse(const UpsampleArgs& args);
void UpsampleBilinearPlanarPlaneSse(const UpsampleArgs& args);
void UpsampleBilinearPlanarDirectAvx(const UpsampleArgs& args);
void UpsampleBilinearPlanarRowsAvx(const UpsampleArgs& args);
void UpsampleBilinearPlanarPlaneAvx(const UpsampleArgs& args);
// Blocked (C4HW4 in SSE, C8HW8 in AVX): one pixel's channel block a vector.
void UpsampleBilinearC4DirectSse(const UpsampleArgs& args);
void UpsampleBilinearC4RowsSse(const UpsampleArgs& args);
void UpsampleNearestC4Sse(const UpsampleArgs& args);
void UpsampleBilinearC8DirectAvx(const UpsampleArgs& args);
void UpsampleBilinearC8RowsAvx(const UpsampleArgs& args);
void UpsampleBilinearC8PlaneAvx(const UpsampleArgs& args);
void UpsampleNearestC8Avx(const UpsampleArgs& args);

inline constexpr UpsampleCore kUpsampleReferenceCore{nullptr, UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearPlanarDirectSse{&UpsampleBilinearPlanarDirectSse,
                                                               UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearPlanarRowsSse{&UpsampleBilinearPlanarRowsSse,
                                                             UpsampleScratch::kRows};
inline constexpr UpsampleCore kUpsampleBilinearPlanarPlaneSse{&UpsampleBilinearPlanarPlaneSse,
                                                              UpsampleScratch::kPlane};
inline constexpr UpsampleCore kUpsampleBilinearPlanarDirectAvx{&UpsampleBilinearPlanarDirectAvx,
                                                               UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearPlanarRowsAvx{&UpsampleBilinearPlanarRowsAvx,
                                                             UpsampleScratch::kRows};
inline constexpr UpsampleCore kUpsampleBilinearPlanarPlaneAvx{&UpsampleBilinearPlanarPlaneAvx,
                                                              UpsampleScratch::kPlane};
inline constexpr UpsampleCore kUpsampleBilinearC4DirectSse{&UpsampleBilinearC4DirectSse,
                                                           UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearC4RowsSse{&UpsampleBilinearC4RowsSse, UpsampleScratch::kRows};
inline constexpr UpsampleCore kUpsampleNearestC4Sse{&UpsampleNearestC4Sse, UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearC8DirectAvx{&UpsampleBilinearC8DirectAvx,
                                                           UpsampleScratch::kNone};
inline constexpr UpsampleCore kUpsampleBilinearC8RowsAvx{&UpsampleBilinearC8RowsAvx, UpsampleScratch::kRows};
inline constexpr UpsampleCore kUpsampleBilinearC8PlaneAvx{&UpsampleBilinearC8PlaneAvx,
                                                          UpsampleScratch::kPlane};
inline constexpr UpsampleCore kUpsampleNearestC8Avx{&UpsampleNearestC8Avx, UpsampleScratch::kNone};

}  // namespace kernel
}  // namespace zelva
