#include "zelva/src/kernel/family/rnn/cores.h"

#include <xmmintrin.h>

#include <cmath>
#include <cstddef>

#include "zelva/src/kernel/functional/lanes.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

namespace {

void SigmoidInPlace(float* v, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) v[i] = GateSigmoid(v[i]);
}

void TanhInPlace(float* v, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) v[i] = GateTanh(v[i]);
}

void ReLUInPlace(float* v, uint32_t n) {
  uint32_t i = 0;
  const __m128 zero = _mm_setzero_ps();
  for (; i + 4 <= n; i += 4) _mm_storeu_ps(v + i, _mm_max_ps(_mm_loadu_ps(v + i), zero));
  for (; i < n; ++i) v[i] = v[i] > 0.0f ? v[i] : 0.0f;
}

// gx = W_ih x + b_ih and gh = W_hh h + b_hh, each gates x hidden long.
void GateProducts(DenseProduct dense, const StepWeights& w, uint32_t gates, const float* x, const float* h,
                  float* gx, float* gh) {
  const int32_t rows = static_cast<int32_t>(gates * w.hidden);
  dense(x, static_cast<int32_t>(w.in_width), rows, w.weight_ih, w.bias_ih, gx);
  dense(h, static_cast<int32_t>(w.hidden), rows, w.weight_hh, w.bias_hh, gh);
}

void GRUStep(DenseProduct dense, const StepWeights& w, const float* x, const float* h, float* out, float* gx,
             float* gh) {
  const uint32_t H = w.hidden;
  GateProducts(dense, w, 3, x, h, gx, gh);
  float* r = gh;
  float* z = gh + H;
  float* n = gh + 2 * H;
  functional::AddLanes(gx, r, H, r);
  SigmoidInPlace(r, H);
  functional::AddLanes(gx + H, z, H, z);
  SigmoidInPlace(z, H);
  functional::MulLanes(n, r, H, n);
  functional::AddLanes(gx + 2 * H, n, H, n);
  TanhInPlace(n, H);
  functional::SubLanes(n, h, H, out);
  functional::MulLanes(z, out, H, out);
  functional::SubLanes(n, out, H, out);
}

void LSTMStep(DenseProduct dense, const StepWeights& w, const float* x, const float* h, const float* c,
              float* h_out, float* c_out, float* gx, float* gh) {
  const uint32_t H = w.hidden;
  GateProducts(dense, w, 4, x, h, gx, gh);
  functional::AddLanes(gx, gh, 4 * H, gh);
  float* i = gh;
  float* f = gh + H;
  float* g = gh + 2 * H;
  float* o = gh + 3 * H;
  SigmoidInPlace(i, H);
  SigmoidInPlace(f, H);
  TanhInPlace(g, H);
  SigmoidInPlace(o, H);
  functional::MulLanes(f, c, H, f);
  functional::MulLanes(i, g, H, g);
  functional::AddLanes(f, g, H, c_out);
  // h' = tanh(c') o; the new cell stays untouched.
  for (uint32_t k = 0; k < H; ++k) h_out[k] = GateTanh(c_out[k]);
  functional::MulLanes(h_out, o, H, h_out);
}

void RNNStep(DenseProduct dense, const StepWeights& w, uint32_t activation, const float* x, const float* h,
             float* out, float* gx, float* gh) {
  const uint32_t H = w.hidden;
  GateProducts(dense, w, 1, x, h, gx, gh);
  functional::AddLanes(gx, gh, H, out);
  if (activation == kRecurrentReLU) {
    ReLUInPlace(out, H);
  } else if (activation == kRecurrentTanH) {
    TanhInPlace(out, H);
  } else {
    ZV_LOG(utility::kLogError, "Not Implemented.");
  }
}

}  // namespace

float GateSigmoid(float x) {
  return 1.0f / (expf(-x) + 1.0f);
}

float GateTanh(float x) {
  return tanhf(x);
}

void RecurrentStep(RecurrentKind kind, uint32_t activation, DenseProduct dense, const StepWeights& weights,
                   const float* x, const float* const* state, float* const* state_out, float* gx, float* gh) {
  switch (kind) {
    case RecurrentKind::kGRU:
      GRUStep(dense, weights, x, state[0], state_out[0], gx, gh);
      break;
    case RecurrentKind::kLSTM:
      LSTMStep(dense, weights, x, state[0], state[1], state_out[0], state_out[1], gx, gh);
      break;
    case RecurrentKind::kRNN:
      RNNStep(dense, weights, activation, x, state[0], state_out[0], gx, gh);
      break;
  }
}

}  // namespace kernel
}  // namespace zelva
