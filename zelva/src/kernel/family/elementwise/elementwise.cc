#include "zelva/src/kernel/family/elementwise/elementwise.h"

#include <cstring>

#include "zelva/src/kernel/functional/lanes.h"

namespace zelva {
namespace kernel {

namespace {

// `dims` with ones in front up to `rank`.
std::vector<uint32_t> PadFront(const std::vector<uint32_t>& dims, size_t rank) {
  std::vector<uint32_t> padded(rank - dims.size(), 1u);
  padded.insert(padded.end(), dims.begin(), dims.end());
  return padded;
}

}  // namespace

// ---- Elementwise_Fallback_Float_M1

void ByNamePolicy::Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                             const std::shared_ptr<runtime::Context>&) {
  state.param = ToParam(std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info));
  static const char* const kNames[] = {"Add", "Sub", "Mul", "Div"};
  state.op = -1;
  for (int32_t code = 0; code < 4; ++code) {
    if (strncmp(state.param.op_name.c_str(), kNames[code], 3) == 0) {
      state.op = code;
      break;
    }
  }
}

void ByNamePolicy::Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                       const std::shared_ptr<runtime::Context>&) {
  ZV_ASSERT(inputs.size() == 2, "[%s] needs two inputs.", kName);
  const runtime::Tensor* a = inputs[0].get();
  const runtime::Tensor* b = inputs[1].get();
  ZV_ASSERT(
      a->shape.data_type == runtime::DataType::FLOAT32 && b->shape.data_type == runtime::DataType::FLOAT32,
      "[%s] needs float tensors.", kName);
  const uint32_t count = static_cast<uint32_t>(outputs[0]->shape.ElementCount());
  ZV_ASSERT(static_cast<uint32_t>(b->shape.ElementCount()) == count, "[%s] %u elements against %d.", kName,
            count, b->shape.ElementCount());
  using LaneOp = void (*)(const float*, const float*, size_t, float*);
  static const LaneOp kOps[] = {functional::AddLanes, functional::SubLanes, functional::MulLanes,
                                functional::DivLanes};
  if (state.op >= 0) kOps[state.op](a->Data<float>(), b->Data<float>(), count, outputs[0]->Data<float>());
}

// ---- BroadcastOperator_Fallback_Float_M1

void BroadcastPolicy::Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                const std::shared_ptr<runtime::Context>&) {
  state.param = ToParam(std::static_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info));
  state.function = &functional::ElementwiseFunctionTable().at(static_cast<uint16_t>(state.param.op_type));
}

std::vector<runtime::TensorShape> BroadcastPolicy::OutputShapes(
    const State&, const std::vector<runtime::TensorShape>& shapes) {
  ZV_ASSERT(shapes.size() == 2, "[%s] needs two input shapes, got %zu.", kName, shapes.size());
  ZV_ASSERT(BroadcastShapesFit(shapes[0].dims, shapes[1].dims), "[%s] the input shapes do not broadcast.",
            kName);
  const size_t rank = std::max(shapes[0].dims.size(), shapes[1].dims.size());
  const std::vector<uint32_t> a = PadFront(shapes[0].dims, rank), b = PadFront(shapes[1].dims, rank);
  runtime::TensorShape out = shapes[0];
  out.dims.resize(rank);
  for (size_t d = 0; d < rank; ++d) out.dims[d] = a[d] == 1 ? b[d] : a[d];
  return {out};
}

void BroadcastPolicy::Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                          const std::shared_ptr<runtime::Context>&) {
  ZV_ASSERT(state.function != nullptr, "[%s] not configured.", kName);
  ZV_ASSERT(CheckInputs(state, inputs) == runtime::kKernelOk,
            "[%s] needs two float tensors whose shapes broadcast.", kName);
  const runtime::Tensor* a = inputs[0].get();
  const runtime::Tensor* b = inputs[1].get();
  BroadcastFallback(*state.function, a->Data<float>(), a->shape.dims, b->Data<float>(), b->shape.dims,
                    outputs[0]->Data<float>(), outputs[0]->shape.dims);
}

}  // namespace kernel
}  // namespace zelva
