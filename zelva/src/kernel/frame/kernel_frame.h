// The kernel frame: the one class template that every registered kernel instantiates. A family writes a
// static policy per member (usually a template over the member's row of the family list) and the registered
// name is an alias of Kernel<Policy>; the class derives directly from IKernel.
//
// The frame does what every kernel does alike:
//   Config:   configured = false; CheckSupport through the policy's rule; the policy's Configure hook
//             (parameter record, weight prepacking, scratch made once); configured = true.
//   Forward:  when the policy allocates (kAllocates), the frame checks that every input is present, creates
//             one output per shape of OutputShapes on the context's device and calls Run; otherwise the
//             policy's Forward does everything (in-place kernels, pass-through kernels).
// and the policy fills in what differs. A policy derives from FramePolicy for the defaults:
//
//   static constexpr const char* kName;          the registered name
//   using State = ...;                            what the kernel keeps (param record, weights, scratch)
//   static int32_t CheckSupport(info, param);      the member's rule, pure
//   static void Configure(State&, info, context);  after an accepted CheckSupport; failures are assertions
//                                                  (or Configure(State&, info, inference_param, context))
//   static void Run(State&, inputs, outputs, context)            with kAllocates
//   static void Forward(State&, inputs, outputs, context)        without
//   optional: Accepts, Refused, OutputShapes (or OutputShape), CheckInputs, CheckOutputs, Precheck,
//             AssertRunnable, Reset, kStateIsPrivate.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "zelva/src/runtime/kernel.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

// ---- Pieces the policies share.

// The usual start of a rule: -1 with an InferenceParam or with a description that is not an Info; otherwise
// the rule's verdict on the description.
template <class Info, class Rule>
int32_t SupportFor(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                   const std::shared_ptr<runtime::InferenceParam>& inference_param, Rule&& rule) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  const Info* info = dynamic_cast<const Info*>(layer_info.get());
  if (info == nullptr) return runtime::kKernelNotSupported;
  return rule(*info);
}

inline bool IsMainFloat(const std::shared_ptr<runtime::Tensor>& t) {
  return t != nullptr && t->shape.data_type == runtime::DataType::FLOAT32 &&
         t->shape.location == runtime::Location::MainMemory;
}

// Exactly `count` FLOAT32 tensors in main memory, any layout: 0, else -2.
inline int32_t CheckFloatTensors(const runtime::TensorList& tensors, size_t count = 1) {
  if (tensors.size() != count) return runtime::kKernelBadTensor;
  for (const auto& t : tensors) {
    if (!IsMainFloat(t)) return runtime::kKernelBadTensor;
  }
  return runtime::kKernelOk;
}

// A tensor the kernel keeps for per-call work (padded copies, column expansions, transformed tiles): made
// on first use at the size asked, grown when a later call asks for more, kept between calls.
class Scratch {
 public:
  float* Floats(runtime::DeviceCPU& device, uint32_t count) {
    if (tensor_ == nullptr || capacity_ < count) {
      tensor_.reset();
      device.CreateTensor(tensor_, runtime::TensorShape({count == 0 ? 1u : count}, runtime::DataType::FLOAT32,
                                                        runtime::Layout::C, runtime::Location::MainMemory));
      capacity_ = count;
    }
    return tensor_->Data<float>();
  }

 private:
  std::shared_ptr<runtime::Tensor> tensor_;
  uint32_t capacity_ = 0;
};

// Defaults of the optional hooks.
struct FramePolicy {
  // The frame creates the outputs and calls Run.
  static constexpr bool kAllocates = true;
  // The kernel's state is reachable through IKernel::private_state.
  static constexpr bool kStateIsPrivate = false;
  // Which CheckSupport results Config accepts.
  static bool Accepts(int32_t support) { return support == runtime::kKernelOk; }
  // Called when Config refuses, so that a state which remembers having been configured can forget it.
  template <class State>
  static void Refused(State&) {}
  // One output of each input's shape. (By value: Forward hands over the list it gathered.)
  template <class State>
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        std::vector<runtime::TensorShape> inputs) {
    return inputs;
  }
  template <class State>
  static int32_t CheckInputs(const State&, const runtime::TensorList&) {
    return runtime::kKernelOk;
  }
  template <class State>
  static int32_t CheckOutputs(const State&, const runtime::TensorList&) {
    return runtime::kKernelOk;
  }
  // With kAllocates: what Run needs of the state and the inputs, asserted before the output shapes are
  // computed (a kernel used before Config, a data type or channel count its core cannot read), so that the
  // failure names the real fault instead of a shape computed from it.
  template <class State>
  static void AssertRunnable(const State&, const runtime::TensorList&) {}
  template <class State>
  static int32_t Reset(State&) {
    return runtime::kKernelNoState;
  }
  // First step of Forward, with the kernel's `configured` flag: the member's own preconditions (a Forward
  // before Config, the input tensors it needs), asserted before the frame allocates anything, so that a
  // misuse is reported in the member's words. Pure.
  template <class State>
  static void Precheck(const State&, bool /*configured*/, const runtime::TensorList& /*inputs*/,
                       const runtime::Context* /*context*/) {}
};

// Whether a policy gives the one output shape of a one-output kernel from its first input's shape:
//   static runtime::TensorShape OutputShape(const State&, const runtime::TensorShape& input);
// It then stands for OutputShapes (which gives {OutputShape(inputs[0])}, reporting an empty list), and
// Forward creates the output straight from the first input's shape, with no shape lists: the smallest kernels
// spend a noticeable part of a call on those.
template <class P, class = void>
struct HasOutputShape : std::false_type {};
template <class P>
struct HasOutputShape<P, std::void_t<decltype(P::OutputShape(std::declval<const typename P::State&>(),
                                                             std::declval<const runtime::TensorShape&>()))>>
    : std::true_type {};

// Whether a policy's Configure also takes the InferenceParam (the kernels that require one):
//   static void Configure(State&, info, inference_param, context);
template <class P, class = void>
struct HasParamConfigure : std::false_type {};
template <class P>
struct HasParamConfigure<
    P, std::void_t<decltype(P::Configure(
           std::declval<typename P::State&>(), std::declval<std::shared_ptr<runtime::LayerInfo>>(),
           std::declval<std::shared_ptr<runtime::InferenceParam>>(),
           std::declval<std::shared_ptr<runtime::Context>>()))>> : std::true_type {};

// For policies that keep nothing.
struct NoState {};

template <class Policy>
class Kernel final : public runtime::IKernel {
 public:
  using State = typename Policy::State;

  Kernel() {
    if (Policy::kStateIsPrivate) private_state = &state_;
  }

  std::string GetName() const override { return Policy::kName; }

  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    return Policy::CheckSupport(layer_info, inference_param);
  }

  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> context) override {
    configured = false;
    if (!Policy::Accepts(CheckSupport(layer_info, inference_param))) {
      Policy::Refused(state_);
      return false;
    }
    if constexpr (HasParamConfigure<Policy>::value) {
      Policy::Configure(state_, layer_info, inference_param, context);
    } else {
      Policy::Configure(state_, layer_info, context);
    }
    configured = true;
    return true;
  }

  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override {
    if constexpr (HasOutputShape<Policy>::value) {
      ZV_ASSERT(!input_shapes.empty(), "[%s] no input shape.", Policy::kName);
      return {Policy::OutputShape(state_, input_shapes[0])};
    } else {
      return Policy::OutputShapes(state_, input_shapes);
    }
  }

  int32_t ResetState() override { return Policy::Reset(state_); }

  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    return Policy::CheckInputs(state_, inputs);
  }

  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return Policy::CheckOutputs(state_, outputs);
  }

  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    Policy::Precheck(state_, configured, inputs, context.get());
    if constexpr (Policy::kAllocates) {
      ZV_ASSERT(!inputs.empty(), "[%s] no input tensor.", Policy::kName);
      for (const auto& t : inputs) ZV_ASSERT(t != nullptr, "[%s] a null input tensor.", Policy::kName);
      ZV_ASSERT(context != nullptr, "[%s] no context.", Policy::kName);
      Policy::AssertRunnable(state_, inputs);
      outputs.clear();
      if constexpr (HasOutputShape<Policy>::value) {
        std::shared_ptr<runtime::Tensor> out;
        context->GetDeviceCPU()->CreateTensor(out, Policy::OutputShape(state_, inputs[0]->shape));
        outputs.push_back(std::move(out));
      } else {
        std::vector<runtime::TensorShape> shapes;
        shapes.reserve(inputs.size());
        for (const auto& t : inputs) shapes.push_back(t->shape);
        for (auto& shape : Policy::OutputShapes(state_, std::move(shapes))) {
          std::shared_ptr<runtime::Tensor> out;
          context->GetDeviceCPU()->CreateTensor(out, std::move(shape));
          outputs.push_back(std::move(out));
        }
      }
      Policy::Run(state_, inputs, outputs, context);
    } else {
      Policy::Forward(state_, inputs, outputs, context);
    }
  }

  // What the kernel keeps, for tests and tools.
  const State& state() const { return state_; }

 private:
  State state_;
};

}  // namespace kernel
}  // namespace zelva
