// Flat parameter records of the layer descriptions. A kernel converts its description once, in Config, with
// the matching ToParam overload and works from the record alone afterwards. Narrow fields are widened to 32
// bits (unsigned stays unsigned, signed stays signed, flags become 32-bit 0/1 fields, halves become floats).
// Weight texts are not part of any record: a kernel decodes them from the description and keeps its own
// repacked tensors.
//
// Two overloads turn a code into text and are the only ones that can fail: the element-wise operator
// ("Add", "Sub", "Mul", "Div"; anything else logs "Invalid element wise type" and leaves the name empty) and
// the upsampling mode ("Nearest", "Bilinear", "Bicubic"; anything else logs "Invalid upsample2d type").
// A kernel compares the text, not the code.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

namespace param_detail {

// The record's type of a description's field: 32 bits for every narrower number, 0/1 in 32 bits for a flag,
// float for a half; vectors element by element.
template <class T>
struct Widened {
  using type = T;
};
template <>
struct Widened<bool> {
  using type = uint32_t;
};
template <>
struct Widened<uint8_t> {
  using type = uint32_t;
};
template <>
struct Widened<uint16_t> {
  using type = uint32_t;
};
template <>
struct Widened<int8_t> {
  using type = int32_t;
};
template <>
struct Widened<int16_t> {
  using type = int32_t;
};
template <>
struct Widened<runtime::half> {
  using type = float;
};
template <class T>
struct Widened<std::vector<T>> {
  using type = std::vector<typename Widened<T>::type>;
};

template <class T>
typename Widened<T>::type Widen(const T& value) {
  return static_cast<typename Widened<T>::type>(value);
}
inline uint32_t Widen(bool value) {
  return value ? 1u : 0u;
}
inline float Widen(const runtime::half& value) {
  return static_cast<float>(value);
}
template <class T>
std::vector<typename Widened<T>::type> Widen(const std::vector<T>& values) {
  std::vector<typename Widened<T>::type> out;
  out.reserve(values.size());
  for (const T& v : values) out.push_back(Widen(v));
  return out;
}

}  // namespace param_detail

// From a description's field list (layer_info.h): the record's members, and the copy of them. Only Value rows
// reach a record; weights, plain texts and codes stay in the description.
#define ZV_RECORD_FIELD_Value(T, name) typename ::zelva::kernel::param_detail::Widened<T>::type name{};
#define ZV_RECORD_FIELD_Text(type, name)
#define ZV_RECORD_FIELD_Code(type, name)
#define ZV_RECORD_FIELD_Weight(type, name)
#define ZV_RECORD_FIELD_WeightList(type, name)
#define ZV_RECORD_FIELD(form, since, type, name, init) ZV_RECORD_FIELD_##form(type, name)
#define ZV_RECORD_FIELDS(LIST) LIST(ZV_RECORD_FIELD)

#define ZV_FILL_FIELD_Value(name) record.name = ::zelva::kernel::param_detail::Widen(from.name);
#define ZV_FILL_FIELD_Text(name)
#define ZV_FILL_FIELD_Code(name)
#define ZV_FILL_FIELD_Weight(name)
#define ZV_FILL_FIELD_WeightList(name)
#define ZV_FILL_FIELD(form, since, type, name, init) ZV_FILL_FIELD_##form(name)
// Copies the Value rows of LIST from the description `from` into `record`.
#define ZV_FILL_RECORD(LIST) LIST(ZV_FILL_FIELD)

// ---- Records
// ------------------------------------------------------------------------------------------------

struct InputParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_InputInfo)
};

// The plain-text "weight" of an activation stays in its description.
struct ActivationParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_ActivationInfo)
};

// Written out: the order of a convolution record is not the file order. The transposed convolution pads
// by signed amounts; otherwise the two records are the same.
template <class Padding>
struct ConvolutionRecord {
  uint32_t kernel_x = 0;
  uint32_t kernel_y = 0;
  uint32_t stride_x = 0;
  uint32_t stride_y = 0;
  uint32_t dilation_x = 0;
  uint32_t dilation_y = 0;
  uint32_t in_channels = 0;
  uint32_t out_channels = 0;
  uint32_t in_channels_per_group = 0;
  uint32_t out_channels_per_group = 0;
  uint32_t groups = 0;
  Padding padding_l = 0;
  Padding padding_r = 0;
  Padding padding_t = 0;
  Padding padding_b = 0;
  uint32_t if_bias = 0;
};
using Conv2dParam = ConvolutionRecord<uint32_t>;
using ConvTranspose2dParam = ConvolutionRecord<int32_t>;

struct AvgPool2dParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_AvgPool2dInfo)
};

struct MaxPool2dParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_MaxPool2dInfo)
};

struct InstanceNorm2dParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_InstanceNorm2dInfo)
};

struct BatchNormParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_BatchNormInfo)
};
using BatchNorm2dParam = BatchNormParam;
using BatchNorm1dParam = BatchNormParam;

// The mode code becomes text, in the middle of the record.
struct Upsample2dParam {
  float scale_factor_y = 0.0f;
  float scale_factor_x = 0.0f;
  uint32_t align_corner = 0;
  std::string mode;  // "Nearest", "Bilinear", "Bicubic"; empty for an unknown code
  float scale_width = 0.0f;
  float scale_height = 0.0f;
};

struct ElementWiseOperatorParam {
  std::string op_name;  // "Add", "Sub", "Mul", "Div"; empty for an unknown code
};

// Broadcast layers keep the code as well: some members test the code, others the name.
struct BroadcastOperatorParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_ElementOperatorInfo)
  std::string op_name;  // "Add", "Sub", "Mul", "Div"; empty for any other code (not logged)
};

struct ConcatenateParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_UnsignedDimInfo)
};

struct TensorReshapeParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_NewShapeInfo)
};

struct TensorTransposeParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_TensorTransposeInfo)
};

struct TensorSqueezeParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_SignedDimInfo)
};
using TensorUnSqueezeParam = TensorSqueezeParam;

struct FullConnectionParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_FullConnectionInfo)
};

struct PixelShuffleParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_PixelShuffleInfo)
};

struct TensorDimemsionSamplingParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_TensorDimemsionSamplingInfo)
};

struct TensorGetItemParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_TensorGetItemInfo)
  std::vector<TensorDimemsionSamplingParam> sampling_infos;
};

struct ClipParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_ClipInfo)
};

struct SoftmaxParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_UnsignedDimInfo)
};

struct RecurrentCellParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_RecurrentHead)
  // RNN cells only; zero for LSTM and GRU cells.
  ZV_RECORD_FIELDS(ZV_FIELDS_RNNActivation)
};
using RNNCellParam = RecurrentCellParam;
using LSTMCellParam = RecurrentCellParam;
using GRUCellParam = RecurrentCellParam;

struct RecurrentParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_RecurrentHead)
  ZV_RECORD_FIELDS(ZV_FIELDS_RecurrentTail)
  // RNN layers only; zero for LSTM and GRU layers.
  ZV_RECORD_FIELDS(ZV_FIELDS_RNNActivation)
};
using RNNParam = RecurrentParam;
using LSTMParam = RecurrentParam;
using GRUParam = RecurrentParam;

// Written out: the order of a convolution record is not the file order.
struct Conv1dParam {
  uint32_t kernel_size = 0;
  uint32_t stride = 0;
  uint32_t dilation = 0;
  uint32_t in_channels = 0;
  uint32_t out_channels = 0;
  uint32_t in_channels_per_group = 0;
  uint32_t out_channels_per_group = 0;
  uint32_t groups = 0;
  uint32_t padding_f = 0;
  uint32_t padding_b = 0;
  uint32_t if_bias = 0;
};

struct TensorExpandParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_NewShapeInfo)
};

struct Pad1dParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_Pad1dInfo)
};

struct Pad2dParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_Pad2dInfo)
};

struct BmmParam {};

struct WarpAffineParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_WarpAffineInfo)
};

struct SoftArgMaxParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_SoftArgMaxInfo)
};

struct SpatialGatherParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_SpatialGatherInfo)
};

struct LayerPlaceholderParam {
  ZV_RECORD_FIELDS(ZV_FIELDS_LayerPlaceholderInfo)
};

// ---- Conversions ------------------------------------------------------------------------------------------
// Every overload takes the description by shared pointer; a null pointer is a caller's error and raises.

namespace param_detail {

template <class Record, class Info>
Record ConvolutionToParam(const Info& from, const char* kind) {
  ZV_ASSERT(from.groups != 0, "%s %s has groups == 0", kind, from.id.c_str());
  Record record;
  ZV_FILL_RECORD(ZV_FIELDS_ConvolutionInfo)
  record.in_channels_per_group = static_cast<uint32_t>(from.in_channels) / from.groups;
  record.out_channels_per_group = static_cast<uint32_t>(from.out_channels) / from.groups;
  return record;
}

// "Add", "Sub", "Mul", "Div" for 0 to 3; empty otherwise.
inline std::string OperatorName(uint32_t code) {
  static const char* const kNames[] = {"Add", "Sub", "Mul", "Div"};
  return code < 4 ? std::string(kNames[code]) : std::string();
}

}  // namespace param_detail

// ToParam of a kind whose record is the Value rows of its lists, and nothing else.
#define ZV_PLAIN_TO_PARAM(Info, Record, ...)                          \
  inline Record ToParam(const std::shared_ptr<runtime::Info>& info) { \
    ZV_ASSERT(info != nullptr, "null " #Info);                        \
    const runtime::Info& from = *info;                                \
    Record record;                                                    \
    __VA_ARGS__                                                       \
    static_cast<void>(from);                                          \
    return record;                                                    \
  }

ZV_PLAIN_TO_PARAM(InputInfo, InputParam, ZV_FILL_RECORD(ZV_FIELDS_InputInfo))
ZV_PLAIN_TO_PARAM(ActivationInfo, ActivationParam, ZV_FILL_RECORD(ZV_FIELDS_ActivationInfo))

// Raises when groups is 0 (the per-group counts would divide by zero).
inline Conv2dParam ToParam(const std::shared_ptr<runtime::Conv2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Conv2dInfo");
  return param_detail::ConvolutionToParam<Conv2dParam>(*info, "Conv2d");
}

inline ConvTranspose2dParam ToParam(const std::shared_ptr<runtime::ConvTranspose2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ConvTranspose2dInfo");
  return param_detail::ConvolutionToParam<ConvTranspose2dParam>(*info, "ConvTranspose2d");
}

ZV_PLAIN_TO_PARAM(AvgPool2dInfo, AvgPool2dParam, ZV_FILL_RECORD(ZV_FIELDS_AvgPool2dInfo))
ZV_PLAIN_TO_PARAM(MaxPool2dInfo, MaxPool2dParam, ZV_FILL_RECORD(ZV_FIELDS_MaxPool2dInfo))
ZV_PLAIN_TO_PARAM(InstanceNorm2dInfo, InstanceNorm2dParam, ZV_FILL_RECORD(ZV_FIELDS_InstanceNorm2dInfo))
ZV_PLAIN_TO_PARAM(BatchNorm2dInfo, BatchNorm2dParam, ZV_FILL_RECORD(ZV_FIELDS_BatchNormInfo))
ZV_PLAIN_TO_PARAM(BatchNorm1dInfo, BatchNorm1dParam, ZV_FILL_RECORD(ZV_FIELDS_BatchNormInfo))

// Can fail: an unknown mode logs "Invalid upsample2d type" and leaves `mode` empty.
inline Upsample2dParam ToParam(const std::shared_ptr<runtime::Upsample2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Upsample2dInfo");
  const runtime::Upsample2dInfo& from = *info;
  Upsample2dParam record;
  ZV_FILL_RECORD(ZV_FIELDS_Upsample2dInfo)
  switch (from.unsample_type) {
    case 0:
      record.mode = "Nearest";
      break;
    case 1:
      record.mode = "Bilinear";
      break;
    case 2:
      record.mode = "Bicubic";
      break;
    default:
      ZV_LOG(utility::kLogError, "Invalid upsample2d type");
      break;
  }
  return record;
}

// Can fail: a code other than 0 to 3 logs "Invalid element wise type" and leaves `op_name` empty.
inline ElementWiseOperatorParam ToParam(const std::shared_ptr<runtime::ElementWiseOperatorInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ElementWiseOperatorInfo");
  ElementWiseOperatorParam p;
  p.op_name = param_detail::OperatorName(info->op_type);
  if (p.op_name.empty()) ZV_LOG(utility::kLogError, "Invalid element wise type");
  return p;
}

ZV_PLAIN_TO_PARAM(BroadcastOperatorInfo, BroadcastOperatorParam,
                  ZV_FILL_RECORD(ZV_FIELDS_ElementOperatorInfo)
                      record.op_name = param_detail::OperatorName(from.op_type);)
ZV_PLAIN_TO_PARAM(ConcatenateInfo, ConcatenateParam, ZV_FILL_RECORD(ZV_FIELDS_UnsignedDimInfo))
ZV_PLAIN_TO_PARAM(TensorReshapeInfo, TensorReshapeParam, ZV_FILL_RECORD(ZV_FIELDS_NewShapeInfo))
ZV_PLAIN_TO_PARAM(TensorTransposeInfo, TensorTransposeParam, ZV_FILL_RECORD(ZV_FIELDS_TensorTransposeInfo))
ZV_PLAIN_TO_PARAM(TensorSqueezeInfo, TensorSqueezeParam, ZV_FILL_RECORD(ZV_FIELDS_SignedDimInfo))
ZV_PLAIN_TO_PARAM(TensorUnSqueezeInfo, TensorUnSqueezeParam, ZV_FILL_RECORD(ZV_FIELDS_SignedDimInfo))
ZV_PLAIN_TO_PARAM(FullConnectionInfo, FullConnectionParam, ZV_FILL_RECORD(ZV_FIELDS_FullConnectionInfo))
ZV_PLAIN_TO_PARAM(PixelShuffleInfo, PixelShuffleParam, ZV_FILL_RECORD(ZV_FIELDS_PixelShuffleInfo))

inline TensorGetItemParam ToParam(const std::shared_ptr<runtime::TensorGetItemInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorGetItemInfo");
  TensorGetItemParam p;
  {
    const runtime::TensorGetItemInfo& from = *info;
    TensorGetItemParam& record = p;
    ZV_FILL_RECORD(ZV_FIELDS_TensorGetItemInfo)
  }
  p.sampling_infos.reserve(info->sampling_infos.size());
  for (const runtime::TensorDimemsionSamplingInfo& from : info->sampling_infos) {
    TensorDimemsionSamplingParam record;
    ZV_FILL_RECORD(ZV_FIELDS_TensorDimemsionSamplingInfo)
    p.sampling_infos.push_back(std::move(record));
  }
  return p;
}

ZV_PLAIN_TO_PARAM(ClipInfo, ClipParam, ZV_FILL_RECORD(ZV_FIELDS_ClipInfo))
ZV_PLAIN_TO_PARAM(SoftmaxInfo, SoftmaxParam, ZV_FILL_RECORD(ZV_FIELDS_UnsignedDimInfo))
ZV_PLAIN_TO_PARAM(RNNCellInfo, RNNCellParam,
                  ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead) ZV_FILL_RECORD(ZV_FIELDS_RNNActivation))
ZV_PLAIN_TO_PARAM(LSTMCellInfo, LSTMCellParam, ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead))
ZV_PLAIN_TO_PARAM(GRUCellInfo, GRUCellParam, ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead))
ZV_PLAIN_TO_PARAM(RNNInfo, RNNParam,
                  ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead) ZV_FILL_RECORD(ZV_FIELDS_RecurrentTail)
                      ZV_FILL_RECORD(ZV_FIELDS_RNNActivation))
ZV_PLAIN_TO_PARAM(LSTMInfo, LSTMParam,
                  ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead) ZV_FILL_RECORD(ZV_FIELDS_RecurrentTail))
ZV_PLAIN_TO_PARAM(GRUInfo, GRUParam,
                  ZV_FILL_RECORD(ZV_FIELDS_RecurrentHead) ZV_FILL_RECORD(ZV_FIELDS_RecurrentTail))

// Raises when groups is 0 (the per-group counts would divide by zero).
inline Conv1dParam ToParam(const std::shared_ptr<runtime::Conv1dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Conv1dInfo");
  const runtime::Conv1dInfo& from = *info;
  ZV_ASSERT(from.groups != 0, "Conv1d %s has groups == 0", from.id.c_str());
  Conv1dParam record;
  ZV_FILL_RECORD(ZV_FIELDS_Conv1dInfo)
  record.in_channels_per_group = static_cast<uint32_t>(from.in_channels) / from.groups;
  record.out_channels_per_group = static_cast<uint32_t>(from.out_channels) / from.groups;
  return record;
}

ZV_PLAIN_TO_PARAM(TensorExpandInfo, TensorExpandParam, ZV_FILL_RECORD(ZV_FIELDS_NewShapeInfo))
ZV_PLAIN_TO_PARAM(Pad1dInfo, Pad1dParam, ZV_FILL_RECORD(ZV_FIELDS_Pad1dInfo))
ZV_PLAIN_TO_PARAM(Pad2dInfo, Pad2dParam, ZV_FILL_RECORD(ZV_FIELDS_Pad2dInfo))
ZV_PLAIN_TO_PARAM(BmmInfo, BmmParam, ZV_FILL_RECORD(ZV_FIELDS_BmmInfo))
ZV_PLAIN_TO_PARAM(WarpAffineInfo, WarpAffineParam, ZV_FILL_RECORD(ZV_FIELDS_WarpAffineInfo))
ZV_PLAIN_TO_PARAM(SoftArgMaxInfo, SoftArgMaxParam, ZV_FILL_RECORD(ZV_FIELDS_SoftArgMaxInfo))
ZV_PLAIN_TO_PARAM(SpatialGatherInfo, SpatialGatherParam, ZV_FILL_RECORD(ZV_FIELDS_SpatialGatherInfo))
ZV_PLAIN_TO_PARAM(LayerPlaceholderInfo, LayerPlaceholderParam, ZV_FILL_RECORD(ZV_FIELDS_LayerPlaceholderInfo))

#undef ZV_PLAIN_TO_PARAM

}  // namespace kernel
}  // namespace zelva
