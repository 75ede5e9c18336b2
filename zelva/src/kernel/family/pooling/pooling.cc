#include "zelva/src/kernel/family/pooling/pooling.h"

#include <algorithm>
#include <cmath>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/conv2d/planar_frame.h"

namespace zelva {
namespace kernel {

using runtime::DataType;
using runtime::Layout;
using runtime::Location;

namespace {

template <class Record>
PoolParam Common(const Record& r) {
  PoolParam p;
  p.kernel_x = r.kernel_x;
  p.kernel_y = r.kernel_y;
  p.stride_x = r.stride_x;
  p.stride_y = r.stride_y;
  p.ceil_mode = r.ceil_mode;
  return p;
}

// Layout and lanes of a tensor a row takes; false for any other.
bool LayoutOf(const PoolRule& rule, const runtime::TensorShape& s, uint32_t* lanes) {
  switch (s.layout) {
    case Layout::CHW:
      *lanes = 1;
      return (rule.layout == PoolLayout::kCHW || rule.layout == PoolLayout::kAny) && s.dims.size() == 3;
    case Layout::C4HW4:
      *lanes = 4;
      return (rule.layout == PoolLayout::kC4HW4 || rule.layout == PoolLayout::kAny) && s.dims.size() == 4 &&
             s.dims[3] == 4;
    case Layout::C8HW8:
      *lanes = 8;
      return (rule.layout == PoolLayout::kC8HW8 || rule.layout == PoolLayout::kAny) && s.dims.size() == 4 &&
             s.dims[3] == 8;
    default:
      return false;
  }
}

// Taps of each output row (or column) that the divisor counts: all of them with count_include_pad, those
// on the input (rows pad_before .. pad_before + size - 1 of the padded input) without.
void Counts(uint32_t out, uint32_t stride, uint32_t kernel, uint32_t pad_before, uint32_t size, bool all,
            float* count) {
  for (uint32_t o = 0; o < out; ++o) {
    const int64_t start = int64_t{o} * stride;
    const int64_t lo = std::max<int64_t>(start, pad_before);
    const int64_t hi = std::min<int64_t>(start + kernel, int64_t{pad_before} + size);
    count[o] = static_cast<float>(all ? kernel : static_cast<uint32_t>(std::max<int64_t>(hi - lo, 0)));
  }
}

}  // namespace

int32_t CheckPoolSupport(const PoolRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                         const std::shared_ptr<runtime::InferenceParam>& inference_param) {
  const auto fits = [&rule](const auto& info) {
    if (rule.kernel_y == 0) return runtime::kKernelOk;
    return info.kernel_y == rule.kernel_y && info.kernel_x == rule.kernel_x &&
                   info.stride_y == rule.stride_y && info.stride_x == rule.stride_x
               ? runtime::kKernelOk
               : runtime::kKernelNotSupported;
  };
  if (rule.kind == PoolKind::kAvg)
    return SupportFor<runtime::AvgPool2dInfo>(layer_info, inference_param, fits);
  return SupportFor<runtime::MaxPool2dInfo>(layer_info, inference_param, fits);
}

void ConfigPool(const PoolRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                PoolState* state) {
  int32_t pads[4];
  if (rule.kind == PoolKind::kAvg) {
    const AvgPool2dParam r = ToParam(std::static_pointer_cast<runtime::AvgPool2dInfo>(layer_info));
    state->param = Common(r);
    state->param.count_include_pad = r.count_include_pad;
    pads[0] = r.padding_l, pads[1] = r.padding_t, pads[2] = r.padding_r, pads[3] = r.padding_b;
  } else {
    const MaxPool2dParam r = ToParam(std::static_pointer_cast<runtime::MaxPool2dInfo>(layer_info));
    state->param = Common(r);
    pads[0] = r.padding_l, pads[1] = r.padding_t, pads[2] = r.padding_r, pads[3] = r.padding_b;
  }
  PoolParam& p = state->param;
  ZV_ASSERT(p.kernel_x != 0 && p.kernel_y != 0 && p.stride_x != 0 && p.stride_y != 0,
            "[%s] layer %s: window %ux%u, stride %ux%u; none may be 0.", rule.name, layer_info->id.c_str(),
            p.kernel_y, p.kernel_x, p.stride_y, p.stride_x);
  ZV_ASSERT(pads[0] >= 0 && pads[1] >= 0 && pads[2] >= 0 && pads[3] >= 0,
            "[%s] layer %s: negative padding (l %d, t %d, r %d, b %d).", rule.name, layer_info->id.c_str(),
            pads[0], pads[1], pads[2], pads[3]);
  p.padding_l = static_cast<uint32_t>(pads[0]);
  p.padding_t = static_cast<uint32_t>(pads[1]);
  p.padding_r = static_cast<uint32_t>(pads[2]);
  p.padding_b = static_cast<uint32_t>(pads[3]);
}

uint32_t PoolOutputSize(uint32_t size, uint32_t pad_before, uint32_t pad_after, uint32_t kernel,
                        uint32_t stride, bool ceil_mode) {
  const int32_t numerator = static_cast<int32_t>(pad_before + size - kernel + pad_after);
  ZV_ASSERT(numerator >= 0, "pooling window of %u is larger than the padded input of %u.", kernel,
            pad_before + size + pad_after);
  const float q = static_cast<float>(numerator) / static_cast<float>(stride);
  return static_cast<uint32_t>((ceil_mode ? ceilf(q) : floorf(q)) + 1.0f);
}

runtime::TensorShape PoolOutputShape(const PoolRule& rule, const PoolParam& p,
                                     const runtime::TensorShape& in) {
  uint32_t lanes = 0;
  ZV_ASSERT(LayoutOf(rule, in, &lanes), "[%s] input of layout %u and rank %zu is not for this kernel.",
            rule.name, in.layout, in.dims.size());
  std::vector<uint32_t> dims = in.dims;
  dims[1] = PoolOutputSize(in.dims[1], p.padding_t, p.padding_b, p.kernel_y, p.stride_y, p.ceil_mode != 0);
  dims[2] = PoolOutputSize(in.dims[2], p.padding_l, p.padding_r, p.kernel_x, p.stride_x, p.ceil_mode != 0);
  return runtime::TensorShape(std::move(dims), DataType::FLOAT32, in.layout, in.location, in.extra);
}

int32_t CheckPoolTensors(const PoolRule& rule, const runtime::TensorList& tensors) {
  uint32_t lanes = 0;
  if (CheckFloatTensors(tensors) != runtime::kKernelOk || !LayoutOf(rule, tensors[0]->shape, &lanes))
    return runtime::kKernelBadTensor;
  return runtime::kKernelOk;
}

void AssertPoolRunnable(const PoolRule& rule, const PoolState& state, const runtime::TensorList& inputs) {
  ZV_ASSERT(state.param.kernel_x != 0, "[%s] not configured.", rule.name);
  uint32_t lanes = 0;
  const runtime::TensorShape& in = inputs[0]->shape;
  ZV_ASSERT(in.data_type == DataType::FLOAT32 && LayoutOf(rule, in, &lanes),
            "[%s] needs a float tensor of its layout, not data type %u, layout %u, rank %zu.", rule.name,
            in.data_type, in.layout, in.dims.size());
}

void RunPool(const PoolRule& rule, const PoolCore& core, PoolState& state, const runtime::TensorList& inputs,
             const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context) {
  const PoolParam& p = state.param;
  const runtime::Tensor& input = *inputs[0];
  runtime::Tensor& output = *outputs[0];
  const std::vector<uint32_t>& in = input.shape.dims;
  uint32_t lanes = 0;
  LayoutOf(rule, input.shape, &lanes);

  PoolArgs a;
  a.input = input.Data<float>();
  a.in_h = in[1];
  a.in_w = in[2];
  a.pad_t = p.padding_t;
  a.pad_l = p.padding_l;
  a.output = output.Data<float>();
  a.out_h = output.shape.dims[1];
  a.out_w = output.shape.dims[2];
  a.planes = in[0];
  a.lanes = lanes;
  a.kernel_y = p.kernel_y;
  a.kernel_x = p.kernel_x;
  a.stride_y = p.stride_y;
  a.stride_x = p.stride_x;
  a.count_include_pad = p.count_include_pad != 0;
  a.row_count = a.col_count = nullptr;
  a.work = nullptr;
  if (core.padded) {
    runtime::DeviceCPU& device = *context->GetDeviceCPU();
    // The padded extent holds the padding and every window, ceil mode's last one included.
    const uint32_t h = std::max(p.padding_t + in[1] + p.padding_b, (a.out_h - 1) * p.stride_y + p.kernel_y);
    const uint32_t w = std::max(p.padding_l + in[2] + p.padding_r, (a.out_w - 1) * p.stride_x + p.kernel_x);
    if (rule.kind == PoolKind::kAvg) {
      float* counts = state.counts.Floats(device, a.out_h + a.out_w);
      Counts(a.out_h, p.stride_y, p.kernel_y, p.padding_t, in[1], a.count_include_pad, counts);
      Counts(a.out_w, p.stride_x, p.kernel_x, p.padding_l, in[2], a.count_include_pad, counts + a.out_h);
      a.row_count = counts;
      a.col_count = counts + a.out_h;
    }
    if (h != in[1] || w != in[2]) {
      float* padded = state.padded.Floats(device, in[0] * h * w * lanes);
      // A row of a plane is in_w x lanes floats; padding a pixel is padding its lanes.
      PadPlanar(input.Data<float>(), in[0], in[1], in[2] * lanes, p.padding_l * lanes,
                (w - in[2] - p.padding_l) * lanes, p.padding_t, h - in[1] - p.padding_t, padded);
      a.input = padded;
      a.in_h = h;
      a.in_w = w;
    }
    a.pad_t = a.pad_l = 0;
    if (core.work) a.work = state.work.Floats(device, (a.in_h + 2) * (a.in_w + 1) * lanes);
  }
  core.run(a);
}

}  // namespace kernel
}  // namespace zelva
