// The reference of the warp affine family: cores.h's steps one output value at a time, every tap read with
// its own bounds test. The tester holds it against F.grid_sample on F.affine_grid
// (tests/data/warpaffine_fixture.txt, tools/gen_warpaffine_fixture.py) and the member against it.
#pragma once

#include "zelva/src/kernel/family/warpaffine/cores.h"

namespace zelva {
namespace kernel {

// Reads input, channels, height, width, theta, mode, padding, align_corners and writes output; no table.
void WarpAffineReference(const WarpAffineArgs& args);

}  // namespace kernel
}  // namespace zelva
