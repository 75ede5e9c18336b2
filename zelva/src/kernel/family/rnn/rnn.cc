#include "zelva/src/kernel/family/rnn/rnn.h"

#include <cstring>

#include "zelva/src/kernel/functional/gemm.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;
using runtime::Tensor;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

const char* KindName(RecurrentKind kind, bool sequence) {
  switch (kind) {
    case RecurrentKind::kGRU:
      return sequence ? "GRU" : "GRUCell";
    case RecurrentKind::kLSTM:
      return sequence ? "LSTM" : "LSTMCell";
    case RecurrentKind::kRNN:
      break;
  }
  return sequence ? "RNN" : "RNNCell";
}

// The description class of each kind and shape.
bool IsOwnDescription(RecurrentKind kind, bool sequence, const std::shared_ptr<runtime::LayerInfo>& info) {
  runtime::LayerInfo* p = info.get();
  switch (kind) {
    case RecurrentKind::kGRU:
      return sequence ? dynamic_cast<runtime::GRUInfo*>(p) != nullptr
                      : dynamic_cast<runtime::GRUCellInfo*>(p) != nullptr;
    case RecurrentKind::kLSTM:
      return sequence ? dynamic_cast<runtime::LSTMInfo*>(p) != nullptr
                      : dynamic_cast<runtime::LSTMCellInfo*>(p) != nullptr;
    case RecurrentKind::kRNN:
      break;
  }
  return sequence ? dynamic_cast<runtime::RNNInfo*>(p) != nullptr
                  : dynamic_cast<runtime::RNNCellInfo*>(p) != nullptr;
}

// A weight text decoded into a tensor of `dims`; raises when the text holds fewer values than the dims ask.
std::shared_ptr<Tensor> DecodeTensor(runtime::DeviceCPU& device, const std::string& text,
                                     std::vector<uint32_t> dims, const char* what, uint32_t layer,
                                     const std::string& id) {
  size_t count = 1;
  for (const uint32_t d : dims) count *= d;
  const std::vector<float> values = runtime::DecodeWeights(text);
  ZV_ASSERT(values.size() >= count,
            "[recurrent] layer %s: %s of stacked layer %u holds %zu values, %zu needed.", id.c_str(), what,
            layer, values.size(), count);
  std::shared_ptr<Tensor> tensor;
  device.CreateFlexible(tensor, std::move(dims), values.data());
  return tensor;
}

// One list entry, checked to exist.
const std::string& ListEntry(const std::vector<std::string>& list, uint32_t layer, const char* what,
                             const std::string& id) {
  ZV_ASSERT(layer < list.size(), "[recurrent] layer %s: %s has %zu entries, stacked layer %u asked.",
            id.c_str(), what, list.size(), layer);
  return list[layer];
}

RecurrentCellRecord MakeCell(runtime::DeviceCPU& device, bool if_bias, uint32_t rows, uint32_t in_width,
                             uint32_t hidden, const std::string& w_ih, const std::string& w_hh,
                             const std::string* b_ih, const std::string* b_hh, uint32_t layer,
                             const std::string& id) {
  RecurrentCellRecord cell;
  cell.if_bias = if_bias;
  cell.weight_ih = DecodeTensor(device, w_ih, {rows, in_width}, "weight_ih", layer, id);
  cell.weight_hh = DecodeTensor(device, w_hh, {rows, hidden}, "weight_hh", layer, id);
  if (if_bias) {
    cell.bias_ih = DecodeTensor(device, *b_ih, {rows}, "bias_ih", layer, id);
    cell.bias_hh = DecodeTensor(device, *b_hh, {rows}, "bias_hh", layer, id);
  }
  return cell;
}

// Input width of stacked layer `layer`.
uint32_t LayerInWidth(const RecurrentState& s, uint32_t layer) {
  if (layer == 0) return s.in_size;
  return s.complex_rnn_type == 0 ? s.num_directions * s.hidden_size : s.hidden_size;
}

StepWeights WeightsOf(const RecurrentCellRecord& cell, uint32_t in_width, uint32_t hidden) {
  StepWeights w;
  w.weight_ih = cell.weight_ih->Data<float>();
  w.weight_hh = cell.weight_hh->Data<float>();
  w.bias_ih = cell.bias_ih != nullptr ? cell.bias_ih->Data<float>() : nullptr;
  w.bias_hh = cell.bias_hh != nullptr ? cell.bias_hh->Data<float>() : nullptr;
  w.in_width = in_width;
  w.hidden = hidden;
  return w;
}

// The data input: float, main memory, [*, in_size, ...].
bool IsDataInput(const RecurrentState& s, const std::shared_ptr<Tensor>& t) {
  return IsMainFloat(t) && t->shape.dims.size() >= 2 && t->shape.dims[1] == s.in_size;
}

void AssertDataInput(const RecurrentState& s, const runtime::TensorList& inputs, const char* kind) {
  ZV_ASSERT(!inputs.empty() && IsDataInput(s, inputs[0]),
            "[%s] needs a float tensor in main memory whose second dim is in_size %u.", kind, s.in_size);
  const TensorShape& shape = inputs[0]->shape;
  ZV_ASSERT(static_cast<uint32_t>(shape.ElementCount()) == shape.dims[0] * s.in_size,
            "[%s] input holds %d values, not %u steps of %u.", kind, shape.ElementCount(), shape.dims[0],
            s.in_size);
}

}  // namespace

DenseProduct DenseOf(ProductForm form) {
  return form == ProductForm::kSGEMM ? &functional::DenseBySgemm : &functional::DenseForward;
}

int32_t RecurrentCheckSupport(RecurrentKind kind, bool sequence,
                              const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  if (!IsOwnDescription(kind, sequence, layer_info)) return runtime::kKernelNotSupported;
  return runtime::kKernelOk;
}

void RecurrentConfig(RecurrentKind kind, bool sequence, const runtime::LayerInfo& layer_info,
                     runtime::Context& context, RecurrentState& s) {
  runtime::DeviceCPU& device = *context.GetDeviceCPU();
  const uint32_t gates = GateCount(kind);
  s = RecurrentState();
  if (sequence) {
    const auto& info = static_cast<const runtime::RecurrentInfo&>(layer_info);
    s.if_bias = info.if_bias;
    s.bidirectional = info.bidirectional;
    s.in_size = info.in_size;
    s.hidden_size = info.hidden_size;
    s.num_directions = info.bidirectional ? 2 : 1;
    s.num_layers = info.num_layers;
    s.complex_rnn_type = info.complex_rnn_type;
    if (const auto* rnn = dynamic_cast<const runtime::RNNInfo*>(&layer_info))
      s.activation_type = rnn->activation_type;
    ZV_ASSERT(s.num_layers >= 1, "[%s] layer %s has no stacked layers.", KindName(kind, true),
              info.id.c_str());
    const uint32_t rows = gates * s.hidden_size;
    for (uint32_t l = 0; l < s.num_layers; ++l) {
      const uint32_t in_width = LayerInWidth(s, l);
      const std::string* b_ih =
          s.if_bias ? &ListEntry(info.bias_ih_forward, l, "bias_ih_forward", info.id) : nullptr;
      const std::string* b_hh =
          s.if_bias ? &ListEntry(info.bias_hh_forward, l, "bias_hh_forward", info.id) : nullptr;
      s.forward_cells.push_back(MakeCell(device, s.if_bias, rows, in_width, s.hidden_size,
                                         ListEntry(info.weight_ih_forward, l, "weight_ih_forward", info.id),
                                         ListEntry(info.weight_hh_forward, l, "weight_hh_forward", info.id),
                                         b_ih, b_hh, l, info.id));
      if (!s.bidirectional) continue;
      b_ih = s.if_bias ? &ListEntry(info.bias_ih_reverse, l, "bias_ih_reverse", info.id) : nullptr;
      b_hh = s.if_bias ? &ListEntry(info.bias_hh_reverse, l, "bias_hh_reverse", info.id) : nullptr;
      s.reverse_cells.push_back(MakeCell(device, s.if_bias, rows, in_width, s.hidden_size,
                                         ListEntry(info.weight_ih_reverse, l, "weight_ih_reverse", info.id),
                                         ListEntry(info.weight_hh_reverse, l, "weight_hh_reverse", info.id),
                                         b_ih, b_hh, l, info.id));
    }
  } else {
    const auto& info = static_cast<const runtime::RecurrentCellInfo&>(layer_info);
    s.if_bias = info.if_bias;
    s.in_size = info.in_size;
    s.hidden_size = info.hidden_size;
    s.num_layers = 1;
    if (const auto* rnn = dynamic_cast<const runtime::RNNCellInfo*>(&layer_info))
      s.activation_type = rnn->activation_type;
    s.forward_cells.push_back(MakeCell(device, s.if_bias, gates * s.hidden_size, s.in_size, s.hidden_size,
                                       info.weight_ih, info.weight_hh, &info.bias_ih, &info.bias_hh, 0,
                                       info.id));
    device.CreateZeroVector(s.zero_state, s.hidden_size);
  }
  device.CreateZeroVector(s.gx, gates * s.hidden_size);
  device.CreateZeroVector(s.gh, gates * s.hidden_size);
}

namespace {

// The one output of a sequence kernel over `steps` steps: [steps, directions x hidden], SC.
TensorShape SequenceOutputShape(const RecurrentState& s, uint32_t steps) {
  return TensorShape({steps, s.num_directions * s.hidden_size}, DataType::FLOAT32, Layout::SC,
                     Location::MainMemory);
}

}  // namespace

std::vector<TensorShape> RecurrentOutputShapes(RecurrentKind kind, bool sequence, const RecurrentState& s,
                                               const std::vector<TensorShape>& input_shapes) {
  ZV_ASSERT(!input_shapes.empty() && !input_shapes[0].dims.empty(), "[%s] no input shape.",
            KindName(kind, sequence));
  if (sequence) return {SequenceOutputShape(s, input_shapes[0].dims[0])};
  return std::vector<TensorShape>(
      StateCount(kind), TensorShape({1, s.hidden_size}, DataType::FLOAT32, Layout::SC, Location::MainMemory));
}

int32_t RecurrentCheckInputs(RecurrentKind kind, bool sequence, const RecurrentState& s,
                             const runtime::TensorList& inputs) {
  const size_t most = sequence ? 1 : 1 + StateCount(kind);
  if (inputs.empty() || inputs.size() > most || !IsDataInput(s, inputs[0])) return runtime::kKernelBadTensor;
  // A cell takes one step: x is exactly in_size floats.
  if (!sequence && static_cast<uint32_t>(inputs[0]->shape.ElementCount()) != s.in_size)
    return runtime::kKernelBadTensor;
  for (size_t k = 1; k < inputs.size(); ++k) {
    if (!IsMainFloat(inputs[k]) || static_cast<uint32_t>(inputs[k]->shape.ElementCount()) != s.hidden_size)
      return runtime::kKernelBadTensor;
  }
  return runtime::kKernelOk;
}

int32_t RecurrentCheckOutputs(RecurrentKind kind, bool sequence, const RecurrentState& s,
                              const runtime::TensorList& outputs) {
  const size_t count = sequence ? 1 : StateCount(kind);
  if (outputs.size() != count) return runtime::kKernelBadTensor;
  for (const auto& t : outputs) {
    if (!IsMainFloat(t) || t->shape.layout != Layout::SC || t->shape.dims.size() < 2 ||
        t->shape.dims[1] != s.num_directions * s.hidden_size)
      return runtime::kKernelBadTensor;
  }
  return runtime::kKernelOk;
}

int32_t RecurrentResetState(RecurrentState& s) {
  for (const auto* t : {&s.hidden, &s.cell}) {
    if (*t != nullptr) std::memset((*t)->data, 0, static_cast<size_t>((*t)->shape.ByteSize()));
  }
  return runtime::kKernelOk;
}

void SequenceForward(RecurrentKind kind, ProductForm form, RecurrentState& s,
                     const runtime::TensorList& inputs, runtime::TensorList& outputs,
                     runtime::Context& context) {
  AssertDataInput(s, inputs, KindName(kind, true));
  runtime::DeviceCPU& device = *context.GetDeviceCPU();
  const uint32_t H = s.hidden_size;
  const uint32_t L = s.num_layers;
  const uint32_t D = s.num_directions;
  const bool lstm = kind == RecurrentKind::kLSTM;
  if (s.hidden == nullptr) {
    device.CreateZeroFlexible(s.hidden, {L * D, H});
    if (lstm) device.CreateZeroFlexible(s.cell, {L * D, H});
  }
  if (s.bidirectional && s.complex_rnn_type != 0) {
    ZV_LOG(utility::kLogError, "Not Implemented.");
    outputs.clear();
    return;
  }

  const TensorCPU* input = TensorCPU::Cast(inputs[0]);
  const uint32_t T = input->shape.dims[0];
  std::shared_ptr<Tensor> output;
  device.CreateTensor(output, SequenceOutputShape(s, T));
  float* y = output->Data<float>();
  const float* x = input->Data<float>();

  const DenseProduct dense = DenseOf(form);
  float* gx = s.gx->Data<float>();
  float* gh = s.gh->Data<float>();
  float* hidden = s.hidden->Data<float>();
  float* cell = lstm ? s.cell->Data<float>() : nullptr;
  // Runs one step of the cell whose state is row `row` of hidden (and cell), updating the row in place.
  auto step = [&](const RecurrentCellRecord& record, uint32_t layer, uint32_t row, const float* in) {
    float* state[2] = {hidden + static_cast<size_t>(row) * H,
                       lstm ? cell + static_cast<size_t>(row) * H : nullptr};
    RecurrentStep(kind, s.activation_type, dense, WeightsOf(record, LayerInWidth(s, layer), H), in, state,
                  state, gx, gh);
    return state[0];
  };
  const size_t h_bytes = sizeof(float) * H;

  if (!s.bidirectional) {
    // Time outermost: every layer advances one step, the last layer's new hidden is the step's output.
    for (uint32_t t = 0; t < T; ++t) {
      const float* in = x + static_cast<size_t>(t) * s.in_size;
      for (uint32_t l = 0; l < L; ++l) in = step(s.forward_cells[l], l, l, in);
      std::memcpy(y + static_cast<size_t>(t) * H, in, h_bytes);
    }
  } else {
    // Layer outermost: both directions run over the whole sequence; step t of the next layer sees the
    // forward result of t and the reverse result of the mirrored step (the one that read input t).
    std::shared_ptr<Tensor> between[2];
    const float* src = x;
    uint32_t src_width = s.in_size;
    const size_t row = 2 * static_cast<size_t>(H);
    for (uint32_t l = 0; l < L; ++l) {
      float* dst = y;
      if (l + 1 < L) {
        std::shared_ptr<Tensor>& buffer = between[l % 2];
        if (buffer == nullptr)
          device.CreateTensor(buffer, TensorShape({T, 2 * H}, DataType::FLOAT32, Layout::SC));
        dst = buffer->Data<float>();
      }
      for (uint32_t t = 0; t < T; ++t) {
        const float* h = step(s.forward_cells[l], l, 2 * l, src + static_cast<size_t>(t) * src_width);
        std::memcpy(dst + t * row, h, h_bytes);
      }
      for (uint32_t k = 0; k < T; ++k) {
        const uint32_t t = T - 1 - k;
        const float* h = step(s.reverse_cells[l], l, 2 * l + 1, src + static_cast<size_t>(t) * src_width);
        std::memcpy(dst + t * row + H, h, h_bytes);
      }
      src = dst;
      src_width = 2 * H;
    }
  }
  outputs.clear();
  outputs.push_back(std::move(output));
}

void CellPrecheck(RecurrentKind kind, const RecurrentState& s, const runtime::TensorList& inputs) {
  const char* name = KindName(kind, false);
  AssertDataInput(s, inputs, name);
  ZV_ASSERT(inputs[0]->shape.dims[0] == 1, "[%s] one step at a time, %u given.", name,
            inputs[0]->shape.dims[0]);
  const uint32_t states = StateCount(kind);
  ZV_ASSERT(inputs.size() <= 1 + states, "[%s] %zu inputs, at most %u.", name, inputs.size(), 1 + states);
  for (uint32_t k = 0; k < states && 1 + k < inputs.size(); ++k) {
    ZV_ASSERT(IsMainFloat(inputs[1 + k]) &&
                  static_cast<uint32_t>(inputs[1 + k]->shape.ElementCount()) == s.hidden_size,
              "[%s] state input %u is not %u floats in main memory.", name, k, s.hidden_size);
  }
}

void CellRun(RecurrentKind kind, ProductForm form, RecurrentState& s, const runtime::TensorList& inputs,
             const runtime::TensorList& outputs) {
  const uint32_t states = StateCount(kind);
  // A missing state starts from zero.
  const float* state[2] = {nullptr, nullptr};
  float* state_out[2] = {nullptr, nullptr};
  for (uint32_t k = 0; k < states; ++k) {
    state[k] = inputs.size() > 1 + k ? inputs[1 + k]->Data<float>() : s.zero_state->Data<float>();
    state_out[k] = outputs[k]->Data<float>();
  }
  RecurrentStep(kind, s.activation_type, DenseOf(form),
                WeightsOf(s.forward_cells[0], s.in_size, s.hidden_size), inputs[0]->Data<float>(), state,
                state_out, s.gx->Data<float>(), s.gh->Data<float>());
}

}  // namespace kernel
}  // namespace zelva
