// The activation kernels: one class per registered name, all instances of ActivationKernel<Member>, where a
// member record gives the name, the activation code it runs, its core and whether it writes in place. The
// member lists (sse/activation/members.h, avx/activation/members.h) declare the classes with
// ZV_DECLARE_ACTIVATION_MEMBER. No vector code here: the cores are declared elsewhere and compiled with their
// own flags.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/cpu/sse/activation/activation_core.h"
#include "zelva/src/runtime/kernel.h"

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

// Whether a member makes a new output tensor or writes over its input.
enum ActivationPlacement : uint32_t { kOutOfPlace = 0, kInplace = 1 };

namespace activation_detail {
// One FLOAT32 tensor in main memory, any layout.
inline int32_t CheckOneFloatTensor(const runtime::TensorList& tensors) {
  if (tensors.size() != 1 || tensors[0] == nullptr) return runtime::kKernelBadTensor;
  const runtime::TensorShape& shape = tensors[0]->shape;
  if (shape.data_type != runtime::DataType::FLOAT32 || shape.location != runtime::Location::MainMemory)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}
}  // namespace activation_detail

// Member: static kName, kCode, kPlacement and Run(x, n, y, alpha, beta).
template <class Member>
class ActivationKernel : public runtime::IKernel {
 public:
  std::string GetName() const override { return Member::kName; }

  // 0 for an ActivationInfo of this member's code and no InferenceParam, -1 otherwise.
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    if (inference_param != nullptr) return runtime::kKernelNotSupported;
    auto info = std::dynamic_pointer_cast<runtime::ActivationInfo>(layer_info);
    if (info == nullptr || info->activation_type != Member::kCode) return runtime::kKernelNotSupported;
    return runtime::kKernelOk;
  }

  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> /*context*/) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
    param_ = ToParam(std::static_pointer_cast<runtime::ActivationInfo>(layer_info));
    configured = true;
    return true;
  }

  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    return activation_detail::CheckOneFloatTensor(inputs);
  }
  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return activation_detail::CheckOneFloatTensor(outputs);
  }

  // The tensor is one flat run of elements, whatever its layout. An in-place member hands its input on as
  // the output.
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ZV_ASSERT(!inputs.empty(), "[%s] no input tensor.", Member::kName);
    runtime::TensorCPU* input = runtime::TensorCPU::Cast(inputs[0]);
    ZV_ASSERT(input->shape.data_type == runtime::DataType::FLOAT32, "[%s] needs a float tensor.",
              Member::kName);
    const uint32_t count = static_cast<uint32_t>(input->shape.ElementCount());
    if (Member::kPlacement == kInplace) {
      Member::Run(input->Data<float>(), count, input->Data<float>(), param_.activation_alpha,
                  param_.activation_beta);
      std::shared_ptr<runtime::Tensor> same = inputs[0];
      outputs.clear();
      outputs.push_back(std::move(same));
      return;
    }
    ZV_ASSERT(context != nullptr, "[%s] no context.", Member::kName);
    std::vector<runtime::TensorShape> shapes = GetOutputShapes({input->shape});
    std::shared_ptr<runtime::Tensor> output;
    context->GetDeviceCPU()->CreateTensor(output, std::move(shapes[0]));
    Member::Run(input->Data<float>(), count, output->Data<float>(), param_.activation_alpha,
                param_.activation_beta);
    outputs.clear();
    outputs.push_back(std::move(output));
  }

  const ActivationParam& param() const { return param_; }

 private:
  ActivationParam param_;
};

}  // namespace kernel
}  // namespace zelva

// Declares the class of one member line X(group, cls, code, core, placement).
#define ZV_DECLARE_ACTIVATION_MEMBER(group, cls, code, core, placement)              \
  namespace zelva {                                                                  \
  namespace kernel {                                                                 \
  struct cls##_Member {                                                              \
    static constexpr const char* kName = #cls;                                       \
    static constexpr uint32_t kCode = code;                                          \
    static constexpr ActivationPlacement kPlacement = placement;                     \
    static void Run(const float* x, uint32_t n, float* y, float alpha, float beta) { \
      core(x, n, y, alpha, beta);                                                    \
    }                                                                                \
  };                                                                                 \
  using cls = ActivationKernel<cls##_Member>;                                        \
  }                                                                                  \
  }
