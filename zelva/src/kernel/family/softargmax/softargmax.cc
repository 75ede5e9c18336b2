#include "zelva/src/kernel/family/softargmax/softargmax.h"

#include <cmath>

#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

using runtime::Layout;

namespace {

bool PlanarFloat(const runtime::TensorList& t) {
  return CheckFloatTensors(t) == runtime::kKernelOk && t[0]->shape.layout == Layout::CHW &&
         t[0]->shape.dims.size() == 3;
}

}  // namespace

int32_t CheckSoftArgMaxSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                               const std::shared_ptr<runtime::InferenceParam>& param) {
  return SupportFor<runtime::SoftArgMaxInfo>(info, param, [](const runtime::SoftArgMaxInfo& i) {
    if (!std::isfinite(i.beta)) return runtime::kKernelNotSupported;
    if (!i.size.empty() && (i.size.size() != 2 || i.size[0] == 0 || i.size[1] == 0))
      return runtime::kKernelNotSupported;
    return runtime::kKernelOk;
  });
}

void ConfigSoftArgMax(SoftArgMaxState* state, const std::shared_ptr<runtime::LayerInfo>& info) {
  state->param = ToParam(std::static_pointer_cast<runtime::SoftArgMaxInfo>(info));
  state->configured = true;
}

runtime::TensorShape SoftArgMaxOutputShape(const SoftArgMaxRow& row, const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 3 && input.layout == Layout::CHW, "[%s] wants a planar CHW input.",
            row.name);
  return runtime::TensorShape({input.dims[0], 2}, input.data_type, Layout::FLEXIABLE, input.location,
                              input.extra);
}

int32_t CheckSoftArgMaxInputs(const runtime::TensorList& inputs) {
  return PlanarFloat(inputs) ? runtime::kKernelOk : runtime::kKernelBadTensor;
}

int32_t CheckSoftArgMaxOutputs(const runtime::TensorList& outputs) {
  return CheckFloatTensors(outputs) == runtime::kKernelOk && outputs[0]->shape.dims.size() == 2 &&
                 outputs[0]->shape.dims[1] == 2
             ? runtime::kKernelOk
             : runtime::kKernelBadTensor;
}

void AssertSoftArgMaxRunnable(const SoftArgMaxRow& row, const SoftArgMaxState& state,
                              const runtime::TensorList& inputs) {
  ZV_ASSERT(state.configured, "[%s] not configured.", row.name);
  ZV_ASSERT(inputs.size() == 1 && PlanarFloat(inputs),
            "[%s] wants one FLOAT32 CHW tensor of rank 3 in main memory.", row.name);
  const auto& d = inputs[0]->shape.dims;
  ZV_ASSERT(d[1] != 0 && d[2] != 0, "[%s] an empty map of %u x %u.", row.name, d[1], d[2]);
}

void RunSoftArgMax(const SoftArgMaxRow& row, const SoftArgMaxState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs) {
  const auto& d = inputs[0]->shape.dims;
  const auto& size = state.param.size;
  SoftArgMaxArgs a{};
  a.input = inputs[0]->Data<float>();
  a.channels = d[0];
  a.height = d[1];
  a.width = d[2];
  a.beta = state.param.beta;
  a.size_x = size.empty() ? 1.0f : static_cast<float>(size[0]);
  a.width_x = size.empty() ? 1.0f : static_cast<float>(d[2]);
  a.size_y = size.empty() ? 1.0f : static_cast<float>(size[1]);
  a.height_y = size.empty() ? 1.0f : static_cast<float>(d[1]);
  a.output = outputs[0]->Data<float>();
  row.core(a);
}

}  // namespace kernel
}  // namespace zelva
