// Plain scalar reference of the recurrent family: readable loops, one float operation at a time, in the
// order the kernels promise. The dot product keeps sixteen running partial sums (position i mod 16), joins
// them lane-wise as (p[j] + p[4+j]) + (p[8+j] + p[12+j]), then ((l0 + l1) + (l2 + l3)) + tail, then adds
// that to the bias: so the SSE members must match it bit for bit.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace zvtest {
namespace rnn {

enum class Kind { kRNN, kLSTM, kGRU };

inline uint32_t Gates(Kind kind) {
  return kind == Kind::kGRU ? 3 : kind == Kind::kLSTM ? 4 : 1;
}

// Weights of one layer and direction, as the file holds them; biases empty when the layer has none.
struct CellWeights {
  std::vector<float> w_ih, w_hh, b_ih, b_hh;
};

// y = w x + b, w holding `rows` rows of `cols`.
inline std::vector<float> Dense(const std::vector<float>& w, const std::vector<float>& b, const float* x,
                                uint32_t rows, uint32_t cols) {
  std::vector<float> y(rows);
  const uint32_t body = cols / 16 * 16;
  for (uint32_t r = 0; r < rows; ++r) {
    const float* row = &w[static_cast<size_t>(r) * cols];
    float part[16] = {0};
    for (uint32_t i = 0; i < body; ++i) part[i % 16] += row[i] * x[i];
    float tail = 0.0f;
    for (uint32_t i = body; i < cols; ++i) tail += row[i] * x[i];
    float lane[4];
    for (int j = 0; j < 4; ++j) lane[j] = (part[j] + part[4 + j]) + (part[8 + j] + part[12 + j]);
    const float sum = ((lane[0] + lane[1]) + (lane[2] + lane[3])) + tail;
    y[r] = (b.empty() ? 0.0f : b[r]) + sum;
  }
  return y;
}

inline float Sigmoid(float v) {
  return 1.0f / (std::exp(-v) + 1.0f);
}

// One step; `h` (and `c` for the LSTM) are replaced by the new state. `activation` 2 ReLU, 5 tanh, anything
// else leaves the sum.
inline void Step(Kind kind, uint32_t activation, const CellWeights& w, const float* x, uint32_t in_width,
                 std::vector<float>& h, std::vector<float>& c) {
  const uint32_t H = static_cast<uint32_t>(h.size());
  const uint32_t rows = Gates(kind) * H;
  const std::vector<float> gx = Dense(w.w_ih, w.b_ih, x, rows, in_width);
  const std::vector<float> gh = Dense(w.w_hh, w.b_hh, h.data(), rows, H);
  for (uint32_t k = 0; k < H; ++k) {
    if (kind == Kind::kGRU) {
      const float r = Sigmoid(gx[k] + gh[k]);
      const float z = Sigmoid(gx[H + k] + gh[H + k]);
      const float n = std::tanh(gx[2 * H + k] + gh[2 * H + k] * r);
      h[k] = n - z * (n - h[k]);
    } else if (kind == Kind::kLSTM) {
      const float i = Sigmoid(gx[k] + gh[k]);
      const float f = Sigmoid(gx[H + k] + gh[H + k]);
      const float g = std::tanh(gx[2 * H + k] + gh[2 * H + k]);
      const float o = Sigmoid(gx[3 * H + k] + gh[3 * H + k]);
      c[k] = f * c[k] + i * g;
      h[k] = std::tanh(c[k]) * o;
    } else {
      const float s = gx[k] + gh[k];
      h[k] = activation == 2 ? (s > 0.0f ? s : 0.0f) : activation == 5 ? std::tanh(s) : s;
    }
  }
}

// A stacked, optionally bidirectional layer with its state [layers * directions][hidden] carried between
// calls. `narrow` is a nonzero complex_rnn_type: higher layers take `hidden` inputs (unidirectional only).
struct Sequence {
  Kind kind = Kind::kGRU;
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
  void Reset() {
    h.assign(layers * Directions(), std::vector<float>(hidden, 0.0f));
    c = h;
  }

  // x: steps x in_size; returns steps x directions*hidden.
  std::vector<float> Run(const std::vector<float>& x, uint32_t steps) {
    if (h.empty()) Reset();
    std::vector<float> seq = x;
    for (uint32_t l = 0; l < layers; ++l) {
      const uint32_t width = InWidth(l);
      const uint32_t out_width = Directions() * hidden;
      std::vector<float> next(static_cast<size_t>(steps) * out_width);
      for (uint32_t d = 0; d < Directions(); ++d) {
        const CellWeights& w = d == 0 ? forward[l] : reverse[l];
        std::vector<float>& state_h = h[l * Directions() + d];
        std::vector<float>& state_c = c[l * Directions() + d];
        for (uint32_t k = 0; k < steps; ++k) {
          const uint32_t t = d == 0 ? k : steps - 1 - k;
          Step(kind, activation, w, &seq[static_cast<size_t>(t) * width], width, state_h, state_c);
          for (uint32_t j = 0; j < hidden; ++j)
            next[static_cast<size_t>(t) * out_width + d * hidden + j] = state_h[j];
        }
      }
      seq = std::move(next);
    }
    return seq;
  }
};

}  // namespace rnn
}  // namespace zvtest
