// The support test shared by the layout converters and the input kernel: a converter is configured with
// neither a description nor parameters, so it accepts exactly that case.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {
namespace functional {

// 0 when both pointers are null, -1 otherwise.
inline int32_t CheckConverterSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                                     const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  return (layer_info == nullptr && inference_param == nullptr) ? runtime::kKernelOk
                                                               : runtime::kKernelNotSupported;
}

}  // namespace functional
}  // namespace kernel
}  // namespace zelva
