// The recurrent kernels: sequence kernels that run a whole [T, in_size] tensor through stacked (optionally
// bidirectional) layers and keep their state between Forward calls, and cell kernels that run one step with
// the state passed in. One class template per shape, bound per member to its kind (GRU, LSTM, RNN) and its
// product form (SSE dense core or SGEMM); the members and their aliases stand in members.h. Everything a
// kernel knows lives in its RecurrentState record behind `private_state`; the work is done by the free
// functions below, which share the step cores of recurrent_step.h.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/src/kernel/cpu/sse/rnn/recurrent_step.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

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
void CellForward(RecurrentKind kind, ProductForm form, RecurrentState& state,
                 const runtime::TensorList& inputs, runtime::TensorList& outputs, runtime::Context& context);

// ---- The two kernel shapes. `Member` gives kKind, kForm and kName (see members.h).

template <class Member, bool kSequence>
class RecurrentKernel : public runtime::IKernel {
 public:
  RecurrentKernel() { private_state = new RecurrentState(); }
  ~RecurrentKernel() override { delete State(); }

  std::string GetName() const override { return Member::kName; }
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    return RecurrentCheckSupport(Member::kKind, kSequence, layer_info, inference_param);
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> context) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
    ZV_ASSERT(context != nullptr, "[%s] no context.", Member::kName);
    RecurrentConfig(Member::kKind, kSequence, *layer_info, *context, *State());
    configured = true;
    return true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override {
    return RecurrentOutputShapes(Member::kKind, kSequence, *State(), input_shapes);
  }
  // Sequence kernels zero their state (if made yet) and return 0; cells are stateless.
  int32_t ResetState() override {
    return kSequence ? RecurrentResetState(*State()) : runtime::kKernelNoState;
  }
  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    return RecurrentCheckInputs(Member::kKind, kSequence, *State(), inputs);
  }
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ZV_ASSERT(configured && context != nullptr, "[%s] Forward before Config or without context.",
              Member::kName);
    if (kSequence) {
      SequenceForward(Member::kKind, Member::kForm, *State(), inputs, outputs, *context);
    } else {
      CellForward(Member::kKind, Member::kForm, *State(), inputs, outputs, *context);
    }
  }
  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return RecurrentCheckOutputs(Member::kKind, kSequence, *State(), outputs);
  }

  // The configuration record, for tests and tools.
  const RecurrentState& state() const { return *static_cast<const RecurrentState*>(private_state); }

 private:
  RecurrentState* State() { return static_cast<RecurrentState*>(private_state); }
};

template <class Member>
using RecurrentSequenceKernel = RecurrentKernel<Member, true>;
template <class Member>
using RecurrentCellKernel = RecurrentKernel<Member, false>;

}  // namespace kernel
}  // namespace zelva
