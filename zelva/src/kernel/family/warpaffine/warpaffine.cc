#include "zelva/src/kernel/family/warpaffine/warpaffine.h"

#include <cmath>

#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

using runtime::Layout;

// ---- The coordinate steps of cores.h.

float WarpBase(uint32_t k, uint32_t n, bool align_corners) {
  if (n <= 1) return 0.0f;
  const float step = 2.0f / static_cast<float>(n - 1);
  float v = k < n / 2 ? -1.0f + step * static_cast<float>(k) : 1.0f - step * static_cast<float>(n - 1 - k);
  if (!align_corners) v = v * static_cast<float>(n - 1) / static_cast<float>(n);
  return v;
}

namespace {

float Clip(float v, uint32_t size) {
  return std::fmin(static_cast<float>(size - 1), std::fmax(v, 0.0f));
}

// Reflects v about low and high, given doubled (so that half-pixel bounds stay whole).
float Reflect(float v, int32_t twice_low, int32_t twice_high) {
  if (twice_low == twice_high) return 0.0f;
  const float low = static_cast<float>(twice_low) / 2.0f;
  const float span = static_cast<float>(twice_high - twice_low) / 2.0f;
  v = std::fabs(v - low);
  const float extra = std::fmod(v, span);
  const int flips = static_cast<int>(std::floor(v / span));
  return flips % 2 == 0 ? extra + low : span - extra + low;
}

}  // namespace

float WarpSourceCoordinate(float g, uint32_t size, WarpPadding padding, bool align_corners) {
  const float n = static_cast<float>(size);
  float v = align_corners ? ((g + 1.0f) / 2.0f) * (n - 1.0f) : ((g + 1.0f) * n - 1.0f) / 2.0f;
  if (padding == WarpPadding::kBorder) {
    v = Clip(v, size);
  } else if (padding == WarpPadding::kReflection) {
    v = align_corners ? Reflect(v, 0, 2 * (static_cast<int32_t>(size) - 1))
                      : Reflect(v, -1, 2 * static_cast<int32_t>(size) - 1);
    v = Clip(v, size);
  }
  return v;
}

// ---- The frame.

int32_t CheckWarpAffineSupport(const std::shared_ptr<runtime::LayerInfo>& info,
                               const std::shared_ptr<runtime::InferenceParam>& param) {
  return SupportFor<runtime::WarpAffineInfo>(
      info, param, [](const runtime::WarpAffineInfo&) { return runtime::kKernelOk; });
}

void ConfigWarpAffine(const char* name, WarpAffineState* state,
                      const std::shared_ptr<runtime::LayerInfo>& info) {
  state->param = ToParam(std::static_pointer_cast<runtime::WarpAffineInfo>(info));
  const WarpAffineParam& p = state->param;
  if (p.mode == "bilinear") {
    state->mode = WarpMode::kBilinear;
  } else if (p.mode == "nearest") {
    state->mode = WarpMode::kNearest;
  } else {
    ZV_ASSERT(false, "[%s] mode \"%s\" is not implemented; \"bilinear\" or \"nearest\".", name,
              p.mode.c_str());
  }
  if (p.padding_mode == "zeros") {
    state->padding = WarpPadding::kZeros;
  } else if (p.padding_mode == "border") {
    state->padding = WarpPadding::kBorder;
  } else if (p.padding_mode == "reflection") {
    state->padding = WarpPadding::kReflection;
  } else {
    ZV_ASSERT(false, "[%s] padding mode \"%s\" is not implemented; \"zeros\", \"border\" or \"reflection\".",
              name, p.padding_mode.c_str());
  }
  state->configured = true;
}

runtime::TensorShape WarpAffineOutputShape(const char* name, const runtime::TensorShape& input) {
  ZV_ASSERT(input.dims.size() == 3 && input.layout == Layout::CHW, "[%s] wants a planar CHW image.", name);
  return runtime::TensorShape(input.dims, input.data_type, Layout::CHW, input.location, input.extra);
}

int32_t CheckWarpAffineInputs(const runtime::TensorList& inputs) {
  if (CheckFloatTensors(inputs, 2) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const runtime::TensorShape& image = inputs[0]->shape;
  if (image.layout != Layout::CHW || image.dims.size() != 3 || inputs[1]->shape.ElementCount() != 6)
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckWarpAffineOutputs(const runtime::TensorList& outputs) {
  return CheckFloatTensors(outputs) == runtime::kKernelOk && outputs[0]->shape.layout == Layout::CHW &&
                 outputs[0]->shape.dims.size() == 3
             ? runtime::kKernelOk
             : runtime::kKernelBadTensor;
}

void AssertWarpAffineRunnable(const char* name, const WarpAffineState& state,
                              const runtime::TensorList& inputs) {
  ZV_ASSERT(state.configured, "[%s] not configured.", name);
  ZV_ASSERT(CheckWarpAffineInputs(inputs) == runtime::kKernelOk,
            "[%s] wants a FLOAT32 CHW image and a tensor of the 6 values of theta, in main memory.", name);
}

void RunWarpAffine(const WarpAffineRow& row, WarpAffineState& state, const runtime::TensorList& inputs,
                   const runtime::TensorList& outputs) {
  const auto& d = inputs[0]->shape.dims;
  const size_t pixels = static_cast<size_t>(d[1]) * d[2];
  if (state.taps.size() < 4 * pixels) {
    state.taps.resize(4 * pixels);
    state.weights.resize(4 * pixels);
  }
  WarpAffineArgs a{};
  a.input = inputs[0]->Data<float>();
  a.channels = d[0];
  a.height = d[1];
  a.width = d[2];
  a.theta = inputs[1]->Data<float>();
  a.mode = state.mode;
  a.padding = state.padding;
  a.align_corners = state.param.align_corners;
  a.output = outputs[0]->Data<float>();
  a.taps = state.taps.data();
  a.weights = state.weights.data();
  row.core(a);
}

}  // namespace kernel
}  // namespace zelva
