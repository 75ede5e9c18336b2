// The elementwise and broadcast family on the kernel frame. Four shapes of member:
//   SameShapePolicy    two tensors of one element count, a vector core (SSE, AVX)
//   ChannelMulPolicy   a blocked tensor times a channel gate of the same layout, broadcast over H and W (AVX)
//   ByNamePolicy       Elementwise_Fallback_Float_M1: the operation chosen by its name
//   BroadcastPolicy    BroadcastOperator_Fallback_Float_M1: any rank, through the elementwise function table
// Every operation is written once, as functional::ApplyOp and the lane-wise loops of functional/lanes.h.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "zelva/inc/zelva/kernel/kernel_param.h"
#include "zelva/src/kernel/family/elementwise/cores.h"
#include "zelva/src/kernel/frame/kernel_frame.h"
#include "zelva/src/kernel/functional/elementwise_table.h"

namespace zelva {
namespace kernel {

// Operation codes, those of the elementwise function table: the order of "Add", "Sub", "Mul", "Div", then
// maximum and minimum.
enum ElementwiseOp : uint32_t {
  kOpAdd = 0,
  kOpSub = 1,
  kOpMul = 2,
  kOpDiv = 3,
  kOpMax = 4,
  kOpMin = 5,
};

// The member shapes of the list's kind column.
enum ElementwiseKind : uint32_t { kSameShape, kChannelBlock4, kChannelBlock8, kByName, kAnyRank };

// Row: static kName, kOp and kCore (ElementwiseCore). Add, Sub, Mul and Div accept only an
// ElementWiseOperatorInfo of their own op_type; Max and Min accept any.
template <class Row>
struct SameShapePolicy : FramePolicy {
  static constexpr const char* kName = Row::kName;
  struct State {
    ElementWiseOperatorParam param;
  };
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::ElementWiseOperatorInfo>(
        layer_info, inference_param, [](const runtime::ElementWiseOperatorInfo& info) {
          return Row::kOp <= kOpDiv && info.op_type != Row::kOp ? runtime::kKernelNotSupported
                                                                : runtime::kKernelOk;
        });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&) {
    state.param = ToParam(std::static_pointer_cast<runtime::ElementWiseOperatorInfo>(layer_info));
  }
  // One output of the first input's shape.
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& shapes) {
    ZV_ASSERT(!shapes.empty(), "[%s] no input shape.", kName);
    return {shapes[0]};
  }
  // Two FLOAT32 tensors in main memory with the same element count.
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    if (CheckFloatTensors(inputs, 2) != runtime::kKernelOk) return runtime::kKernelBadTensor;
    if (inputs[0]->shape.ElementCount() != inputs[1]->shape.ElementCount()) return runtime::kKernelBadTensor;
    return runtime::kKernelOk;
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckFloatTensors(outputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    ZV_ASSERT(inputs.size() == 2, "[%s] needs two inputs.", kName);
    const runtime::Tensor* a = inputs[0].get();
    const runtime::Tensor* b = inputs[1].get();
    ZV_ASSERT(
        a->shape.data_type == runtime::DataType::FLOAT32 && b->shape.data_type == runtime::DataType::FLOAT32,
        "[%s] needs float tensors.", kName);
    const uint32_t count = static_cast<uint32_t>(a->shape.ElementCount());
    ZV_ASSERT(count == static_cast<uint32_t>(b->shape.ElementCount()), "[%s] %u elements against %d.", kName,
              count, b->shape.ElementCount());
    Row::kCore(a->Data<float>(), b->Data<float>(), count, outputs[0]->Data<float>());
  }
};

// Row: static kName and kCore (ChannelMulCore). Multiplication of a blocked tensor {blocks, H, W, lanes} by a
// second one of the same layout and block count, broadcast over H and W.
template <class Row, uint32_t kLayout, uint32_t kLanes>
struct ChannelMulPolicy : FramePolicy {
  static constexpr const char* kName = Row::kName;
  struct State {
    BroadcastOperatorParam param;
  };
  // -1 with an InferenceParam or without a BroadcastOperatorInfo; -2 for an op_type other than 2, which
  // Config refuses as well: this kernel only multiplies.
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::BroadcastOperatorInfo>(
        layer_info, inference_param, [](const runtime::BroadcastOperatorInfo& info) {
          return info.op_type != kOpMul ? runtime::kKernelBadTensor : runtime::kKernelOk;
        });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&) {
    state.param = ToParam(std::static_pointer_cast<runtime::BroadcastOperatorInfo>(layer_info));
  }
  // {blocks of the first, larger H, larger W, lanes of the first}.
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& shapes) {
    ZV_ASSERT(shapes.size() == 2 && shapes[0].dims.size() == 4 && shapes[1].dims.size() == 4,
              "[%s] needs two shapes of 4 dims.", kName);
    runtime::TensorShape out = shapes[0];
    out.dims[1] = std::max(shapes[0].dims[1], shapes[1].dims[1]);
    out.dims[2] = std::max(shapes[0].dims[2], shapes[1].dims[2]);
    return {out};
  }
  // Two FLOAT32 tensors of the member's layout (4 dims) whose H and W pass the test a * b == max(a, b). That
  // test lets a size meet 1 (or 0 meet 0) only: two equal sizes above 1 are refused here, although Run
  // multiplies them as well.
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    if (!TwoBlockedFloats(inputs)) return runtime::kKernelBadTensor;
    const std::vector<uint32_t>& a = inputs[0]->shape.dims;
    const std::vector<uint32_t>& b = inputs[1]->shape.dims;
    for (int d = 1; d <= 2; ++d) {
      if (a[d] * b[d] != std::max(a[d], b[d])) return runtime::kKernelBadTensor;
    }
    return runtime::kKernelOk;
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckFloatTensors(outputs);
  }
  static void Run(State&, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&) {
    ZV_ASSERT(TwoBlockedFloats(inputs), "[%s] needs two float tensors of %u-lane blocks.", kName, kLanes);
    const std::vector<uint32_t>& ad = inputs[0]->shape.dims;
    const std::vector<uint32_t>& bd = inputs[1]->shape.dims;
    ZV_ASSERT(ad[0] == bd[0] && ad[3] == kLanes && bd[3] == kLanes, "[%s] blocks %u x %u against %u x %u.",
              kName, ad[0], ad[3], bd[0], bd[3]);
    for (int d = 1; d <= 2; ++d) {
      ZV_ASSERT(ad[d] == bd[d] || ad[d] == 1 || bd[d] == 1, "[%s] dim %d: %u against %u.", kName, d, ad[d],
                bd[d]);
    }
    Row::kCore(inputs[0]->Data<float>(), ad.data(), inputs[1]->Data<float>(), bd.data(),
               outputs[0]->Data<float>());
  }

 private:
  static bool TwoBlockedFloats(const runtime::TensorList& tensors) {
    if (tensors.size() != 2) return false;
    for (const auto& t : tensors) {
      if (t == nullptr || t->shape.data_type != runtime::DataType::FLOAT32 || t->shape.layout != kLayout ||
          t->shape.dims.size() != 4)
        return false;
    }
    return true;
  }
};

// Elementwise_Fallback_Float_M1: out = a op b over two tensors of one shape; the op by name: "Add", "Sub",
// "Mul", "Div" (compared on their full length of 3). An empty or unknown name computes nothing: the output
// is made and left as it came. Any op_type is accepted; an unknown one is logged when Config converts it.
struct ByNamePolicy : FramePolicy {
  static constexpr const char* kName = "Elementwise_Fallback_Float_M1";
  struct State {
    ElementWiseOperatorParam param;
    int32_t op = -1;  // the code the name stands for, -1 for none
  };
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::ElementWiseOperatorInfo>(
        layer_info, inference_param,
        [](const runtime::ElementWiseOperatorInfo&) { return runtime::kKernelOk; });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&);
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& shapes) {
    ZV_ASSERT(!shapes.empty(), "[%s] no input shape.", kName);
    return {shapes[0]};
  }
  // Exactly two FLOAT32 tensors in main memory.
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    return CheckFloatTensors(inputs, 2);
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckFloatTensors(outputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&);
};

// BroadcastOperator_Fallback_Float_M1: out = a op b with a and b broadcast to a common shape of any rank:
// shapes are aligned at their last dim, and two dims fit when they are equal or one of them is 1. The op
// comes from the elementwise function table by the layer's op_type (0 to 3 as named, 4 maximum, 5 minimum).
struct BroadcastPolicy : FramePolicy {
  static constexpr const char* kName = "BroadcastOperator_Fallback_Float_M1";
  struct State {
    BroadcastOperatorParam param;
    const functional::ElementwiseFunction* function = nullptr;
  };
  // 0 for a BroadcastOperatorInfo whose op_type the table holds and no InferenceParam, -1 otherwise.
  static int32_t CheckSupport(const std::shared_ptr<runtime::LayerInfo>& layer_info,
                              const std::shared_ptr<runtime::InferenceParam>& inference_param) {
    return SupportFor<runtime::BroadcastOperatorInfo>(
        layer_info, inference_param, [](const runtime::BroadcastOperatorInfo& info) {
          return functional::ElementwiseFunctionTable().count(info.op_type) == 0
                     ? runtime::kKernelNotSupported
                     : runtime::kKernelOk;
        });
  }
  static void Configure(State& state, const std::shared_ptr<runtime::LayerInfo>& layer_info,
                        const std::shared_ptr<runtime::Context>&);
  // The broadcast shape, of the larger rank; type, layout and location of the first input. Raises for shapes
  // that do not fit.
  static std::vector<runtime::TensorShape> OutputShapes(const State&,
                                                        const std::vector<runtime::TensorShape>& shapes);
  // Two FLOAT32 tensors in main memory whose shapes fit; -2 otherwise.
  static int32_t CheckInputs(const State&, const runtime::TensorList& inputs) {
    if (CheckFloatTensors(inputs, 2) != runtime::kKernelOk) return runtime::kKernelBadTensor;
    if (!BroadcastShapesFit(inputs[0]->shape.dims, inputs[1]->shape.dims)) return runtime::kKernelBadTensor;
    return runtime::kKernelOk;
  }
  static int32_t CheckOutputs(const State&, const runtime::TensorList& outputs) {
    return CheckFloatTensors(outputs);
  }
  static void Run(State& state, const runtime::TensorList& inputs, runtime::TensorList& outputs,
                  const std::shared_ptr<runtime::Context>&);
};

// The frame policy of a list row by its kind.
template <uint32_t kKind, class Row>
struct ElementwisePolicyOf;
template <class Row>
struct ElementwisePolicyOf<kSameShape, Row> {
  using type = SameShapePolicy<Row>;
};
template <class Row>
struct ElementwisePolicyOf<kChannelBlock4, Row> {
  using type = ChannelMulPolicy<Row, runtime::Layout::C4HW4, 4>;
};
template <class Row>
struct ElementwisePolicyOf<kChannelBlock8, Row> {
  using type = ChannelMulPolicy<Row, runtime::Layout::C8HW8, 8>;
};
template <class Row>
struct ElementwisePolicyOf<kByName, Row> {
  using type = ByNamePolicy;
};
template <class Row>
struct ElementwisePolicyOf<kAnyRank, Row> {
  using type = BroadcastPolicy;
};

}  // namespace kernel
}  // namespace zelva

// Declares the class of one member row X(group, isa, cls, accuracy, kind, op, core).
#define ZV_DECLARE_ELEMENTWISE_MEMBER(group, isa, cls, accuracy, kind, op, core) \
  namespace zelva {                                                              \
  namespace kernel {                                                             \
  struct cls##_Row {                                                             \
    static constexpr const char* kName = #cls;                                   \
    static constexpr uint32_t kOp = op;                                          \
    static constexpr auto kCore = core;                                          \
  };                                                                             \
  using cls = Kernel<ElementwisePolicyOf<kind, cls##_Row>::type>;                \
  }                                                                              \
  }
