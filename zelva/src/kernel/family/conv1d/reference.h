// The reference of the one-dimensional convolution family: plain loops in the order of the family's
// convention (cores.h). It is also the core of the Fallback member. The family tester holds it against
// torch.nn.Conv1d (tests/data/conv1d_fixture.txt, tools/gen_conv1d_fixture.py) and every member against it.
#pragma once

#include "zelva/src/kernel/family/conv1d/cores.h"

namespace zelva {
namespace kernel {

void Conv1dReference(const Conv1dArgs& args);

inline constexpr Conv1dCore kConv1dReferenceCore{&Conv1dReference};

}  // namespace kernel
}  // namespace zelva
