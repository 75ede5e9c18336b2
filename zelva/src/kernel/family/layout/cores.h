// The cores of the layout-transform family and what they see. A core moves floats between a planar layout
// (CHW, or the flat C vector: one plane of `pixels` values per channel) and a channel-blocked one (C4HW4 or
// C8HW8: one block of `pixels` x lanes values per block of channels), or between the two blocked layouts. It
// copies bits, never computes, so every core of a pair gives the same bytes, NaN payloads included.
// Declarations only: each core is defined in the folder of the instruction set it needs (cpu/sse/layout,
// cpu/avx/layout).
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

// What a core sees. `src_stride` and `dst_stride` are the distance in floats between one plane (planar side)
// or one block (blocked side) and the next: the tensor's own stride of dim 0, which a caller may make wider
// than the plane. `blocks` counts the blocks of the blocked side, for C4HW4 <-> C8HW8 the blocks of eight;
// `pixels` is H x W. Source and destination do not overlap.
struct LayoutArgs {
  const float* src;
  uint32_t src_stride;
  float* dst;
  uint32_t dst_stride;
  uint32_t blocks;
  uint32_t pixels;
};

using LayoutCore = void (*)(const LayoutArgs& args);

// ---- SSE (cpu/sse/layout/layout_sse.cc)
// CHW -> C4HW4. M1: one pixel a round (four plane values stored together). M2: four pixels a round (four
// loads, one from each plane, a 4x4 transposition, four stores), then the pixels % 4 rest one at a time.
void PlanarToC4Sse1(const LayoutArgs& args);
void PlanarToC4Sse2(const LayoutArgs& args);
// CHW -> C8HW8, one pixel a round as two four-lane halves.
void PlanarToC8Sse1(const LayoutArgs& args);
// C4HW4 -> CHW: four pixels a round through a 4x4 transposition, then single pixels.
void C4ToPlanarSse1(const LayoutArgs& args);
// C8HW8 -> CHW (and -> C). M1: one pixel a round, lane by lane. M2: four pixels a round, both halves of the
// block through 4x4 transpositions, then single pixels.
void C8ToPlanarSse1(const LayoutArgs& args);
void C8ToPlanarSse2(const LayoutArgs& args);
// C4HW4 <-> C8HW8: one pixel a round, a four-lane move per half.
void C4ToC8Sse1(const LayoutArgs& args);
void C8ToC4Sse1(const LayoutArgs& args);

// ---- AVX (cpu/avx/layout/layout_avx.cc)
// CHW <-> C8HW8 with 8x8 transpositions. M1: eight pixels a round; M2: sixteen pixels a round, then a round
// of eight; both finish the rest one pixel at a time.
void PlanarToC8Avx1(const LayoutArgs& args);
void PlanarToC8Avx2(const LayoutArgs& args);
void C8ToPlanarAvx1(const LayoutArgs& args);
void C8ToPlanarAvx2(const LayoutArgs& args);

}  // namespace kernel
}  // namespace zelva
