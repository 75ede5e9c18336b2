// The activation family: one pointwise function of a tensor's elements, whatever its layout. Every member is
// Kernel<ActivationPolicy<Row>>, where the row of members.h gives the name, the activation code it runs, its
// core and whether it writes in place. No vector code here: the cores (cores.h) are compiled in their
// instruction-set folders with their own flags.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/activation/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"

namespace zelva {
namespace kernel {

// The codes of `activation_type`.
enum ActivationCode : uint32_t {
  kActLinear = 0,
  kActSigmoid = 1,
  kActReLU = 2,
  kActReLU6 = 3,
  kActLeaky = 4,
  kActTanH = 5,
  kActPReLU = 6,
  kActHSigmoid = 7,
  kActHSwish = 8,
  kActSiLU = 9,
};

// Whether a member makes a new output tensor or writes over its input and hands it on.
enum ActivationPlacement : uint32_t { kOutOfPlace = 0, kInplace = 1 };

// Row: static kName, kCode, kPlacement and Run(x, n, y, alpha, beta).
template <class Row>
struct ActivationPolicy : FramePolicy {
  static constexpr const char* kName = Row::kName;
  static constexpr bool kAllocates = Row::kPlacement == kOutOfPlace;
  struct State {
    ActivationParam param;
  };

  // 0 for an ActivationInfo of this member's code and no InferenceParam, -1 otherwise.
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::ActivationInfo>(
        layer_info, inference_param, [](const runtime::ActivationInfo& i) {
          return i.activation_type == Row::kCode ? runtime::kKernelOk : runtime::kKernelNotSupported;
        });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& /*context*/) {
    state.param = ToParam(std::static_pointer_cast<runtime::ActivationInfo>(layer_info));
  }
  // One FLOAT32 tensor in main memory, any layout, on both sides.
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckFloatTensors(inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckFloatTensors(outputs);
  }

  // Out of place: the frame made the output, of the input's shape.
  static void Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& /*context*/) {
    Apply(state, inputs[0].get(), outputs[0]->Data<float>());
  }
  // In place: the input is the output.
  static void Forward(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                      const std::shared_ptr<runtime::Context>& /*context*/) {
    ZV_ASSERT(!inputs.empty() && inputs[0] != nullptr, "[%s] no input tensor.", kName);
    Apply(state, inputs[0].get(), inputs[0]->Data<float>());
    std::shared_ptr<runtime::Tensor> same = inputs[0];
    outputs.clear();
    outputs.push_back(std::move(same));
  }

 private:
  static void Apply(const State& state, runtime::Tensor* input, float* y) {
    ZV_ASSERT(input->shape.data_type == runtime::DataType::FLOAT32, "[%s] needs a float tensor.", kName);
    const uint32_t count = static_cast<uint32_t>(input->shape.ElementCount());
    Row::Run(input->Data<float>(), count, y, state.param.activation_alpha, state.param.activation_beta);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the class of one member row X(group, isa, cls, accuracy, code, core, placement).
#define ZV_DECLARE_ACTIVATION_MEMBER(group, isa, cls, accuracy, code, core, placement) \
  namespace zelva {                                                                    \
  namespace kernel {                                                                   \
  struct cls##_Row {                                                                   \
    static constexpr const char* kName = #cls;                                         \
    static constexpr uint32_t kCode = code;                                            \
    static constexpr ActivationPlacement kPlacement = placement;                       \
    static void Run(const float* x, uint32_t n, float* y, float alpha, float beta) {   \
      core(x, n, y, alpha, beta);                                                      \
    }                                                                                  \
  };                                                                                   \
  using cls = Kernel<ActivationPolicy<cls##_Row>>;                                     \
  }                                                                                    \
  }
