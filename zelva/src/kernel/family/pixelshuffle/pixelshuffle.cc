#include "zelva/src/kernel/family/pixelshuffle/pixelshuffle.h"

#include <cmath>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/runtime/tensor.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

uint32_t Lanes(uint32_t layout) {
  return layout == Layout::C4HW4 ? 4u : layout == Layout::C8HW8 ? 8u : 1u;
}

// The logical [C, H, W] of a shape in `layout`; false when its rank or lanes are not the layout's.
bool Logical(uint32_t layout, const runtime::TensorShape& s, uint32_t* c, uint32_t* h, uint32_t* w) {
  const uint32_t lanes = Lanes(layout);
  if (lanes == 1) {
    if (s.dims.size() != 3) return false;
    *c = s.dims[0];
  } else {
    if (s.dims.size() != 4 || s.dims[3] != lanes) return false;
    *c = s.dims[0] * lanes;
  }
  *h = s.dims[1];
  *w = s.dims[2];
  return true;
}

// Whether the factor divides the input as the direction needs; the reason in `why` when not.
bool Divides(uint32_t layout, const PixelShuffleState& st, uint32_t c, uint32_t h, uint32_t w,
             const char** why) {
  const uint32_t r = st.factor, lanes = Lanes(layout);
  if (st.up) {
    if (c % (r * r) != 0 || (c / (r * r)) % lanes != 0) {
      *why = "channels that the square of the factor does not divide into whole blocks";
      return false;
    }
  } else if (h % r != 0 || w % r != 0) {
    *why = "a height or width that the factor does not divide";
    return false;
  }
  return true;
}

}  // namespace

bool DecodeShuffleFactor(float f, bool* up, uint32_t* factor) {
  if (!(f > 0.0f) || !(f < 65536.0f)) return false;
  if (f >= 1.0f) {
    if (f != std::floor(f)) return false;
    *up = true;
    *factor = static_cast<uint32_t>(f);
    return true;
  }
  const double r = std::nearbyint(1.0 / static_cast<double>(f));
  if (r < 2.0 || r > 65535.0 || std::fabs(static_cast<double>(f) * r - 1.0) > 1e-5) return false;
  *up = false;
  *factor = static_cast<uint32_t>(r);
  return true;
}

int32_t CheckPixelShuffleSupport(const PixelShuffleRow& row, const std::shared_ptr<runtime::LayerInfo>& info,
                                 const std::shared_ptr<runtime::InferenceParam>& param) {
  return SupportFor<runtime::PixelShuffleInfo>(info, param, [&row](const runtime::PixelShuffleInfo& i) {
    bool up = true;
    uint32_t r = 0;
    if (!DecodeShuffleFactor(i.upscale_factor, &up, &r)) return runtime::kKernelNotSupported;
    if ((up ? row.up : row.down) == nullptr) return runtime::kKernelNotSupported;
    if (row.factor != 0) {
      // A named factor is taken as written: 2 or 0.5, nothing near them.
      const float exact = up ? static_cast<float>(row.factor) : 1.0f / static_cast<float>(row.factor);
      if (i.upscale_factor != exact) return runtime::kKernelNotSupported;
    }
    return runtime::kKernelOk;
  });
}

void ConfigPixelShuffle(PixelShuffleState* state, const std::shared_ptr<runtime::LayerInfo>& info) {
  const PixelShuffleParam p = ToParam(std::static_pointer_cast<runtime::PixelShuffleInfo>(info));
  DecodeShuffleFactor(p.upscale_factor, &state->up, &state->factor);
}

runtime::TensorShape PixelShuffleOutputShape(const PixelShuffleRow& row, const PixelShuffleState& state,
                                             const runtime::TensorShape& input) {
  ZV_ASSERT(state.factor != 0, "[%s] not configured.", row.name);
  uint32_t c = 0, h = 0, w = 0;
  ZV_ASSERT(Logical(row.layout, input, &c, &h, &w), "[%s] input of rank %zu is not of the kernel's layout.",
            row.name, input.dims.size());
  const char* why = "";
  ZV_ASSERT(Divides(row.layout, state, c, h, w, &why), "[%s] input %u x %u x %u: %s %u.", row.name, c, h, w,
            why, state.factor);
  const uint32_t r = state.factor, lanes = Lanes(row.layout);
  const uint32_t oc = state.up ? c / (r * r) : c * r * r;
  const uint32_t oh = state.up ? h * r : h / r, ow = state.up ? w * r : w / r;
  std::vector<uint32_t> dims =
      lanes == 1 ? std::vector<uint32_t>{oc, oh, ow} : std::vector<uint32_t>{oc / lanes, oh, ow, lanes};
  return runtime::TensorShape(std::move(dims), input.data_type, row.layout, input.location, input.extra);
}

int32_t CheckPixelShuffleInputs(const PixelShuffleRow& row, const PixelShuffleState& state,
                                const runtime::TensorList& inputs) {
  if (CheckFloatTensors(inputs) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = inputs[0]->shape;
  uint32_t c = 0, h = 0, w = 0;
  const char* why = "";
  if (s.layout != row.layout || !Logical(row.layout, s, &c, &h, &w)) return runtime::kKernelBadTensor;
  if (state.factor != 0 && !Divides(row.layout, state, c, h, w, &why)) return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

int32_t CheckPixelShuffleOutputs(const PixelShuffleRow& row, const runtime::TensorList& outputs) {
  if (CheckFloatTensors(outputs) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  uint32_t c = 0, h = 0, w = 0;
  const runtime::TensorShape& s = outputs[0]->shape;
  return s.layout == row.layout && Logical(row.layout, s, &c, &h, &w) ? runtime::kKernelOk
                                                                      : runtime::kKernelBadTensor;
}

void AssertPixelShuffleRunnable(const PixelShuffleRow& row, const PixelShuffleState& state,
                                const runtime::TensorList& inputs) {
  ZV_ASSERT(state.factor != 0, "[%s] not configured.", row.name);
  ZV_ASSERT(inputs.size() == 1 && IsMainFloat(inputs[0]) && inputs[0]->shape.layout == row.layout,
            "[%s] wants one FLOAT32 tensor in main memory in its layout.", row.name);
}

void RunPixelShuffle(const PixelShuffleRow& row, const PixelShuffleState& state,
                     const runtime::TensorList& inputs, const runtime::TensorList& outputs) {
  PixelShuffleArgs args{};
  uint32_t c = 0, h = 0, w = 0;
  Logical(row.layout, inputs[0]->shape, &c, &h, &w);
  args.input = inputs[0]->Data<float>();
  args.output = outputs[0]->Data<float>();
  args.channels = c;
  args.height = h;
  args.width = w;
  args.factor = state.factor;
  (state.up ? row.up : row.down)(args);
}

}  // namespace kernel
}  // namespace zelva
