// Members of the SSE recurrent family: X(group, class, shape, kind, product form). The list declares the
// member classes below and feeds the registration, the tester and the benchmark.
#pragma once

#include "zelva/src/kernel/cpu/sse/rnn/recurrent_kernel.h"

// clang-format off
#define ZV_SSE_RNN_MEMBERS(X) \
  X(kSSE, RNNCell_SSE_C_F32_M1,       RecurrentCellKernel,     kRNN,  kSSE)   \
  X(kSSE, RNN_SSE_SC_F32_M1,          RecurrentSequenceKernel, kRNN,  kSSE)   \
  X(kSSE, LSTMCell_SSE_C_F32_M1,      RecurrentCellKernel,     kLSTM, kSSE)   \
  X(kSSE, LSTM_SSE_SC_F32_M1,         RecurrentSequenceKernel, kLSTM, kSSE)   \
  X(kSSE, GRUCell_SSE_C_F32_M1,       RecurrentCellKernel,     kGRU,  kSSE)   \
  X(kSSE, GRU_SSE_SC_F32_M1,          RecurrentSequenceKernel, kGRU,  kSSE)   \
  X(kSSE, GRUCell_SSE_SGEMM_C_F32_M2, RecurrentCellKernel,     kGRU,  kSGEMM) \
  X(kSSE, GRU_SSE_SGEMM_SC_F32_M2,    RecurrentSequenceKernel, kGRU,  kSGEMM)
// clang-format on

// Each member: a tag with its kind, form and name, and the class as an alias of its shape over the tag.
#define ZV_SSE_RNN_DECLARE_MEMBER(group, cls, shape, kind, form) \
  struct cls##_Member {                                          \
    static constexpr RecurrentKind kKind = RecurrentKind::kind;  \
    static constexpr ProductForm kForm = ProductForm::form;      \
    static constexpr const char* kName = #cls;                   \
  };                                                             \
  using cls = shape<cls##_Member>;

namespace zelva {
namespace kernel {
ZV_SSE_RNN_MEMBERS(ZV_SSE_RNN_DECLARE_MEMBER)
}  // namespace kernel
}  // namespace zelva
