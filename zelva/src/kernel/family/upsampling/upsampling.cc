#include "zelva/src/kernel/family/upsampling/upsampling.h"

#include <cmath>

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;

namespace {

uint32_t LanesOf(uint32_t layout) {
  return layout == Layout::C4HW4 ? 4u : layout == Layout::C8HW8 ? 8u : 1u;
}

bool AxisGiven(float factor, float size) {
  return size > 0.0f || (std::isfinite(factor) && factor > 0.0f);
}

bool Implements(UpsampleModes modes, const std::string& mode) {
  switch (modes) {
    case UpsampleModes::kAll:
      return mode == "Nearest" || mode == "Bilinear" || mode == "Bicubic";
    case UpsampleModes::kNearest:
      return mode == "Nearest";
    case UpsampleModes::kBilinear:
      return mode == "Bilinear";
  }
  return false;
}

void Axes(const UpsampleState& s, uint32_t in_h, uint32_t in_w, UpsampleAxis* y, UpsampleAxis* x) {
  *y = MakeUpsampleAxis(in_h, s.param.scale_factor_y, s.param.scale_height, s.align_corners);
  *x = MakeUpsampleAxis(in_w, s.param.scale_factor_x, s.param.scale_width, s.align_corners);
}

void FillTaps(const UpsampleAxis& axis, UpsampleMode mode, bool align, std::vector<uint32_t>* i0,
              std::vector<uint32_t>* i1, std::vector<float>* w0, std::vector<float>* w1) {
  i0->resize(axis.out);
  i1->resize(axis.out);
  w0->resize(axis.out);
  w1->resize(axis.out);
  for (uint32_t o = 0; o < axis.out; ++o) {
    if (mode == UpsampleMode::kNearest) {
      (*i0)[o] = (*i1)[o] = NearestIndex(axis, o);
      (*w0)[o] = 1.0f;
      (*w1)[o] = 0.0f;
    } else {
      const LinearTap t = LinearTapAt(axis, o, align);
      (*i0)[o] = t.i0;
      (*i1)[o] = t.i1;
      (*w0)[o] = t.w0;
      (*w1)[o] = t.w1;
    }
  }
}

}  // namespace

int32_t CheckUpsampleSupport(const UpsampleRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                             const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  if (inference_param != nullptr) return runtime::kKernelNotSupported;
  auto info = std::dynamic_pointer_cast<runtime::Upsample2dInfo>(layer_info);
  if (info == nullptr) return runtime::kKernelNotSupported;
  const Upsample2dParam p = ToParam(info);
  const bool pass = Implements(rule.modes, p.mode) && AxisGiven(p.scale_factor_y, p.scale_height) &&
                    AxisGiven(p.scale_factor_x, p.scale_width);
  return pass ? runtime::kKernelOk : runtime::kKernelNotSupported;
}

void ConfigUpsample(const char*, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                    UpsampleState* state) {
  state->param = ToParam(std::static_pointer_cast<runtime::Upsample2dInfo>(layer_info));
  state->mode = state->param.mode == "Nearest"    ? UpsampleMode::kNearest
                : state->param.mode == "Bilinear" ? UpsampleMode::kBilinear
                                                  : UpsampleMode::kBicubic;
  state->align_corners = state->param.align_corner != 0 && state->mode != UpsampleMode::kNearest;
  state->in_h = state->in_w = 0;
}

runtime::TensorShape UpsampleOutputShape(const UpsampleState& state, uint32_t layout,
                                         const runtime::TensorShape& input) {
  const uint32_t lanes = LanesOf(layout);
  ZV_ASSERT(input.dims.size() == (lanes == 1 ? 3u : 4u), "upsampling input of rank %zu.", input.dims.size());
  UpsampleAxis y, x;
  Axes(state, input.dims[1], input.dims[2], &y, &x);
  ZV_ASSERT(input.dims[1] != 0 && input.dims[2] != 0 && y.out != 0 && x.out != 0,
            "upsampling of %u x %u to %u x %u.", input.dims[1], input.dims[2], y.out, x.out);
  const uint64_t values = static_cast<uint64_t>(input.dims[0]) * lanes * y.out * x.out;
  ZV_ASSERT(values < (1ull << 29), "upsampling output of %llu values is too large.",
            static_cast<unsigned long long>(values));
  std::vector<uint32_t> dims = {input.dims[0], y.out, x.out};
  if (lanes != 1) dims.push_back(lanes);
  return runtime::TensorShape(std::move(dims), input.data_type, layout, input.location, input.extra);
}

int32_t CheckUpsampleTensors(uint32_t layout, const runtime::TensorList& tensors) {
  if (CheckFloatTensors(tensors) != runtime::kKernelOk) return runtime::kKernelBadTensor;
  const runtime::TensorShape& s = tensors[0]->shape;
  const uint32_t lanes = LanesOf(layout);
  if (s.layout != layout || s.dims.size() != (lanes == 1 ? 3u : 4u) || (lanes != 1 && s.dims[3] != lanes))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertUpsampleRunnable(const char* name, uint32_t layout, const UpsampleState& state,
                            const runtime::TensorList& inputs) {
  ZV_ASSERT(!state.param.mode.empty(), "[%s] not configured.", name);
  ZV_ASSERT(CheckUpsampleTensors(layout, inputs) == runtime::kKernelOk,
            "[%s] needs one float tensor in its layout.", name);
}

void RunUpsample(const UpsampleCore& core, UpsampleState& s, const runtime::TensorList& inputs,
                 const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
  const runtime::TensorShape& in = inputs[0]->shape;
  const uint32_t planes = in.dims[0], in_h = in.dims[1], in_w = in.dims[2];
  const uint32_t lanes = in.dims.size() == 4 ? in.dims[3] : 1u;
  if (s.in_h != in_h || s.in_w != in_w) {
    Axes(s, in_h, in_w, &s.y, &s.x);
    if (core.run != nullptr) {
      FillTaps(s.y, s.mode, s.align_corners, &s.y0, &s.y1, &s.wy0, &s.wy1);
      FillTaps(s.x, s.mode, s.align_corners, &s.x0, &s.x1, &s.wx0, &s.wx1);
    }
    s.in_h = in_h;
    s.in_w = in_w;
  }
  if (core.run == nullptr) {
    UpsampleReference(inputs[0]->Data<float>(), outputs[0]->Data<float>(), planes, s.y, s.x, s.mode,
                      s.align_corners);
    return;
  }
  float* scratch = nullptr;
  if (core.scratch == UpsampleScratch::kRows)
    scratch = s.scratch.Floats(*context->GetDeviceCPU(), 2 * s.x.out * lanes);
  if (core.scratch == UpsampleScratch::kPlane)
    scratch = s.scratch.Floats(*context->GetDeviceCPU(), in_h * s.x.out * lanes);
  const UpsampleArgs args{inputs[0]->Data<float>(),
                          outputs[0]->Data<float>(),
                          planes,
                          in_h,
                          in_w,
                          s.y.out,
                          s.x.out,
                          s.y0.data(),
                          s.y1.data(),
                          s.x0.data(),
                          s.x1.data(),
                          s.wy0.data(),
                          s.wy1.data(),
                          s.wx0.data(),
                          s.wx1.data(),
                          scratch};
  core.run(args);
}

}  // namespace kernel
}  // namespace zelva
