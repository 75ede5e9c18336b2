// The recurrent family's plain scalar reference: readable loops, one float operation at a time, in the order
// the kernels promise. Each dense row keeps sixteen running partial sums (position i mod 16), joins them
// lane-wise as (p[j] + p[4+j]) + (p[8+j] + p[12+j]), then ((l0 + l1) + (l2 + l3)) + tail, then adds that to
// the bias: the order of the SSE dense core, so the SSE members match it bit for bit. The gate functions are
// 1 / (expf(-x) + 1) and tanhf.
#pragma once

#include <cstdint>
#include <vector>

#include "zelva/src/kernel/family/rnn/cores.h"

namespace zelva {
namespace kernel {
namespace recurrent_reference {

// Weights of one layer and direction, as the file holds them; biases empty when the layer has none.
struct CellWeights {
  std::vector<float> w_ih, w_hh, b_ih, b_hh;
};

// y = w x + b, w holding `rows` rows of `cols`, in the SSE core's order.
std::vector<float> Dense(const std::vector<float>& w, const std::vector<float>& b, const float* x,
                         uint32_t rows, uint32_t cols);

// One step; `h` (and `c` for the LSTM) are replaced by the new state. `activation` 2 ReLU, 5 tanh, anything
// else leaves the sum.
void Step(RecurrentKind kind, uint32_t activation, const CellWeights& w, const float* x, uint32_t in_width,
          std::vector<float>& h, std::vector<float>& c);

// A stacked, optionally bidirectional layer with its state [layers * directions][hidden] carried between
// calls. `narrow` is a nonzero complex_rnn_type: higher layers take `hidden` inputs (unidirectional only).
struct Sequence {
  RecurrentKind kind = RecurrentKind::kGRU;
  uint32_t activation = 0;
  uint32_t in_size = 0, hidden = 0, layers = 1;
  bool bidirectional = false;
  bool narrow = false;
  std::vector<CellWeights> forward, reverse;  // one per layer
  std::vector<std::vector<float>> h, c;       // per layer and direction

  uint32_t Directions() const { return bidirectional ? 2 : 1; }
  uint32_t InWidth(uint32_t layer) const {
    return layer == 0 ? in_size : narrow ? hidden : Directions() * hidden;
  }
  void Reset();
  // x: steps x in_size; returns steps x directions*hidden.
  std::vector<float> Run(const std::vector<float>& x, uint32_t steps);
};

}  // namespace recurrent_reference
}  // namespace kernel
}  // namespace zelva
