// Layer descriptions: what one layer of a model is (kind, id, inputs, hyper-parameters, weights). They
// describe and do not compute; the net constructor turns each into a kernel. Every description is a
// Serializable whose VisitAttr is its file layout: "serializable_type", the four LayerInfo fields, then the
// fields of the kind, in the order written below. Weights are Base64 text of little-endian float32 in memory
// (weight_data.h).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/half.h"
#include "zelva/src/runtime/serialization.h"

namespace zelva {
namespace runtime {

// Kind numbers as they stand in files. The gaps (4, 5, 18-20, 23-28, 39, 45, 46) are unassigned.
enum LayerType : uint16_t {
  kLayerInput = 0,
  kLayerActivation = 1,
  kLayerConv2d = 2,
  kLayerConvTranspose2d = 3,
  kLayerAvgPool2d = 6,
  kLayerMaxPool2d = 7,
  kLayerInstanceNorm2d = 8,
  kLayerBatchNorm2d = 9,
  kLayerUpsample2d = 10,
  kLayerElementWiseOperator = 11,
  kLayerConcatenate = 12,
  kLayerTensorReshape = 13,
  kLayerTensorTranspose = 14,
  kLayerTensorSqueeze = 15,
  kLayerTensorUnSqueeze = 16,
  kLayerFullConnection = 17,
  kLayerPixelShuffle = 21,
  kLayerTensorGetItem = 22,
  kLayerBroadcastOperator = 29,
  kLayerBatchNorm1d = 30,
  kLayerClip = 31,
  kLayerSoftmax = 32,
  kLayerRNNCell = 33,
  kLayerRNN = 34,
  kLayerLSTMCell = 35,
  kLayerLSTM = 36,
  kLayerGRUCell = 37,
  kLayerGRU = 38,
  kLayerConv1d = 40,
  kLayerTensorExpand = 41,
  kLayerPad1d = 42,
  kLayerPad2d = 43,
  kLayerBmm = 44,
  kLayerWarpAffine = 47,
  kLayerSoftArgMax = 48,
  kLayerSpatialGather = 49,
  kLayerPlaceholder = 252,
  kLayerUnset = 0xFFFF,
};

// Visitors outside the two file forms (checkers, copiers, recorders) may take weight fields as what they are
// by also deriving from this interface. Every other visitor goes through the file encodings of weight_data.h.
class WeightFieldVisitor {
 public:
  virtual ~WeightFieldVisitor() = default;
  virtual void VisitWeightData(std::string& value, const std::string& name) = 0;
  virtual void VisitWeightList(std::vector<std::string>& value, const std::string& name) = 0;
};

// One `weight data` / `weight list` field of a description.
void VisitWeightField(std::shared_ptr<Visitor>& visitor, std::string& field, const std::string& name);
void VisitWeightListField(std::shared_ptr<Visitor>& visitor, std::vector<std::string>& field,
                          const std::string& name);

// ---- Field lists ------------------------------------------------------------------------------------------
//
// Each description's fields are written once, as a list of rows X(form, since, type, name, init), in file
// order. The list declares the fields (ZV_DECLARE_FIELDS), writes VisitAttr (layer_info.cc) and fills the
// kernels' parameter records (kernel_param.h). The file key of a field is its name.
//   form   Value: an ordinary visit, copied (widened) into the parameter record;
//          Text: an ordinary visit of a string that stays out of the record;
//          Code: an ordinary visit of a number that the record holds in another form;
//          Weight: a `weight data` field; WeightList: a `weight list` field (both stay out of the record).
//   since  the protocol version from which the field is in a file; 0 for always.
//   init   the constructor's value.
// clang-format off
#define ZV_FIELDS_LayerInfo(X)                                               \
  X(Value, 0, uint16_t, type, kLayerUnset)                                   \
  X(Value, 0, std::string, id, " ")                                          \
  X(Value, 0, std::vector<std::string>, input_ids, {})                       \
  X(Value, 0, uint16_t, read_count, 0)

// Conv2d and ConvTranspose2d; `Padding` is unsigned in the first, signed in the second. Both weights are
// visited whatever if_bias says. "weight" is "GNCHW": [groups, out/groups, in/groups, kernel_y, kernel_x].
#define ZV_FIELDS_ConvolutionInfo(X)                                         \
  X(Value, 0, uint16_t, in_channels, 0)                                      \
  X(Value, 0, uint16_t, out_channels, 0)                                     \
  X(Value, 0, uint16_t, kernel_x, 0)                                         \
  X(Value, 0, uint16_t, kernel_y, 0)                                         \
  X(Value, 0, Padding, padding_l, 0)                                         \
  X(Value, 0, Padding, padding_t, 0)                                         \
  X(Value, 0, Padding, padding_r, 0)                                         \
  X(Value, 0, Padding, padding_b, 0)                                         \
  X(Value, 0, uint16_t, stride_x, 1)                                         \
  X(Value, 0, uint16_t, stride_y, 1)                                         \
  X(Value, 0, uint16_t, dilation_x, 1)                                       \
  X(Value, 0, uint16_t, dilation_y, 1)                                       \
  X(Value, 0, uint16_t, groups, 0)                                           \
  X(Value, 0, bool, if_bias, false)                                          \
  X(Weight, 0, std::string, weight, {})                                      \
  X(Weight, 0, std::string, bias, {})

#define ZV_FIELDS_BatchNormInfo(X)                                           \
  X(Value, 0, uint16_t, num_features, 0)                                     \
  X(Value, 0, float, eps, 1e-5f)                                             \
  X(Value, 0, float, momentum, 0.1f)                                         \
  X(Value, 0, bool, if_affine, true)                                         \
  X(Value, 0, bool, if_track_running_stats, true)                            \
  X(Weight, 0, std::string, scale, {})                                       \
  X(Weight, 0, std::string, shift, {})                                       \
  X(Weight, 0, std::string, variance, {})                                    \
  X(Weight, 0, std::string, mean, {})                                        \
  X(Value, 20005, int32_t, num_batches_tracked, -1)

#define ZV_FIELDS_ElementOperatorInfo(X)                                     \
  X(Value, 0, uint16_t, op_type, 0)

#define ZV_FIELDS_NewShapeInfo(X)                                            \
  X(Value, 0, std::vector<int16_t>, new_shape, {})

#define ZV_FIELDS_SignedDimInfo(X)                                           \
  X(Value, 0, int16_t, dim, 0)

#define ZV_FIELDS_UnsignedDimInfo(X)                                         \
  X(Value, 0, uint16_t, dim, 0)

// Recurrent cells and stacks begin alike; RNN kinds then visit their activation, between "if_bias" and the
// rest.
#define ZV_FIELDS_RecurrentHead(X)                                           \
  X(Value, 0, uint16_t, in_size, 0)                                          \
  X(Value, 0, uint16_t, hidden_size, 0)                                      \
  X(Value, 0, bool, if_bias, false)

#define ZV_FIELDS_RNNActivation(X)                                           \
  X(Value, 0, uint16_t, activation_type, 0)                                  \
  X(Value, 0, runtime::half, activation_alpha, half(half::FromBits, 0x0000)) \
  X(Value, 0, runtime::half, activation_beta, half(half::FromBits, 0x0000))

#define ZV_FIELDS_RecurrentCellTail(X)                                       \
  X(Weight, 0, std::string, weight_ih, {})                                   \
  X(Weight, 0, std::string, weight_hh, {})                                   \
  X(Weight, 0, std::string, bias_ih, {})                                     \
  X(Weight, 0, std::string, bias_hh, {})

// One entry per stacked layer in each weight list.
#define ZV_FIELDS_RecurrentTail(X)                                           \
  X(Value, 0, uint16_t, num_layers, 0)                                       \
  X(Value, 0, bool, bidirectional, false)                                    \
  X(Value, 0, uint16_t, complex_rnn_type, 0)                                 \
  X(WeightList, 0, std::vector<std::string>, weight_ih_forward, {})          \
  X(WeightList, 0, std::vector<std::string>, weight_hh_forward, {})          \
  X(WeightList, 0, std::vector<std::string>, bias_ih_forward, {})            \
  X(WeightList, 0, std::vector<std::string>, bias_hh_forward, {})            \
  X(WeightList, 0, std::vector<std::string>, weight_ih_reverse, {})          \
  X(WeightList, 0, std::vector<std::string>, weight_hh_reverse, {})          \
  X(WeightList, 0, std::vector<std::string>, bias_ih_reverse, {})            \
  X(WeightList, 0, std::vector<std::string>, bias_hh_reverse, {})

// "location" is 16 bits wide in files.
#define ZV_FIELDS_InputInfo(X)                                               \
  X(Value, 0, uint16_t, location, 0)

// "weight" is a plain string here, not weight data.
#define ZV_FIELDS_ActivationInfo(X)                                          \
  X(Value, 0, uint16_t, activation_type, 0)                                  \
  X(Value, 0, runtime::half, activation_alpha, half(half::FromBits, 0x3C00)) \
  X(Value, 0, runtime::half, activation_beta, half(half::FromBits, 0x0000))  \
  X(Value, 20012, int16_t, num_parameters, 1)                                \
  X(Text, 20012, std::string, weight, {})

#define ZV_FIELDS_AvgPool2dInfo(X)                                           \
  X(Value, 0, uint16_t, kernel_x, 0)                                         \
  X(Value, 0, uint16_t, kernel_y, 0)                                         \
  X(Value, 0, int16_t, padding_l, 0)                                         \
  X(Value, 0, int16_t, padding_t, 0)                                         \
  X(Value, 0, int16_t, padding_r, 0)                                         \
  X(Value, 0, int16_t, padding_b, 0)                                         \
  X(Value, 0, uint16_t, stride_x, 0)                                         \
  X(Value, 0, uint16_t, stride_y, 0)                                         \
  X(Value, 0, bool, ceil_mode, false)                                        \
  X(Value, 0, bool, count_include_pad, false)

#define ZV_FIELDS_MaxPool2dInfo(X)                                           \
  X(Value, 0, uint16_t, kernel_x, 0)                                         \
  X(Value, 0, uint16_t, kernel_y, 0)                                         \
  X(Value, 0, int16_t, padding_l, 0)                                         \
  X(Value, 0, int16_t, padding_t, 0)                                         \
  X(Value, 0, int16_t, padding_r, 0)                                         \
  X(Value, 0, int16_t, padding_b, 0)                                         \
  X(Value, 0, uint16_t, stride_x, 0)                                         \
  X(Value, 0, uint16_t, stride_y, 0)                                         \
  X(Value, 0, uint16_t, dilation_x, 0)                                       \
  X(Value, 0, uint16_t, dilation_y, 0)                                       \
  X(Value, 0, bool, ceil_mode, false)

#define ZV_FIELDS_InstanceNorm2dInfo(X)                                      \
  X(Value, 0, uint16_t, num_features, 0)                                     \
  X(Value, 0, float, eps, 1e-5f)                                             \
  X(Value, 0, float, momentum, 0.1f)                                         \
  X(Value, 0, bool, if_affine, false)                                        \
  X(Value, 0, bool, if_track_running_stats, false)                           \
  X(Weight, 0, std::string, scale, {})                                       \
  X(Weight, 0, std::string, shift, {})

// The two sizes are in files of protocol above 20015 only; for older files they stay 0 and mean nothing.
#define ZV_FIELDS_Upsample2dInfo(X)                                          \
  X(Value, 0, float, scale_factor_y, 0.0f)                                   \
  X(Value, 0, float, scale_factor_x, 0.0f)                                   \
  X(Value, 0, bool, align_corner, false)                                     \
  X(Code, 0, uint16_t, unsample_type, 0)                                     \
  X(Value, 20016, float, scale_width, 0.0f)                                  \
  X(Value, 20016, float, scale_height, 0.0f)

#define ZV_FIELDS_TensorTransposeInfo(X)                                     \
  X(Value, 0, std::vector<uint16_t>, axes, {})

#define ZV_FIELDS_FullConnectionInfo(X)                                      \
  X(Value, 0, uint16_t, in_features, 0)                                      \
  X(Value, 0, uint16_t, out_features, 0)                                     \
  X(Value, 0, bool, if_bias, false)                                          \
  X(Weight, 0, std::string, weight, {})                                      \
  X(Weight, 0, std::string, bias, {})

#define ZV_FIELDS_PixelShuffleInfo(X)                                        \
  X(Value, 0, float, upscale_factor, 0.0f)

#define ZV_FIELDS_TensorDimemsionSamplingInfo(X)                             \
  X(Value, 0, uint16_t, sampling_type, 0)                                    \
  X(Value, 0, std::vector<int16_t>, data, {})

// Followed by that many nested TensorDimemsionSamplingInfo, written out in VisitAttr.
#define ZV_FIELDS_TensorGetItemInfo(X)                                       \
  X(Value, 0, uint16_t, num_sampling_infos, 0)

#define ZV_FIELDS_ClipInfo(X)                                                \
  X(Value, 0, runtime::half, minimum_value, half(half::FromBits, 0x0000))    \
  X(Value, 0, runtime::half, maximum_value, half(half::FromBits, 0x0000))

// "padding_f" is in front of the signal, "padding_b" behind it.
#define ZV_FIELDS_Conv1dInfo(X)                                              \
  X(Value, 0, uint16_t, in_channels, 0)                                      \
  X(Value, 0, uint16_t, out_channels, 0)                                     \
  X(Value, 0, uint16_t, kernel_size, 0)                                      \
  X(Value, 0, uint16_t, padding_f, 0)                                        \
  X(Value, 0, uint16_t, padding_b, 0)                                        \
  X(Value, 0, uint16_t, stride, 1)                                           \
  X(Value, 0, uint16_t, dilation, 1)                                         \
  X(Value, 0, uint16_t, groups, 1)                                           \
  X(Value, 0, bool, if_bias, false)                                          \
  X(Weight, 0, std::string, weight, {})                                      \
  X(Weight, 0, std::string, bias, {})

#define ZV_FIELDS_Pad1dInfo(X)                                               \
  X(Value, 0, int16_t, padding_l, 0)                                         \
  X(Value, 0, int16_t, padding_r, 0)                                         \
  X(Value, 0, float, padding_v, 0.0f)

#define ZV_FIELDS_Pad2dInfo(X)                                               \
  X(Value, 0, int16_t, padding_l, 0)                                         \
  X(Value, 0, int16_t, padding_t, 0)                                         \
  X(Value, 0, int16_t, padding_r, 0)                                         \
  X(Value, 0, int16_t, padding_b, 0)                                         \
  X(Value, 0, float, padding_v, 0.0f)

#define ZV_FIELDS_BmmInfo(X)

// "mode" and "padding_mode" are free strings that the kernel compares.
#define ZV_FIELDS_WarpAffineInfo(X)                                          \
  X(Value, 0, std::string, mode, {})                                         \
  X(Value, 0, std::string, padding_mode, {})                                 \
  X(Value, 0, bool, align_corners, false)

#define ZV_FIELDS_SoftArgMaxInfo(X)                                          \
  X(Value, 0, float, beta, 0.0f)                                             \
  X(Value, 0, std::vector<uint16_t>, size, {})

#define ZV_FIELDS_SpatialGatherInfo(X)                                       \
  X(Value, 0, float, scale, 0.0f)

// Declared shapes and a free description; no kernel of its own.
#define ZV_FIELDS_LayerPlaceholderInfo(X)                                    \
  X(Value, 0, std::vector<std::vector<uint16_t>>, input_shapes, {})          \
  X(Value, 0, std::vector<uint16_t>, output_shape, {})                       \
  X(Value, 0, std::string, desc, {})
// clang-format on

#define ZV_DECLARE_FIELD(form, since, type, name, init) type name = init;
// The fields of a list, as members of the class that holds them.
#define ZV_DECLARE_FIELDS(LIST) LIST(ZV_DECLARE_FIELD)

class LayerInfo : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  ZV_DECLARE_FIELDS(ZV_FIELDS_LayerInfo)
};

// Sets `type` to the kind's number; `kType` names it for code that checks a description's kind.
template <uint16_t kKind, class Base = LayerInfo>
class LayerKind : public Base {
 public:
  static constexpr uint16_t kType = kKind;
  LayerKind() { this->type = kKind; }
};

// A description with fields of its own, from its list.
#define ZV_LAYER_INFO_CLASS(Class, Base, LIST)                  \
  class Class : public Base {                                   \
   public:                                                      \
    void VisitAttr(std::shared_ptr<Visitor>& visitor) override; \
    ZV_DECLARE_FIELDS(LIST)                                     \
  }

// ---- Field sets shared by several kinds -------------------------------------------------------------------

template <class Padding>
ZV_LAYER_INFO_CLASS(ConvolutionInfo, LayerInfo, ZV_FIELDS_ConvolutionInfo);
ZV_LAYER_INFO_CLASS(BatchNormInfo, LayerInfo, ZV_FIELDS_BatchNormInfo);
ZV_LAYER_INFO_CLASS(ElementOperatorInfo, LayerInfo, ZV_FIELDS_ElementOperatorInfo);
ZV_LAYER_INFO_CLASS(NewShapeInfo, LayerInfo, ZV_FIELDS_NewShapeInfo);
ZV_LAYER_INFO_CLASS(SignedDimInfo, LayerInfo, ZV_FIELDS_SignedDimInfo);
ZV_LAYER_INFO_CLASS(UnsignedDimInfo, LayerInfo, ZV_FIELDS_UnsignedDimInfo);

// Single-step recurrent cells. RNNCellInfo adds its activation between "if_bias" and the weights.
class RecurrentCellInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  ZV_DECLARE_FIELDS(ZV_FIELDS_RecurrentHead)
  ZV_DECLARE_FIELDS(ZV_FIELDS_RecurrentCellTail)

 protected:
  virtual void VisitActivation(std::shared_ptr<Visitor>&) {}
};

// Stacked recurrent layers. RNNInfo adds its activation between "if_bias" and "num_layers".
class RecurrentInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  ZV_DECLARE_FIELDS(ZV_FIELDS_RecurrentHead)
  ZV_DECLARE_FIELDS(ZV_FIELDS_RecurrentTail)

 protected:
  virtual void VisitActivation(std::shared_ptr<Visitor>&) {}
};

// ---- The kinds --------------------------------------------------------------------------------------------

ZV_LAYER_INFO_CLASS(InputInfo final, LayerKind<kLayerInput>, ZV_FIELDS_InputInfo);
ZV_LAYER_INFO_CLASS(ActivationInfo final, LayerKind<kLayerActivation>, ZV_FIELDS_ActivationInfo);
class Conv2dInfo final : public LayerKind<kLayerConv2d, ConvolutionInfo<uint16_t>> {};
class ConvTranspose2dInfo final : public LayerKind<kLayerConvTranspose2d, ConvolutionInfo<int16_t>> {};
ZV_LAYER_INFO_CLASS(AvgPool2dInfo final, LayerKind<kLayerAvgPool2d>, ZV_FIELDS_AvgPool2dInfo);
ZV_LAYER_INFO_CLASS(MaxPool2dInfo final, LayerKind<kLayerMaxPool2d>, ZV_FIELDS_MaxPool2dInfo);
ZV_LAYER_INFO_CLASS(InstanceNorm2dInfo final, LayerKind<kLayerInstanceNorm2d>, ZV_FIELDS_InstanceNorm2dInfo);
class BatchNorm2dInfo final : public LayerKind<kLayerBatchNorm2d, BatchNormInfo> {};
ZV_LAYER_INFO_CLASS(Upsample2dInfo final, LayerKind<kLayerUpsample2d>, ZV_FIELDS_Upsample2dInfo);
class ElementWiseOperatorInfo final : public LayerKind<kLayerElementWiseOperator, ElementOperatorInfo> {};
class ConcatenateInfo final : public LayerKind<kLayerConcatenate, UnsignedDimInfo> {};
class TensorReshapeInfo final : public LayerKind<kLayerTensorReshape, NewShapeInfo> {};
ZV_LAYER_INFO_CLASS(TensorTransposeInfo final, LayerKind<kLayerTensorTranspose>,
                    ZV_FIELDS_TensorTransposeInfo);
class TensorSqueezeInfo final : public LayerKind<kLayerTensorSqueeze, SignedDimInfo> {};
class TensorUnSqueezeInfo final : public LayerKind<kLayerTensorUnSqueeze, SignedDimInfo> {};
ZV_LAYER_INFO_CLASS(FullConnectionInfo final, LayerKind<kLayerFullConnection>, ZV_FIELDS_FullConnectionInfo);
ZV_LAYER_INFO_CLASS(PixelShuffleInfo final, LayerKind<kLayerPixelShuffle>, ZV_FIELDS_PixelShuffleInfo);

// One dimension's sampling of a TensorGetItemInfo; no kind of its own.
ZV_LAYER_INFO_CLASS(TensorDimemsionSamplingInfo final, Serializable, ZV_FIELDS_TensorDimemsionSamplingInfo);

// "num_sampling_infos", then that many nested TensorDimemsionSamplingInfo under the keys "0", "1", ...
// The list follows the count: a writer sets num_sampling_infos to the number of entries it means to write.
class TensorGetItemInfo final : public LayerKind<kLayerTensorGetItem> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  ZV_DECLARE_FIELDS(ZV_FIELDS_TensorGetItemInfo)
  std::vector<TensorDimemsionSamplingInfo> sampling_infos;
};

class BroadcastOperatorInfo final : public LayerKind<kLayerBroadcastOperator, ElementOperatorInfo> {};
class BatchNorm1dInfo final : public LayerKind<kLayerBatchNorm1d, BatchNormInfo> {};
ZV_LAYER_INFO_CLASS(ClipInfo final, LayerKind<kLayerClip>, ZV_FIELDS_ClipInfo);
class SoftmaxInfo final : public LayerKind<kLayerSoftmax, UnsignedDimInfo> {};

class RNNCellInfo final : public LayerKind<kLayerRNNCell, RecurrentCellInfo> {
 public:
  ZV_DECLARE_FIELDS(ZV_FIELDS_RNNActivation)

 protected:
  void VisitActivation(std::shared_ptr<Visitor>& visitor) override;
};

class RNNInfo final : public LayerKind<kLayerRNN, RecurrentInfo> {
 public:
  ZV_DECLARE_FIELDS(ZV_FIELDS_RNNActivation)

 protected:
  void VisitActivation(std::shared_ptr<Visitor>& visitor) override;
};

class LSTMCellInfo final : public LayerKind<kLayerLSTMCell, RecurrentCellInfo> {};
class LSTMInfo final : public LayerKind<kLayerLSTM, RecurrentInfo> {};
class GRUCellInfo final : public LayerKind<kLayerGRUCell, RecurrentCellInfo> {};
class GRUInfo final : public LayerKind<kLayerGRU, RecurrentInfo> {};
ZV_LAYER_INFO_CLASS(Conv1dInfo final, LayerKind<kLayerConv1d>, ZV_FIELDS_Conv1dInfo);
class TensorExpandInfo final : public LayerKind<kLayerTensorExpand, NewShapeInfo> {};
ZV_LAYER_INFO_CLASS(Pad1dInfo final, LayerKind<kLayerPad1d>, ZV_FIELDS_Pad1dInfo);
ZV_LAYER_INFO_CLASS(Pad2dInfo final, LayerKind<kLayerPad2d>, ZV_FIELDS_Pad2dInfo);
class BmmInfo final : public LayerKind<kLayerBmm> {};
ZV_LAYER_INFO_CLASS(WarpAffineInfo final, LayerKind<kLayerWarpAffine>, ZV_FIELDS_WarpAffineInfo);
ZV_LAYER_INFO_CLASS(SoftArgMaxInfo final, LayerKind<kLayerSoftArgMax>, ZV_FIELDS_SoftArgMaxInfo);
ZV_LAYER_INFO_CLASS(SpatialGatherInfo final, LayerKind<kLayerSpatialGather>, ZV_FIELDS_SpatialGatherInfo);
ZV_LAYER_INFO_CLASS(LayerPlaceholderInfo final, LayerKind<kLayerPlaceholder>, ZV_FIELDS_LayerPlaceholderInfo);

// Every kind, as X(class); the one list the factory and the kind table are made from.
// clang-format off
#define ZV_LAYER_INFO_KINDS(X) \
  X(InputInfo) \
  X(ActivationInfo) \
  X(Conv2dInfo) \
  X(ConvTranspose2dInfo) \
  X(AvgPool2dInfo) \
  X(MaxPool2dInfo) \
  X(InstanceNorm2dInfo) \
  X(BatchNorm2dInfo) \
  X(Upsample2dInfo) \
  X(ElementWiseOperatorInfo) \
  X(ConcatenateInfo) \
  X(TensorReshapeInfo) \
  X(TensorTransposeInfo) \
  X(TensorSqueezeInfo) \
  X(TensorUnSqueezeInfo) \
  X(FullConnectionInfo) \
  X(PixelShuffleInfo) \
  X(TensorGetItemInfo) \
  X(BroadcastOperatorInfo) \
  X(BatchNorm1dInfo) \
  X(ClipInfo) \
  X(SoftmaxInfo) \
  X(RNNCellInfo) \
  X(RNNInfo) \
  X(LSTMCellInfo) \
  X(LSTMInfo) \
  X(GRUCellInfo) \
  X(GRUInfo) \
  X(Conv1dInfo) \
  X(TensorExpandInfo) \
  X(Pad1dInfo) \
  X(Pad2dInfo) \
  X(BmmInfo) \
  X(WarpAffineInfo) \
  X(SoftArgMaxInfo) \
  X(SpatialGatherInfo) \
  X(LayerPlaceholderInfo)
// clang-format on

// A new, empty description of the given kind; null when the number is no kind (0xFFFF included).
std::shared_ptr<LayerInfo> CreateLayerInfo(uint16_t type);

// The class name of a kind ("Conv2dInfo"), or an empty string when the number is no kind.
std::string LayerInfoClassName(uint16_t type);

}  // namespace runtime
}  // namespace zelva
