// The kernel contract. A kernel is one executable implementation of one layer type for one instruction set,
// one memory layout and one data type. The net knows kernels only through this interface: it creates one per
// layer and per layout converter, configures it once, and calls it once per inference.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/tensor.h"
#include "zelva/src/runtime/tensor_shape.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_cfg.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace zelva {
namespace runtime {

using TensorList = std::vector<std::shared_ptr<Tensor>>;

// Result codes of the integer operations.
enum KernelResult : int32_t {
  kKernelOk = 0,
  kKernelNotSupported = -1,  // CheckSupport: this kernel can't run this layer
  kKernelBadTensor = -2,     // CheckInputs / CheckOutputs
  kKernelNoState = -4,       // ResetState: the kernel is stateless
};

class IKernel {
 public:
  IKernel() = default;
  IKernel(const IKernel&) = delete;
  IKernel& operator=(const IKernel&) = delete;
  virtual ~IKernel() = default;

  // The registry name, equal to the class name without the namespace.
  virtual std::string GetName() const = 0;
  // 0 when this kernel can run the layer, -1 otherwise. Pure.
  virtual int32_t CheckSupport(const std::shared_ptr<LayerInfo>& layer_info,
                               const std::shared_ptr<InferenceParam>& inference_param) = 0;
  // One-time set-up: support check, parameter record, weights repacked into the kernel's own order.
  virtual bool Config(std::shared_ptr<LayerInfo> layer_info, std::shared_ptr<InferenceParam> inference_param,
                      std::shared_ptr<NetExtraInfo> net_extra_info, std::shared_ptr<Context> context) = 0;
  virtual bool IsConfigured() const { return configured; }
  // Shape inference without touching data; must agree exactly with what Forward creates.
  virtual std::vector<TensorShape> GetOutputShapes(const std::vector<TensorShape>& input_shapes) {
    return input_shapes;
  }
  // Called by the net right before every Forward. Does nothing.
  virtual int32_t Prepare(std::shared_ptr<Context>& /*context*/, const TensorList& /*inputs*/,
                          bool* /*may_be_temporary*/, TensorList& /*outputs*/) {
    return kKernelOk;
  }
  // Clears recurrent state; -4 for a stateless kernel.
  virtual int32_t ResetState() { return kKernelNoState; }
  virtual int32_t CheckInputs(const TensorList& /*inputs*/) { return kKernelOk; }
  // Computes; replaces the content of `outputs` by the tensors it creates.
  virtual void Forward(const TensorList& inputs, TensorList& outputs, const std::shared_ptr<Context>& context) = 0;
  virtual int32_t CheckOutputs(const TensorList& /*outputs*/) { return kKernelOk; }
  virtual std::shared_ptr<void>& SetAttachment(std::shared_ptr<void> value) {
    attachment = std::move(value);
    return attachment;
  }
  virtual std::shared_ptr<void> GetAttachment() { return attachment; }

 protected:
  bool configured = false;
  void* private_state = nullptr;
  uint8_t private_flag = 0;
  std::shared_ptr<void> attachment;
};

}  // namespace runtime
}  // namespace zelva
