// The reference of the soft arg-max family: the conventions of cores.h in double precision with libm's exp,
// one pixel at a time. The tester holds it against a soft arg-max written in PyTorch
// (tests/data/softargmax_fixture.txt, tools/gen_softargmax_fixture.py), and every member within its row's
// bound of it.
#pragma once

#include "zelva/src/kernel/family/softargmax/cores.h"

namespace zelva {
namespace kernel {

void SoftArgMaxReference(const SoftArgMaxArgs& args);

}  // namespace kernel
}  // namespace zelva
