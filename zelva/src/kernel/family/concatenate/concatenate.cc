#include "zelva/src/kernel/family/concatenate/concatenate.h"

#include <cstring>

namespace zelva {
namespace kernel {

using runtime::Layout;
using runtime::Location;

int32_t CheckConcatenateSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return SupportFor<runtime::ConcatenateInfo>(
      layer_info, inference_param, [](const runtime::ConcatenateInfo& info) {
        return info.dim == 1 ? runtime::kKernelOk : runtime::kKernelNotSupported;
      });
}

std::vector<runtime::TensorShape> ConcatenateOutputShapes(const char* name,
                                                          const std::vector<runtime::TensorShape>& inputs) {
  ZV_ASSERT(!inputs.empty() && !inputs[0].dims.empty(), "[%s] no input shape.", name);
  runtime::TensorShape out = inputs[0];
  uint32_t leading = 0;
  for (const runtime::TensorShape& s : inputs) {
    ZV_ASSERT(!s.dims.empty(), "[%s] an input shape without dims.", name);
    leading += s.dims[0];
  }
  out.dims[0] = leading;
  return {out};
}

int32_t CheckConcatenateInputs(const runtime::TensorList& inputs) {
  if (inputs.empty() || inputs[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& first = inputs[0]->shape;
  if (first.location != Location::MainMemory || first.layout > Layout::C8HW8 || first.layout == 1)
    return runtime::kKernelBadTensor;
  for (size_t i = 1; i < inputs.size(); ++i) {
    if (inputs[i] == nullptr) return runtime::kKernelBadTensor;
    const runtime::TensorShape& s = inputs[i]->shape;
    if (s.data_type != first.data_type || s.layout != first.layout || s.location != first.location ||
        s.extra.step_size != first.extra.step_size)
      return runtime::kKernelBadTensor;
  }
  return runtime::kKernelOk;
}

int32_t CheckConcatenateOutputs(const runtime::TensorList& outputs) {
  if (outputs.size() != 1 || outputs[0] == nullptr || outputs[0]->shape.location != Location::MainMemory)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertConcatenateRunnable(const char* name, const runtime::TensorList& inputs) {
  const runtime::TensorShape& first = inputs[0]->shape;
  for (const auto& t : inputs) {
    const runtime::TensorShape& s = t->shape;
    bool same =
        s.dims.size() == first.dims.size() && s.data_type == first.data_type && s.layout == first.layout;
    for (size_t d = 1; same && d < s.dims.size(); ++d) same = s.dims[d] == first.dims[d];
    ZV_ASSERT(same, "[%s] inputs differ in data type, layout or a dim other than the first.", name);
  }
}

void RunConcatenate(const runtime::TensorList& inputs, const runtime::TensorList& outputs) {
  uint8_t* dst = outputs[0]->Data<uint8_t>();
  for (const auto& t : inputs) {
    const size_t bytes = static_cast<uint32_t>(t->shape.ByteSize());
    std::memcpy(dst, t->Data<uint8_t>(), bytes);
    dst += bytes;
  }
}

}  // namespace kernel
}  // namespace zelva
