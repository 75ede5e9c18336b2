// Every core of the recurrent family, declarations only: one time step of a cell on raw pointers, defined in
// cpu/sse/rnn/. The same step serves the sequence kernels (a whole sequence through stacked layers) and the
// cell kernels (one step, state passed in), in both product forms.
#pragma once

#include <cstdint>

namespace zelva {
namespace kernel {

enum class RecurrentKind {
  kRNN,   // one gate block: out = act(W_ih x + b_ih + W_hh h + b_hh)
  kLSTM,  // four gate blocks i, f, g, o; state h and c
  kGRU,   // three gate blocks r, z, n
};

// Gate blocks per kind: the weight rows are GateCount x hidden.
constexpr uint32_t GateCount(RecurrentKind kind) {
  return kind == RecurrentKind::kGRU ? 3u : kind == RecurrentKind::kLSTM ? 4u : 1u;
}
// State vectors per kind: h, plus c for the LSTM.
constexpr uint32_t StateCount(RecurrentKind kind) {
  return kind == RecurrentKind::kLSTM ? 2u : 1u;
}

// y (out_count) = w (out_count x in_count) x + bias, bias null meaning zero. functional::DenseForward (SSE
// form) or functional::DenseBySgemm (SGEMM form).
using DenseProduct = void (*)(const float* x, int32_t in_count, int32_t out_count, const float* w,
                              const float* bias, float* y);

// The weights of one cell, in file order: weight_ih is (gates x hidden) rows of in_width, weight_hh
// (gates x hidden) rows of hidden; the biases are null when the layer has none.
struct StepWeights {
  const float* weight_ih = nullptr;
  const float* weight_hh = nullptr;
  const float* bias_ih = nullptr;
  const float* bias_hh = nullptr;
  uint32_t in_width = 0;
  uint32_t hidden = 0;
};

// Activation codes of the plain recurrent cell; any other code is logged and the sum is left as it is.
constexpr uint32_t kRecurrentReLU = 2;
constexpr uint32_t kRecurrentTanH = 5;

// The exact scalar gate functions: 1 / (expf(-x) + 1) and tanhf.
float GateSigmoid(float x);
float GateTanh(float x);

// One step. `state` holds StateCount(kind) vectors of `hidden` floats (h, then c for the LSTM), `state_out`
// receives the new ones; a new state may be the old one (everything after the two products is elementwise).
// `gx` and `gh` are scratch of GateCount(kind) x hidden floats. `activation` is read by the RNN only.
//
//   GRU:  gx = W_ih x + b_ih, gh = W_hh h + b_hh; r = sig(gx_r + gh_r); z = sig(gx_z + gh_z);
//         n = tanh(gx_n + gh_n * r); h' = n - z (n - h), as out = n - h, out = z out, out = n - out.
//   LSTM: gh = gx + gh over all four blocks; i, f, o = sig, g = tanh of their blocks;
//         c' = f c + i g (f c into the f block, i g into the g block, then added); h' = tanh(c') o.
//   RNN:  h' = act(gx + gh), act ReLU (code 2) or tanh (code 5).
void RecurrentStep(RecurrentKind kind, uint32_t activation, DenseProduct dense, const StepWeights& weights,
                   const float* x, const float* const* state, float* const* state_out, float* gx, float* gh);

}  // namespace kernel
}  // namespace zelva
