#include "zelva/src/kernel/family/rnn/reference.h"

#include <cmath>
#include <cstddef>

namespace zelva {
namespace kernel {
namespace recurrent_reference {

namespace {

uint32_t Gates(RecurrentKind kind) {
  return kind == RecurrentKind::kGRU ? 3 : kind == RecurrentKind::kLSTM ? 4 : 1;
}

float Sigmoid(float v) {
  return 1.0f / (expf(-v) + 1.0f);
}

}  // namespace

std::vector<float> Dense(const std::vector<float>& w, const std::vector<float>& b, const float* x,
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

void Step(RecurrentKind kind, uint32_t activation, const CellWeights& w, const float* x, uint32_t in_width,
          std::vector<float>& h, std::vector<float>& c) {
  const uint32_t H = static_cast<uint32_t>(h.size());
  const uint32_t rows = Gates(kind) * H;
  const std::vector<float> gx = Dense(w.w_ih, w.b_ih, x, rows, in_width);
  const std::vector<float> gh = Dense(w.w_hh, w.b_hh, h.data(), rows, H);
  for (uint32_t k = 0; k < H; ++k) {
    if (kind == RecurrentKind::kGRU) {
      const float r = Sigmoid(gx[k] + gh[k]);
      const float z = Sigmoid(gx[H + k] + gh[H + k]);
      const float n = tanhf(gx[2 * H + k] + gh[2 * H + k] * r);
      h[k] = n - z * (n - h[k]);
    } else if (kind == RecurrentKind::kLSTM) {
      const float i = Sigmoid(gx[k] + gh[k]);
      const float f = Sigmoid(gx[H + k] + gh[H + k]);
      const float g = tanhf(gx[2 * H + k] + gh[2 * H + k]);
      const float o = Sigmoid(gx[3 * H + k] + gh[3 * H + k]);
      c[k] = f * c[k] + i * g;
      h[k] = tanhf(c[k]) * o;
    } else {
      const float s = gx[k] + gh[k];
      h[k] = activation == 2 ? (s > 0.0f ? s : 0.0f) : activation == 5 ? tanhf(s) : s;
    }
  }
}

void Sequence::Reset() {
  h.assign(layers * Directions(), std::vector<float>(hidden, 0.0f));
  c = h;
}

std::vector<float> Sequence::Run(const std::vector<float>& x, uint32_t steps) {
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

}  // namespace recurrent_reference
}  // namespace kernel
}  // namespace zelva
