// The frame of the planar (CHW) convolution members, 2D and depthwise: Config flattens the description and
// keeps the weights as they come ("GNCHW" [groups, out/groups, in/groups, kernel_y, kernel_x]) with the bias
// ("GN" [groups, out/groups]) when the layer has one; Forward pads a copy of the input when the member's core
// asks for it and the layer pads, creates the output and runs the core, which starts each output value from
// its bias (or zero) and accumulates.
//
// out_h = (H + padding_t + padding_b - (dilation_y * (kernel_y - 1) + 1)) / stride_y + 1, out_w likewise
// with the x fields; unsigned, truncating. The output is [out_channels, out_h, out_w] in CHW with the data
// type, location and extra of the input.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/cpu/fallback/conv2d/conv2d_rule.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

// What a planar core sees. The input is [in_channels, in_h, in_w]; pad_* is the padding the core still has to
// apply itself (zero when the frame has padded the copy it passes). The output is [out_channels, out_h,
// out_w]. The weight is in GNCHW order; bias is null for a layer without bias.
struct PlanarConvArgs {
  const float* input;
  uint32_t in_h, in_w;
  uint32_t pad_l, pad_r, pad_t, pad_b;
  float* output;
  uint32_t out_h, out_w;
  const float* weight;
  const float* bias;
  const Conv2dParam* param;
};

struct PlanarConvCore {
  void (*run)(const PlanarConvArgs& args);
  bool pads_input;  // the frame hands the core a zero-padded copy; otherwise the core handles borders
};

// ---- Shared parts of the frame (planar_conv2d.cc)
// Output shape of a planar convolution; reports a padded input smaller than the dilated kernel, and a zero
// stride, instead of wrapping.
runtime::TensorShape PlanarConvOutputShape(const Conv2dParam& param, const runtime::TensorShape& input);
// Steps of Config after CheckSupport: the record, then the weight and bias tensors on the context's device.
// Reports weight texts that hold fewer values than the layer's fields ask for, and channel counts that do not
// divide into the groups.
void ConfigPlanarConv(const char* name, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                      const std::shared_ptr<runtime::Context>& context, Conv2dParam* param,
                      std::shared_ptr<runtime::Tensor>* weight, std::shared_ptr<runtime::Tensor>* bias);
// One tensor, main memory, data type 0 or 1, layout CHW and in_channels channels.
int32_t CheckPlanarConvInputs(const Conv2dParam& param, const runtime::TensorList& inputs);
// One tensor, main memory, data type 0, layout CHW.
int32_t CheckPlanarConvOutputs(const runtime::TensorList& outputs);
void ForwardPlanarConv(const char* name, const PlanarConvCore& core, const Conv2dParam& param,
                       const runtime::Tensor* weight, const runtime::Tensor* bias,
                       const runtime::TensorList& inputs, runtime::TensorList& outputs,
                       const std::shared_ptr<runtime::Context>& context);
// Copies [channels, h, w] into [channels, h + t + b, w + l + r] with zero margins.
void PadPlanar(const float* src, uint32_t channels, uint32_t h, uint32_t w, uint32_t l, uint32_t r,
               uint32_t t, uint32_t b, float* dst);

template <const Conv2dRule& kRule, const PlanarConvCore& kCore>
class PlanarConv2d : public runtime::IKernel {
 public:
  std::string GetName() const override { return kRule.name; }
  int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                       const std::shared_ptr<runtime::InferenceParam>& inference_param) override {
    return CheckConv2dSupport(kRule, layer_info, inference_param);
  }
  bool Config(std::shared_ptr<runtime::LayerInfo> layer_info,
              std::shared_ptr<runtime::InferenceParam> inference_param,
              std::shared_ptr<runtime::NetExtraInfo> /*net_extra_info*/,
              std::shared_ptr<runtime::Context> context) override {
    configured = false;
    if (CheckSupport(layer_info, inference_param) == runtime::kKernelNotSupported) return false;
    ConfigPlanarConv(kRule.name, layer_info, context, &param_, &weight_, &bias_);
    configured = true;
    return true;
  }
  std::vector<runtime::TensorShape> GetOutputShapes(
      const std::vector<runtime::TensorShape>& input_shapes) override {
    ZV_ASSERT(!input_shapes.empty(), "[%s] no input shape.", kRule.name);
    return {PlanarConvOutputShape(param_, input_shapes[0])};
  }
  int32_t CheckInputs(const runtime::TensorList& inputs) override {
    return CheckPlanarConvInputs(param_, inputs);
  }
  int32_t CheckOutputs(const runtime::TensorList& outputs) override {
    return CheckPlanarConvOutputs(outputs);
  }
  void Forward(const runtime::TensorList& inputs, runtime::TensorList& outputs,
               const std::shared_ptr<runtime::Context>& context) override {
    ForwardPlanarConv(kRule.name, kCore, param_, weight_.get(), bias_.get(), inputs, outputs, context);
  }

  const Conv2dParam& param() const { return param_; }

 private:
  Conv2dParam param_;
  std::shared_ptr<runtime::Tensor> weight_;
  std::shared_ptr<runtime::Tensor> bias_;
};

}  // namespace kernel
}  // namespace zelva
