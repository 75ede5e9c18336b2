// The reference of the pooling family, and the core of its two general members. Plain loops that state the
// arithmetic of every member:
//
//   average: the divisor starts at kernel_x * kernel_y as a float; every tap of the window adds its value
//            to a sum that starts at 0.0 (row by row, left to right); a tap in the margin adds the pad value
//            0.0 and, unless count_include_pad, takes 1.0 off the divisor; the output is sum / divisor.
//   maximum: the first tap, then each later tap that is greater. The margin holds 0.0 here too, so a window
//            that reaches into it never gives less than 0.0.
//
// A tap is in the margin when it lies outside the input: above or left of it (the top and left padding),
// or below or right of it, in the bottom and right padding or past it, where a window of ceil mode ends
// beyond the padded input. The family tester holds the reference against torch.nn.AvgPool2d and MaxPool2d
// (tests/data/pool_fixture.txt, tools/gen_pool_fixture.py) where the two agree.
#pragma once

#include "zelva/src/kernel/family/pooling/cores.h"

namespace zelva {
namespace kernel {

// Over args.input [planes, in_h, in_w, lanes] seen through pad_t and pad_l; row_count and col_count unused.
void AvgPoolReference(const PoolArgs& args);
void MaxPoolReference(const PoolArgs& args);

inline constexpr PoolCore kAvgPoolFallback{&AvgPoolReference, false};
inline constexpr PoolCore kMaxPoolFallback{&MaxPoolReference, false};

}  // namespace kernel
}  // namespace zelva
