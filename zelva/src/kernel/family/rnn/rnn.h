// The recurrent family's policy: sequence kernels that run a whole [T, in_size] tensor through stacked
// (optionally bidirectional) layers and keep their state between Forward calls, and cell kernels that run one
// step with the state passed in. Every member is Kernel<RecurrentPolicy<Row>> over its row of the member list
// (members.h), which fixes its shape, its kind (GRU, LSTM, RNN) and its product form (SSE dense core or
// SGEMM). Everything a kernel knows lives in its RecurrentState record behind `private_state`; the work is
// done by the free functions below, which share the step core of cores.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/src/kernel/family/rnn/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/frame/member.h"

namespace zelva {
namespace kernel {

enum class RecurrentShape {
  kSequence,  // [T, in_size] through all layers, state kept between calls
  kCell,      // one step, state given as further inputs
};

enum class ProductForm {
  kSSE,    // functional::DenseForward
  kSGEMM,  // functional::DenseBySgemm
};

// One layer of one direction. Tensors in file order, never repacked; the biases stay null without if_bias.
struct RecurrentCellRecord {
  bool if_bias = false;
  std::shared_ptr<runtime::Tensor> weight_ih;  // [gates x hidden, in width]
  std::shared_ptr<runtime::Tensor> weight_hh;  // [gates x hidden, hidden]
  std::shared_ptr<runtime::Tensor> bias_ih;    // [gates x hidden]
  std::shared_ptr<runtime::Tensor> bias_hh;    // [gates x hidden]
};

// The whole configuration of a recurrent kernel. A cell kernel fills it as one unidirectional layer and never
// makes `hidden`.
struct RecurrentState {
  bool if_bias = false;
  bool bidirectional = false;
  uint32_t in_size = 0;
  uint32_t hidden_size = 0;
  uint32_t num_directions = 1;
  uint32_t num_layers = 0;
  uint32_t complex_rnn_type = 0;
  std::vector<RecurrentCellRecord> forward_cells;  // one per layer
  std::vector<RecurrentCellRecord> reverse_cells;  // one per layer when bidirectional
  // [num_layers x num_directions, hidden_size]: per layer its forward row, then its reverse row. Made zero by
  // the first Forward, kept across calls, zeroed by ResetState.
  std::shared_ptr<runtime::Tensor> hidden;
  // The LSTM's cell state, shaped and kept like `hidden`.
  std::shared_ptr<runtime::Tensor> cell;
  // RNN only: 2 ReLU, 5 tanh.
  uint32_t activation_type = 0;
  // Step scratch (gates x hidden each) and, for cells, a zero state for a missing state input; made once.
  std::shared_ptr<runtime::Tensor> gx;
  std::shared_ptr<runtime::Tensor> gh;
  std::shared_ptr<runtime::Tensor> zero_state;
};

// ---- The work, shared by every member.

DenseProduct DenseOf(ProductForm form);

int32_t RecurrentCheckSupport(RecurrentKind kind, bool sequence,
                              const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param);
// Fills `state` from the description (already accepted by RecurrentCheckSupport) and decodes the weights of
// every layer: forward weight_ih, weight_hh, then the biases, then the same from the reverse lists. Raises
// when a list or a weight text is shorter than the sizes ask.
void RecurrentConfig(RecurrentKind kind, bool sequence, const runtime::LayerInfo& layer_info,
                     runtime::Context& context, RecurrentState& state);
// Sequence: [T, num_directions x hidden_size]; cell: [1, hidden_size] once per output (h, and c for the
// LSTM). Layout SC.
std::vector<runtime::TensorShape> RecurrentOutputShapes(
    RecurrentKind kind, bool sequence, const RecurrentState& state,
    const std::vector<runtime::TensorShape>& input_shapes);
int32_t RecurrentCheckInputs(RecurrentKind kind, bool sequence, const RecurrentState& state,
                             const runtime::TensorList& inputs);
int32_t RecurrentCheckOutputs(RecurrentKind kind, bool sequence, const RecurrentState& state,
                              const runtime::TensorList& outputs);
int32_t RecurrentResetState(RecurrentState& state);
void SequenceForward(RecurrentKind kind, ProductForm form, RecurrentState& state,
                     const runtime::TensorList& inputs, runtime::TensorList& outputs,
                     runtime::Context& context);
// A cell's Forward, split around the frame's output allocation: the input assertions, then the step into the
// StateCount(kind) outputs made from RecurrentOutputShapes.
void CellPrecheck(RecurrentKind kind, const RecurrentState& state, const runtime::TensorList& inputs);
void CellRun(RecurrentKind kind, ProductForm form, RecurrentState& state, const runtime::TensorList& inputs,
             const runtime::TensorList& outputs);

// ---- The policy. `Row` gives kName, kShape, kKind and kForm (see members.h).

template <class Row>
struct RecurrentPolicy : FramePolicy {
  static constexpr const char* kName = Row::kName;
  static constexpr bool kSequence = Row::kShape == RecurrentShape::kSequence;
  static constexpr RecurrentKind kKind = Row::kKind;
  // The sequence kernel makes its state before its output and, in the one case it does not implement, no
  // output at all: it allocates itself. A cell's outputs are always its StateCount(kind) state vectors.
  static constexpr bool kAllocates = !kSequence;
  static constexpr bool kStateIsPrivate = true;
  using State = RecurrentState;

  // Config refuses only an explicit -1.
  static bool Accepts(int32_t support) { return support != runtime::kKernelNotSupported; }
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return RecurrentCheckSupport(kKind, kSequence, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    ZV_ASSERT(context != nullptr, "[%s] no context.", kName);
    RecurrentConfig(kKind, kSequence, *layer_info, *context, state);
  }
  static std::vector<runtime::TensorShape> OutputShapes(const State& state,
                                                        const std::vector<runtime::TensorShape>& inputs) {
    return RecurrentOutputShapes(kKind, kSequence, state, inputs);
  }
  static int32_t CheckInputs(const State& state, const runtime::TensorList& inputs) {
    return RecurrentCheckInputs(kKind, kSequence, state, inputs);
  }
  static int32_t CheckOutputs(const State& state, const runtime::TensorList& outputs) {
    return RecurrentCheckOutputs(kKind, kSequence, state, outputs);
  }
  // Sequence kernels zero their state (if made yet) and return 0; cells are stateless.
  static int32_t Reset(State& state) {
    return kSequence ? RecurrentResetState(state) : runtime::kKernelNoState;
  }
  static void Precheck(const State& state, bool configured, const runtime::TensorList& inputs,
                       const runtime::Context* context) {
    ZV_ASSERT(configured && context != nullptr, "[%s] Forward before Config or without context.", kName);
    if (!kSequence) CellPrecheck(kKind, state, inputs);
  }
  static void Forward(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                      const std::shared_ptr<runtime::Context>& context) {
    SequenceForward(kKind, Row::kForm, state, inputs, outputs, *context);
  }
  static void Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& /*context*/) {
    CellRun(kKind, Row::kForm, state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva
