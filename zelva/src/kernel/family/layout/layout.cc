#include "zelva/src/kernel/family/layout/layout.h"

#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

// Lanes of a layout: 1 for the planar ones (CHW, C).
uint32_t Lanes(uint32_t layout) {
  return layout == Layout::C4HW4 ? 4u : layout == Layout::C8HW8 ? 8u : 1u;
}
uint32_t Shift(uint32_t lanes) {
  return lanes == 8 ? 3u : lanes == 4 ? 2u : 0u;
}

// The rank of the input layout's dims: [C, H, W] or [B, H, W, lanes].
size_t InputRank(const LayoutRow& row) {
  return row.from == Layout::CHW ? 3u : 4u;
}

}  // namespace

int32_t CheckLayoutSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                           const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return layer_info == nullptr && inference_param == nullptr ? runtime::kKernelOk
                                                             : runtime::kKernelNotSupported;
}

std::vector<runtime::TensorShape> LayoutOutputShapes(const LayoutRow& row,
                                                     const std::vector<runtime::TensorShape>& inputs) {
  std::vector<runtime::TensorShape> shapes;
  shapes.reserve(inputs.size());
  for (const runtime::TensorShape& in : inputs) {
    ZV_ASSERT(in.dims.size() == InputRank(row), "[%s] input of rank %zu, %zu expected.", row.name,
              in.dims.size(), InputRank(row));
    const uint32_t channels = in.dims[0] * Lanes(row.from);
    const uint32_t h = in.dims[1], w = in.dims[2];
    std::vector<uint32_t> dims;
    if (row.to == Layout::C) {
      dims = {channels * h * w};
    } else if (row.to == Layout::CHW) {
      dims = {channels, h, w};
    } else {
      dims = {channels >> Shift(Lanes(row.to)), h, w, Lanes(row.to)};
    }
    shapes.emplace_back(std::move(dims), in.data_type, row.to, in.location, in.extra);
  }
  return shapes;
}

int32_t CheckLayoutTensors(const LayoutRow& row, const runtime::TensorList& tensors, bool outputs) {
  if (tensors.empty()) return runtime::kKernelBadTensor;
  const uint32_t layout = outputs ? row.to : row.from;
  for (const auto& t : tensors) {
    if (!IsMainFloat(t) || t->shape.layout != layout) return runtime::kKernelBadTensor;
    const std::vector<uint32_t>& dims = t->shape.dims;
    if (!outputs && layout == Layout::CHW && (dims.empty() || dims[0] % Lanes(row.to) != 0))
      return runtime::kKernelBadTensor;
    if (outputs && layout == Layout::C && (dims.empty() || dims[0] % 8 != 0))
      return runtime::kKernelBadTensor;
  }
  return runtime::kKernelOk;
}

void AssertLayoutRunnable(const LayoutRow& row, const runtime::TensorList& inputs) {
  for (const auto& t : inputs) {
    ZV_ASSERT(t->shape.data_type == DataType::FLOAT32 && t->shape.dims.size() == InputRank(row),
              "[%s] needs FLOAT32 tensors of rank %zu.", row.name, InputRank(row));
  }
}

void RunLayout(const LayoutRow& row, const runtime::TensorList& inputs, const runtime::TensorList& outputs) {
  for (size_t i = 0; i < inputs.size(); ++i) {
    const runtime::TensorCPU& in = *runtime::TensorCPU::Cast(inputs[i]);
    const runtime::TensorCPU& out = *runtime::TensorCPU::Cast(outputs[i]);
    LayoutArgs args;
    args.pixels = in.shape.dims[1] * in.shape.dims[2];
    // The blocks of the blocked side; between C4HW4 and C8HW8, of the side of eight.
    args.blocks = Lanes(row.from) >= Lanes(row.to) ? in.shape.dims[0] : out.shape.dims[0];
    args.src = in.Data<float>();
    args.src_stride = static_cast<uint32_t>(in.strides[0]);
    args.dst = out.Data<float>();
    args.dst_stride = row.to == Layout::C ? args.pixels : static_cast<uint32_t>(out.strides[0]);
    row.core(args);
  }
}

}  // namespace kernel
}  // namespace zelva
