// The frame of the pooling family: PoolingPolicy<rule, core> for every row of members.h.
//
//   CheckSupport   the description is the row's kind (AvgPool2dInfo or MaxPool2dInfo); a fixed member also
//                  wants its window and stride, read height first from its name. Padding, ceil_mode and
//                  count_include_pad are part of no check.
//   Config         the record: kernel_x, kernel_y, padding_l, padding_t, padding_r, padding_b, stride_x,
//                  stride_y, ceil_mode, count_include_pad (a maximum has no count_include_pad: 0).
//   OutputShape    in 32-bit float: out = round((pad_before + size - kernel + pad_after) / stride) + 1,
//                  round being floorf, or ceilf in ceil mode, the numerator formed in 32-bit integers; the
//                  sum is truncated to an integer. Planes (channels or channel blocks) and lanes are kept.
//   CheckInputs    one tensor, main memory, float, the row's layout (the general members take CHW, C4HW4
//                  and C8HW8) with its rank and lanes. CheckOutputs: one tensor, main memory, float, the
//                  input layout of the row.
//   Run            vector cores: a zero-padded copy of the input, kept between calls, when the layer pads or
//                  a window of ceil mode ends past the input, then the core over the whole tensor; the
//                  general members: the reference on the input as it is.
#pragma once

#include <cstdint>
#include <memory>

#include "zelva/src/kernel/family/pooling/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/runtime/kernel.h"

namespace zelva {
namespace kernel {

enum class PoolKind { kAvg, kMax };
// The layouts a row takes; kAny is CHW, C4HW4 or C8HW8 (the general members).
enum class PoolLayout { kCHW, kC4HW4, kC8HW8, kAny };

// One row of the member list: the window and stride a fixed member wants (0: any).
struct PoolRule {
  const char* name;
  PoolKind kind;
  PoolLayout layout;
  uint32_t kernel_y, kernel_x, stride_y, stride_x;
};

struct PoolParam {
  uint32_t kernel_x = 0, kernel_y = 0;
  uint32_t padding_l = 0, padding_t = 0, padding_r = 0, padding_b = 0;
  uint32_t stride_x = 0, stride_y = 0;
  uint32_t ceil_mode = 0, count_include_pad = 0;
};

struct PoolState {
  PoolParam param;
  Scratch padded;
  Scratch counts;
  Scratch work;
};

// ---- The steps (pooling.cc)
int32_t CheckPoolSupport(const PoolRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                         const std::shared_ptr<runtime::InferenceParam>& inference_param);
// The record; a zero window or stride, or a negative padding, is reported.
void ConfigPool(const PoolRule& rule, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                PoolState* state);
// Output size along one axis as the shape inference above gives it; a padded input smaller than the window
// is reported.
uint32_t PoolOutputSize(uint32_t size, uint32_t pad_before, uint32_t pad_after, uint32_t kernel,
                        uint32_t stride, bool ceil_mode);
runtime::TensorShape PoolOutputShape(const PoolRule& rule, const PoolParam& param,
                                     const runtime::TensorShape& input);
int32_t CheckPoolTensors(const PoolRule& rule, const runtime::TensorList& tensors);
void AssertPoolRunnable(const PoolRule& rule, const PoolState& state, const runtime::TensorList& inputs);
void RunPool(const PoolRule& rule, const PoolCore& core, PoolState& state, const runtime::TensorList& inputs,
             const runtime::TensorList& outputs, const std::shared_ptr<runtime::Context>& context);

template <const PoolRule& kRule, const PoolCore& kCore>
struct PoolingPolicy : FramePolicy {
  static constexpr const char* kName = kRule.name;
  using State = PoolState;

  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return CheckPoolSupport(kRule, layer_info, inference_param);
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&) {
    ConfigPool(kRule, layer_info, &state);
  }
  static runtime::TensorShape OutputShape(const State& state, const runtime::TensorShape& input) {
    return PoolOutputShape(kRule, state.param, input);
  }
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckPoolTensors(kRule, inputs);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckPoolTensors(kRule, outputs);
  }
  static void AssertRunnable(const State& state, const runtime::TensorList& inputs) {
    AssertPoolRunnable(kRule, state, inputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, const runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>& context) {
    RunPool(kRule, kCore, state, inputs, outputs, context);
  }
};

}  // namespace kernel
}  // namespace zelva

// One row of the pooling list: X(group, isa, cls, accuracy, kind, layout, kernel_y, kernel_x, stride_y,
// stride_x, core); window and stride 0 for the general members. Defines the rule and the class.
// clang-format off
#define ZV_DEFINE_POOLING_MEMBER(group, isa, cls, accuracy, kind, layout, ky, kx, sy, sx, core)               \
  inline constexpr ::zelva::kernel::PoolRule cls##_rule{#cls, ::zelva::kernel::PoolKind::k##kind,              \
                                                        ::zelva::kernel::PoolLayout::k##layout, ky, kx, sy, sx}; \
  using cls = ::zelva::kernel::Kernel<::zelva::kernel::PoolingPolicy<cls##_rule, core>>;
// clang-format on
