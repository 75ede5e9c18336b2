#include "zelva/src/kernel/family/expand/expand.h"

#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

using runtime::Layout;

namespace {

uint32_t Lanes(uint32_t layout) {
  return layout == Layout::C4HW4 ? 4u : layout == Layout::C8HW8 ? 8u : 1u;
}

// The logical [C, H, W] of a shape in `layout`; false when its rank or lanes are not the layout's.
bool Logical(uint32_t layout, const runtime::TensorShape& s, uint32_t chw[3]) {
  const uint32_t lanes = Lanes(layout);
  if (s.dims.size() != (lanes == 1 ? 3u : 4u) || (lanes != 1 && s.dims[3] != lanes)) return false;
  chw[0] = s.dims[0] * lanes;
  chw[1] = s.dims[1];
  chw[2] = s.dims[2];
  return true;
}

// The expanded [C, H, W] of `in` by new_shape; 0 and the failing axis in `bad` when it cannot expand.
bool Expanded(uint32_t layout, const TensorExpandParam& p, const uint32_t in[3], uint32_t out[3], int* bad) {
  for (int k = 0; k < 3; ++k) {
    const int32_t e = p.new_shape[k + 1];
    out[k] = e == -1 ? in[k] : static_cast<uint32_t>(e);
    const bool repeats = in[k] == 1 && !(k == 0 && Lanes(layout) != 1);
    if (out[k] != in[k] && !repeats) {
      *bad = k;
      return false;
    }
  }
  return true;
}

}  // namespace

int32_t CheckExpandSupport(const ExpandRow&, const std::shared_ptr<runtime::LayerInfo>& info,
                           const std::shared_ptr<runtime::InferenceParam>& param) {
  return SupportFor<runtime::TensorExpandInfo>(info, param, [](const runtime::TensorExpandInfo& i) {
    const std::vector<int16_t>& s = i.new_shape;
    if (s.size() != 4 || (s[0] != 1 && s[0] != -1)) return runtime::kKernelNotSupported;
    for (size_t k = 1; k < 4; ++k) {
      if (s[k] != -1 && s[k] < 1) return runtime::kKernelNotSupported;
    }
    return runtime::kKernelOk;
  });
}

void ConfigExpand(ExpandState* state, const std::shared_ptr<runtime::LayerInfo>& info) {
  state->param = ToParam(std::static_pointer_cast<runtime::TensorExpandInfo>(info));
  state->configured = true;
}

runtime::TensorShape ExpandOutputShape(const ExpandRow& row, const ExpandState& state,
                                       const runtime::TensorShape& input) {
  ZV_ASSERT(state.configured, "[%s] not configured.", row.name);
  uint32_t in[3] = {0, 0, 0}, out[3] = {0, 0, 0};
  int bad = 0;
  ZV_ASSERT(Logical(row.layout, input, in), "[%s] input of rank %zu is not of the kernel's layout.", row.name,
            input.dims.size());
  static const char* const kAxis[3] = {"channels", "height", "width"};
  ZV_ASSERT(Expanded(row.layout, state.param, in, out, &bad), "[%s] cannot expand %s %u to %u.", row.name,
            kAxis[bad], in[bad], out[bad]);
  const uint32_t lanes = Lanes(row.layout);
  std::vector<uint32_t> dims = lanes == 1 ? std::vector<uint32_t>{out[0], out[1], out[2]}
                                          : std::vector<uint32_t>{out[0] / lanes, out[1], out[2], lanes};
  return runtime::TensorShape(std::move(dims), input.data_type, row.layout, input.location, input.extra);
}

int32_t CheckExpandInputs(const ExpandRow& row, const ExpandState& state, const runtime::TensorList& inputs) {
  if (CheckFloatTensors(inputs) != runtime::kKernelOk || inputs[0]->shape.layout != row.layout)
    return runtime::kKernelBadTensor;
  uint32_t in[3], out[3];
  int bad = 0;
  if (!Logical(row.layout, inputs[0]->shape, in)) return runtime::kKernelBadTensor;
  if (state.configured && !Expanded(row.layout, state.param, in, out, &bad)) return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckExpandOutputs(const ExpandRow& row, const runtime::TensorList& outputs) {
  uint32_t chw[3];
  return CheckFloatTensors(outputs) == runtime::kKernelOk && outputs[0]->shape.layout == row.layout &&
                 Logical(row.layout, outputs[0]->shape, chw)
             ? runtime::kKernelOk
             : runtime::kKernelBadTensor;
}

void AssertExpandRunnable(const ExpandRow& row, const ExpandState& state, const runtime::TensorList& inputs) {
  ZV_ASSERT(state.configured, "[%s] not configured.", row.name);
  ZV_ASSERT(inputs.size() == 1 && IsMainFloat(inputs[0]) && inputs[0]->shape.layout == row.layout,
            "[%s] wants one FLOAT32 tensor in main memory in its layout.", row.name);
}

void RunExpand(const ExpandRow& row, const runtime::TensorList& inputs, const runtime::TensorList& outputs) {
  const uint32_t lanes = Lanes(row.layout);
  const auto& i = inputs[0]->shape.dims;
  const auto& o = outputs[0]->shape.dims;
  row.core(ExpandArgs{inputs[0]->Data<float>(), i[0], i[1], i[2], outputs[0]->Data<float>(), o[0], o[1], o[2],
                      lanes});
}

}  // namespace kernel
}  // namespace zelva
