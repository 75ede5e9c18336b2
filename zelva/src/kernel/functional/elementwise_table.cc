#include "zelva/src/kernel/functional/elementwise_table.h"

#include "zelva/src/kernel/functional/lanes.h"

namespace zelva {
namespace kernel {
namespace functional {

namespace {

template <uint16_t kCode>
ElementwiseFunction Entry() {
  return [](const float& a, const float& b) { return ApplyOp(kCode, a, b); };
}

const std::unordered_map<uint16_t, ElementwiseFunction> kElementwiseFunctions = {
    {0, Entry<0>()}, {1, Entry<1>()}, {2, Entry<2>()}, {3, Entry<3>()}, {4, Entry<4>()}, {5, Entry<5>()},
};

}  // namespace

const std::unordered_map<uint16_t, ElementwiseFunction>& ElementwiseFunctionTable() {
  return kElementwiseFunctions;
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
