// The fully connected members, every instruction set, one row per registered name:
//
//   X(group, isa, class, accuracy, input layout code, input rule, weight order, core)
//
// Registration, the family tester and the benchmark read this list; this header also declares each row's
// record (class##_Row) and the class itself, an alias of Kernel<FullConnectionPolicy<class##_Row>>. No
// vector instruction here: the cores are only declared (cores.h) and compiled in their instruction-set
// folders.
//
// Accuracy is against DenseReference (one running sum per output in input order, then added to the bias).
// The blocked cores sum in that order and are bit for bit the same. The row cores split the sum into lane
// partial sums, a reordering whose difference is a few float roundings of the sum of |w x|. The bound stated
// holds for the tester's data (weights, bias and inputs in [-1, 1], up to 80 inputs): over 20,000 random
// layers each row core stayed within 3.9e-6 of the reference and 1.9e-6 of the product in double; all
// members are also held to PyTorch's nn.Linear (tests/data/linear_fixture.txt).
#pragma once

#include "zelva/src/kernel/family/fullconnection/fullconnection.h"

// clang-format off
#define ZV_FULLCONNECTION_MEMBERS(X) \
  X(kSSE, kSSE, FullConnection_SSE_BC_Float_M1,    Within(1e-5f, 0.0f), ::zelva::runtime::Layout::BC,        kBatchRows, kRows,     ::zelva::kernel::functional::DenseForward) \
  X(kSSE, kSSE, FullConnection_SSE_C_Float_M1,     Within(1e-5f, 0.0f), ::zelva::kernel::kFcAnyLayout,       kElements,  kRows,     ::zelva::kernel::functional::DenseForward) \
  X(kSSE, kSSE, FullConnection_SSE_C4HW4_Float_M1, kBitExact,           ::zelva::runtime::Layout::FLEXIABLE, kFirstDim,  kBlock4,   ::zelva::kernel::DenseBlock4SSE) \
  X(kSSE, kSSE, FullConnection_SSE_C44_Float_M1,   kBitExact,           ::zelva::runtime::Layout::C,         kFirstDim,  kBlock4,   ::zelva::kernel::DenseBlock4SSE) \
  X(kAVX, kAVX, FullConnection_AVX_C8HW8_Float_M1, kBitExact,           ::zelva::runtime::Layout::FLEXIABLE, kFirstDim,  kBlock8,   ::zelva::kernel::DenseBlock8AVX) \
  X(kAVX, kAVX, FullConnection_AVX_C_Float_M1,     Within(1e-5f, 0.0f), ::zelva::kernel::kFcAnyLayout,       kElements,  kRows,     ::zelva::kernel::DenseRowsAVX) \
  X(kAVX, kAVX, FullConnection_AVX_C88_Float_M1,   kBitExact,           ::zelva::kernel::kFcAnyLayout,       kElements,  kO8I8,     ::zelva::kernel::DenseBlock8AVX) \
  X(kAVX, kAVX, FullConnection_AVX_C_Float_M2,     kBitExact,           ::zelva::runtime::Layout::C,         kFirstDim,  kOutRows8, ::zelva::kernel::DenseOutRows8AVX) \
  X(kAVX, kAVX, FullConnection_AVX_C_Float_M3,     Within(1e-5f, 0.0f), ::zelva::runtime::Layout::C,         kFirstDim,  kRows,     ::zelva::kernel::DenseRows841AVX)
// clang-format on

#define ZV_FULLCONNECTION_DECLARE(group_, isa_, cls, accuracy_, layout_, rule_, form_, core_) \
  struct cls##_Row {                                                                          \
    static constexpr KernelGroup kGroup = KernelGroup::group_;                                \
    static constexpr Isa kIsa = Isa::isa_;                                                    \
    static constexpr const char* kName = #cls;                                                \
    static constexpr Accuracy kAccuracy = accuracy_;                                          \
    static constexpr uint32_t kLayout = layout_;                                              \
    static constexpr FcInput kInput = FcInput::rule_;                                         \
    static constexpr FcWeight kWeight = FcWeight::form_;                                      \
    static constexpr DenseCore kCore = &core_;                                                \
  };                                                                                          \
  using cls = Kernel<FullConnectionPolicy<cls##_Row>>;

namespace zelva {
namespace kernel {
ZV_FULLCONNECTION_MEMBERS(ZV_FULLCONNECTION_DECLARE)
}  // namespace kernel
}  // namespace zelva

#undef ZV_FULLCONNECTION_DECLARE
