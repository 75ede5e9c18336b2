// The recurrent members, one row per registered name:
//
//   X(group, isa, class, accuracy, shape, kind, product form)
//
// Registration, the family tester and the benchmark read this list; this header also declares each row's
// record (class##_Row) and the class itself, an alias of Kernel<RecurrentPolicy<class##_Row>>.
//
// Accuracy is against the family reference (reference.h), which runs the step in plain loops and sums each
// dense row in the SSE core's documented order: the SSE members match it bit for bit. The SGEMM members leave
// the products to the BLAS, whose summation order (and use of fused multiply-add) is its own. The bound
// stated holds for the tester's data (weights within 1/sqrt(hidden), inputs within 1.5, up to 40 inputs and
// hidden, two stacked layers, ten steps): over 400 random GRU stacks the SGEMM sequence stayed within 4.6e-7
// of the reference; the bound leaves room for other BLAS builds. Every member is also held to PyTorch
// (tests/data/rnn_fixture.txt).
#pragma once

#include "zelva/src/kernel/family/rnn/rnn.h"

// clang-format off
#define ZV_RNN_MEMBERS(X) \
  X(kSSE, kSSE, RNNCell_SSE_C_F32_M1,       kBitExact,             kCell,     kRNN,  kSSE)   \
  X(kSSE, kSSE, RNN_SSE_SC_F32_M1,          kBitExact,             kSequence, kRNN,  kSSE)   \
  X(kSSE, kSSE, LSTMCell_SSE_C_F32_M1,      kBitExact,             kCell,     kLSTM, kSSE)   \
  X(kSSE, kSSE, LSTM_SSE_SC_F32_M1,         kBitExact,             kSequence, kLSTM, kSSE)   \
  X(kSSE, kSSE, GRUCell_SSE_C_F32_M1,       kBitExact,             kCell,     kGRU,  kSSE)   \
  X(kSSE, kSSE, GRU_SSE_SC_F32_M1,          kBitExact,             kSequence, kGRU,  kSSE)   \
  X(kSSE, kSSE, GRUCell_SSE_SGEMM_C_F32_M2, Within(5e-6f, 5e-6f),  kCell,     kGRU,  kSGEMM) \
  X(kSSE, kSSE, GRU_SSE_SGEMM_SC_F32_M2,    Within(5e-6f, 5e-6f),  kSequence, kGRU,  kSGEMM)
// clang-format on

#define ZV_RNN_DECLARE(group_, isa_, cls, accuracy_, shape_, kind_, form_) \
  struct cls##_Row {                                                       \
    static constexpr KernelGroup kGroup = KernelGroup::group_;             \
    static constexpr Isa kIsa = Isa::isa_;                                 \
    static constexpr const char* kName = #cls;                             \
    static constexpr Accuracy kAccuracy = accuracy_;                       \
    static constexpr RecurrentShape kShape = RecurrentShape::shape_;       \
    static constexpr RecurrentKind kKind = RecurrentKind::kind_;           \
    static constexpr ProductForm kForm = ProductForm::form_;               \
  };                                                                       \
  using cls = Kernel<RecurrentPolicy<cls##_Row>>;

namespace zelva {
namespace kernel {
ZV_RNN_MEMBERS(ZV_RNN_DECLARE)
}  // namespace kernel
}  // namespace zelva

#undef ZV_RNN_DECLARE
