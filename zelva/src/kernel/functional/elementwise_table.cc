#include "zelva/src/kernel/functional/elementwise_table.h"

namespace zelva {
namespace kernel {
namespace functional {

namespace {

const std::unordered_map<uint16_t, ElementwiseFunction> kElementwiseFunctions = {
    {0, [](const float& a, const float& b) { return a + b; }},
    {1, [](const float& a, const float& b) { return a - b; }},
    {2, [](const float& a, const float& b) { return a * b; }},
    {3, [](const float& a, const float& b) { return a / b; }},
    {4, [](const float& a, const float& b) { return VectorMax(a, b); }},
    {5, [](const float& a, const float& b) { return VectorMin(a, b); }},
};

}  // namespace

const std::unordered_map<uint16_t, ElementwiseFunction>& ElementwiseFunctionTable() {
  return kElementwiseFunctions;
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
