// The input family: the kernel of Input layers, which hands the tensor the caller fed in on to the layers
// behind it (the outputs are the inputs themselves: no copy, so no core and no reference beyond identity).
// One row per registration, X(group, isa, ClassName, accuracy): the kernel stands in two groups; the second
// registration of its name is a no-op.
//
// Its support test is the converters' one (0 when description and parameters are both null, -1 otherwise),
// and Config reads it the other way round: 0 (nothing to describe the input) refuses, anything else accepts.
// So this kernel needs a description, where a converter needs none.
#pragma once

#include <memory>

#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/functional/converter_support.h"

namespace zelva {
namespace kernel {

struct InputPolicy : FramePolicy {
  static constexpr const char* kName = "Input_Fallback_M1";
  static constexpr bool kAllocates = false;
  using State = NoState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return functional::CheckConverterSupport(layer_info, inference_param);
  }
  static bool Accepts(int32_t support) { return support != runtime::kKernelOk; }
  static void Configure(State&, const std::shared_ptr<runtime::LayerInfo>&,
                        const std::shared_ptr<runtime::Context>&) {}
  static void Forward(State&, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                      const std::shared_ptr<runtime::Context>&) {
    outputs = inputs;
  }
};

}  // namespace kernel
}  // namespace zelva

// clang-format off
#define ZV_INPUT_MEMBERS(X)                               \
  X(kBase, kScalar, Input_Fallback_M1, kBitExact)         \
  X(kFallback, kScalar, Input_Fallback_M1, kBitExact)
// clang-format on

namespace zelva {
namespace kernel {
using Input_Fallback_M1 = Kernel<InputPolicy>;
}  // namespace kernel
}  // namespace zelva
