// The frame of the batch-normalisation family: batch normalisation of a planar float tensor with running
// statistics folded into one scale and one shift per channel at Config. The member rows of members.h
// instantiate BatchNormPolicy.
#pragma once

#include <memory>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

struct BatchNormState {
  BatchNorm2dParam param;
  std::shared_ptr<runtime::Tensor> folded_scale;
  std::shared_ptr<runtime::Tensor> folded_shift;
};

// ---- The steps of the family (batchnorm.cc)
// Folds scale, shift, mean and variance into folded_scale and folded_shift. A layer without affine parameters
// (if_affine false) folds with scale 1 and shift 0. Weight texts shorter than the feature count are reported.
void ConfigBatchNorm(const char* name, BatchNormState* state, const std::shared_ptr<runtime::LayerInfo>& info,
                     const std::shared_ptr<runtime::Context>& context);
// One planar FLOAT32 tensor in main memory; the same test serves both sides.
int32_t CheckBatchNormTensors(const runtime::TensorList& tensors);
// A float tensor of at least one dim whose first is the feature count.
void AssertBatchNormRunnable(const char* name, const BatchNormState& state,
                             const runtime::TensorList& inputs);
void RunBatchNorm(const BatchNormState& state, const runtime::TensorList& inputs,
                  const runtime::TensorList& outputs);

template <const char* kName_>
struct BatchNormPolicy : FramePolicy {
  static constexpr const char* kName = kName_;
  using State = BatchNormState;

  // 0 when no parameters are given and the description is a BatchNorm2dInfo, -1 otherwise.
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::BatchNorm2dInfo>(
        layer_info, inference_param, [](const runtime::BatchNorm2dInfo&) { return runtime::kKernelOk; });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>& context) {
    ConfigBatchNorm(kName, &state, layer_info, context);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckBatchNormTensors(inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckBatchNormTensors(outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertBatchNormRunnable(kName, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    RunBatchNorm(state, inputs, outputs);
  }
};

}  // namespace kernel
}  // namespace zelva

// Declares the class of one line of the list.
#define ZV_DEFINE_BATCHNORM_MEMBER(group, isa, cls, accuracy) \
  inline constexpr char cls##_name[] = #cls;                  \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::BatchNormPolicy<cls##_name>>;
