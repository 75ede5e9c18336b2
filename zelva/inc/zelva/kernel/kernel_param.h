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
template <class Out, class In>
std::vector<Out> Widen(const std::vector<In>& in) {
  return std::vector<Out>(in.begin(), in.end());
}
inline uint32_t Flag(bool value) {
  return value ? 1u : 0u;
}
}  // namespace param_detail

// ---- Records
// ------------------------------------------------------------------------------------------------

struct InputParam {
  uint32_t location = 0;
};

struct ActivationParam {
  uint32_t activation_type = 0;
  float activation_alpha = 0.0f;
  float activation_beta = 0.0f;
  int32_t num_parameters = 0;
};

struct Conv2dParam {
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
  uint32_t padding_l = 0;
  uint32_t padding_r = 0;
  uint32_t padding_t = 0;
  uint32_t padding_b = 0;
  uint32_t if_bias = 0;
};

// The transposed convolution pads by signed amounts.
struct ConvTranspose2dParam {
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
  int32_t padding_l = 0;
  int32_t padding_r = 0;
  int32_t padding_t = 0;
  int32_t padding_b = 0;
  uint32_t if_bias = 0;
};

struct AvgPool2dParam {
  uint32_t kernel_x = 0;
  uint32_t kernel_y = 0;
  int32_t padding_l = 0;
  int32_t padding_t = 0;
  int32_t padding_r = 0;
  int32_t padding_b = 0;
  uint32_t stride_x = 0;
  uint32_t stride_y = 0;
  uint32_t ceil_mode = 0;
  uint32_t count_include_pad = 0;
};

struct MaxPool2dParam {
  uint32_t kernel_x = 0;
  uint32_t kernel_y = 0;
  int32_t padding_l = 0;
  int32_t padding_t = 0;
  int32_t padding_r = 0;
  int32_t padding_b = 0;
  uint32_t stride_x = 0;
  uint32_t stride_y = 0;
  uint32_t dilation_x = 0;
  uint32_t dilation_y = 0;
  uint32_t ceil_mode = 0;
};

struct InstanceNorm2dParam {
  uint32_t num_features = 0;
  float eps = 0.0f;
  float momentum = 0.0f;
  uint32_t if_affine = 0;
  uint32_t if_track_running_stats = 0;
};

struct BatchNormParam {
  uint32_t num_features = 0;
  float eps = 0.0f;
  float momentum = 0.0f;
  uint32_t if_affine = 0;
  uint32_t if_track_running_stats = 0;
  int32_t num_batches_tracked = 0;
};
using BatchNorm2dParam = BatchNormParam;
using BatchNorm1dParam = BatchNormParam;

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
  uint32_t op_type = 0;
  std::string op_name;  // "Add", "Sub", "Mul", "Div"; empty for any other code (not logged)
};

struct ConcatenateParam {
  uint32_t dim = 0;
};

struct TensorReshapeParam {
  std::vector<int32_t> new_shape;
};

struct TensorTransposeParam {
  std::vector<uint32_t> axes;
};

struct TensorSqueezeParam {
  int32_t dim = 0;
};
using TensorUnSqueezeParam = TensorSqueezeParam;

struct FullConnectionParam {
  uint32_t in_features = 0;
  uint32_t out_features = 0;
  uint32_t if_bias = 0;
};

struct PixelShuffleParam {
  float upscale_factor = 0.0f;
};

struct TensorDimemsionSamplingParam {
  uint32_t sampling_type = 0;
  std::vector<int32_t> data;
};

struct TensorGetItemParam {
  uint32_t num_sampling_infos = 0;
  std::vector<TensorDimemsionSamplingParam> sampling_infos;
};

struct ClipParam {
  float minimum_value = 0.0f;
  float maximum_value = 0.0f;
};

struct SoftmaxParam {
  uint32_t dim = 0;
};

struct RecurrentCellParam {
  uint32_t in_size = 0;
  uint32_t hidden_size = 0;
  uint32_t if_bias = 0;
  // RNN cells only; zero for LSTM and GRU cells.
  uint32_t activation_type = 0;
  float activation_alpha = 0.0f;
  float activation_beta = 0.0f;
};
using RNNCellParam = RecurrentCellParam;
using LSTMCellParam = RecurrentCellParam;
using GRUCellParam = RecurrentCellParam;

struct RecurrentParam {
  uint32_t in_size = 0;
  uint32_t hidden_size = 0;
  uint32_t if_bias = 0;
  uint32_t num_layers = 0;
  uint32_t bidirectional = 0;
  uint32_t complex_rnn_type = 0;
  // RNN layers only; zero for LSTM and GRU layers.
  uint32_t activation_type = 0;
  float activation_alpha = 0.0f;
  float activation_beta = 0.0f;
};
using RNNParam = RecurrentParam;
using LSTMParam = RecurrentParam;
using GRUParam = RecurrentParam;

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
  std::vector<int32_t> new_shape;
};

struct Pad1dParam {
  int32_t padding_l = 0;
  int32_t padding_r = 0;
  float padding_v = 0.0f;
};

struct Pad2dParam {
  int32_t padding_l = 0;
  int32_t padding_t = 0;
  int32_t padding_r = 0;
  int32_t padding_b = 0;
  float padding_v = 0.0f;
};

struct BmmParam {};

struct WarpAffineParam {
  std::string mode;
  std::string padding_mode;
  uint32_t align_corners = 0;
};

struct SoftArgMaxParam {
  float beta = 0.0f;
  std::vector<uint32_t> size;
};

struct SpatialGatherParam {
  float scale = 0.0f;
};

struct LayerPlaceholderParam {
  std::vector<std::vector<uint32_t>> input_shapes;
  std::vector<uint32_t> output_shape;
  std::string desc;
};

// ---- Conversions
// -------------------------------------------------------------------------------------------- Every overload
// takes the description by shared pointer; a null pointer is a caller's error and raises.

inline InputParam ToParam(const std::shared_ptr<runtime::InputInfo>& info) {
  ZV_ASSERT(info != nullptr, "null InputInfo");
  InputParam p;
  p.location = info->location;
  return p;
}

inline ActivationParam ToParam(const std::shared_ptr<runtime::ActivationInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ActivationInfo");
  ActivationParam p;
  p.activation_type = info->activation_type;
  p.activation_alpha = static_cast<float>(info->activation_alpha);
  p.activation_beta = static_cast<float>(info->activation_beta);
  p.num_parameters = info->num_parameters;
  return p;
}

namespace param_detail {
template <class Record, class Info>
Record ConvolutionToParam(const Info& info, const char* kind) {
  ZV_ASSERT(info.groups != 0, "%s %s has groups == 0", kind, info.id.c_str());
  Record p;
  p.kernel_x = info.kernel_x;
  p.kernel_y = info.kernel_y;
  p.stride_x = info.stride_x;
  p.stride_y = info.stride_y;
  p.dilation_x = info.dilation_x;
  p.dilation_y = info.dilation_y;
  p.in_channels = info.in_channels;
  p.out_channels = info.out_channels;
  p.in_channels_per_group = static_cast<uint32_t>(info.in_channels) / info.groups;
  p.out_channels_per_group = static_cast<uint32_t>(info.out_channels) / info.groups;
  p.groups = info.groups;
  p.padding_l = info.padding_l;
  p.padding_r = info.padding_r;
  p.padding_t = info.padding_t;
  p.padding_b = info.padding_b;
  p.if_bias = Flag(info.if_bias);
  return p;
}

// "Add", "Sub", "Mul", "Div" for 0 to 3; empty otherwise.
inline std::string OperatorName(uint32_t code) {
  static const char* const kNames[] = {"Add", "Sub", "Mul", "Div"};
  return code < 4 ? std::string(kNames[code]) : std::string();
}
}  // namespace param_detail

// Raises when groups is 0 (the per-group counts would divide by zero).
inline Conv2dParam ToParam(const std::shared_ptr<runtime::Conv2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Conv2dInfo");
  return param_detail::ConvolutionToParam<Conv2dParam>(*info, "Conv2d");
}

inline ConvTranspose2dParam ToParam(const std::shared_ptr<runtime::ConvTranspose2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ConvTranspose2dInfo");
  return param_detail::ConvolutionToParam<ConvTranspose2dParam>(*info, "ConvTranspose2d");
}

inline AvgPool2dParam ToParam(const std::shared_ptr<runtime::AvgPool2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null AvgPool2dInfo");
  AvgPool2dParam p;
  p.kernel_x = info->kernel_x;
  p.kernel_y = info->kernel_y;
  p.padding_l = info->padding_l;
  p.padding_t = info->padding_t;
  p.padding_r = info->padding_r;
  p.padding_b = info->padding_b;
  p.stride_x = info->stride_x;
  p.stride_y = info->stride_y;
  p.ceil_mode = param_detail::Flag(info->ceil_mode);
  p.count_include_pad = param_detail::Flag(info->count_include_pad);
  return p;
}

inline MaxPool2dParam ToParam(const std::shared_ptr<runtime::MaxPool2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null MaxPool2dInfo");
  MaxPool2dParam p;
  p.kernel_x = info->kernel_x;
  p.kernel_y = info->kernel_y;
  p.padding_l = info->padding_l;
  p.padding_t = info->padding_t;
  p.padding_r = info->padding_r;
  p.padding_b = info->padding_b;
  p.stride_x = info->stride_x;
  p.stride_y = info->stride_y;
  p.dilation_x = info->dilation_x;
  p.dilation_y = info->dilation_y;
  p.ceil_mode = param_detail::Flag(info->ceil_mode);
  return p;
}

inline InstanceNorm2dParam ToParam(const std::shared_ptr<runtime::InstanceNorm2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null InstanceNorm2dInfo");
  InstanceNorm2dParam p;
  p.num_features = info->num_features;
  p.eps = info->eps;
  p.momentum = info->momentum;
  p.if_affine = param_detail::Flag(info->if_affine);
  p.if_track_running_stats = param_detail::Flag(info->if_track_running_stats);
  return p;
}

namespace param_detail {
inline BatchNormParam BatchNormToParam(const runtime::BatchNormInfo& info) {
  BatchNormParam p;
  p.num_features = info.num_features;
  p.eps = info.eps;
  p.momentum = info.momentum;
  p.if_affine = Flag(info.if_affine);
  p.if_track_running_stats = Flag(info.if_track_running_stats);
  p.num_batches_tracked = info.num_batches_tracked;
  return p;
}
}  // namespace param_detail

inline BatchNorm2dParam ToParam(const std::shared_ptr<runtime::BatchNorm2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null BatchNorm2dInfo");
  return param_detail::BatchNormToParam(*info);
}

inline BatchNorm1dParam ToParam(const std::shared_ptr<runtime::BatchNorm1dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null BatchNorm1dInfo");
  return param_detail::BatchNormToParam(*info);
}

// Can fail: an unknown mode logs "Invalid upsample2d type" and leaves `mode` empty.
inline Upsample2dParam ToParam(const std::shared_ptr<runtime::Upsample2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Upsample2dInfo");
  Upsample2dParam p;
  p.scale_factor_y = info->scale_factor_y;
  p.scale_factor_x = info->scale_factor_x;
  p.align_corner = param_detail::Flag(info->align_corner);
  switch (info->unsample_type) {
    case 0:
      p.mode = "Nearest";
      break;
    case 1:
      p.mode = "Bilinear";
      break;
    case 2:
      p.mode = "Bicubic";
      break;
    default:
      ZV_LOG(utility::kLogError, "Invalid upsample2d type");
      break;
  }
  p.scale_width = info->scale_width;
  p.scale_height = info->scale_height;
  return p;
}

// Can fail: a code other than 0 to 3 logs "Invalid element wise type" and leaves `op_name` empty.
inline ElementWiseOperatorParam ToParam(const std::shared_ptr<runtime::ElementWiseOperatorInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ElementWiseOperatorInfo");
  ElementWiseOperatorParam p;
  p.op_name = param_detail::OperatorName(info->op_type);
  if (p.op_name.empty()) ZV_LOG(utility::kLogError, "Invalid element wise type");
  return p;
}

inline BroadcastOperatorParam ToParam(const std::shared_ptr<runtime::BroadcastOperatorInfo>& info) {
  ZV_ASSERT(info != nullptr, "null BroadcastOperatorInfo");
  BroadcastOperatorParam p;
  p.op_type = info->op_type;
  p.op_name = param_detail::OperatorName(info->op_type);
  return p;
}

inline ConcatenateParam ToParam(const std::shared_ptr<runtime::ConcatenateInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ConcatenateInfo");
  ConcatenateParam p;
  p.dim = info->dim;
  return p;
}

inline TensorReshapeParam ToParam(const std::shared_ptr<runtime::TensorReshapeInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorReshapeInfo");
  TensorReshapeParam p;
  p.new_shape = param_detail::Widen<int32_t>(info->new_shape);
  return p;
}

inline TensorTransposeParam ToParam(const std::shared_ptr<runtime::TensorTransposeInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorTransposeInfo");
  TensorTransposeParam p;
  p.axes = param_detail::Widen<uint32_t>(info->axes);
  return p;
}

inline TensorSqueezeParam ToParam(const std::shared_ptr<runtime::TensorSqueezeInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorSqueezeInfo");
  TensorSqueezeParam p;
  p.dim = info->dim;
  return p;
}

inline TensorUnSqueezeParam ToParam(const std::shared_ptr<runtime::TensorUnSqueezeInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorUnSqueezeInfo");
  TensorUnSqueezeParam p;
  p.dim = info->dim;
  return p;
}

inline FullConnectionParam ToParam(const std::shared_ptr<runtime::FullConnectionInfo>& info) {
  ZV_ASSERT(info != nullptr, "null FullConnectionInfo");
  FullConnectionParam p;
  p.in_features = info->in_features;
  p.out_features = info->out_features;
  p.if_bias = param_detail::Flag(info->if_bias);
  return p;
}

inline PixelShuffleParam ToParam(const std::shared_ptr<runtime::PixelShuffleInfo>& info) {
  ZV_ASSERT(info != nullptr, "null PixelShuffleInfo");
  PixelShuffleParam p;
  p.upscale_factor = info->upscale_factor;
  return p;
}

inline TensorGetItemParam ToParam(const std::shared_ptr<runtime::TensorGetItemInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorGetItemInfo");
  TensorGetItemParam p;
  p.num_sampling_infos = info->num_sampling_infos;
  p.sampling_infos.reserve(info->sampling_infos.size());
  for (const auto& s : info->sampling_infos) {
    TensorDimemsionSamplingParam sp;
    sp.sampling_type = s.sampling_type;
    sp.data = param_detail::Widen<int32_t>(s.data);
    p.sampling_infos.push_back(std::move(sp));
  }
  return p;
}

inline ClipParam ToParam(const std::shared_ptr<runtime::ClipInfo>& info) {
  ZV_ASSERT(info != nullptr, "null ClipInfo");
  ClipParam p;
  p.minimum_value = static_cast<float>(info->minimum_value);
  p.maximum_value = static_cast<float>(info->maximum_value);
  return p;
}

inline SoftmaxParam ToParam(const std::shared_ptr<runtime::SoftmaxInfo>& info) {
  ZV_ASSERT(info != nullptr, "null SoftmaxInfo");
  SoftmaxParam p;
  p.dim = info->dim;
  return p;
}

namespace param_detail {
inline RecurrentCellParam CellToParam(const runtime::RecurrentCellInfo& info) {
  RecurrentCellParam p;
  p.in_size = info.in_size;
  p.hidden_size = info.hidden_size;
  p.if_bias = Flag(info.if_bias);
  return p;
}
inline RecurrentParam StackToParam(const runtime::RecurrentInfo& info) {
  RecurrentParam p;
  p.in_size = info.in_size;
  p.hidden_size = info.hidden_size;
  p.if_bias = Flag(info.if_bias);
  p.num_layers = info.num_layers;
  p.bidirectional = Flag(info.bidirectional);
  p.complex_rnn_type = info.complex_rnn_type;
  return p;
}
}  // namespace param_detail

inline RNNCellParam ToParam(const std::shared_ptr<runtime::RNNCellInfo>& info) {
  ZV_ASSERT(info != nullptr, "null RNNCellInfo");
  RNNCellParam p = param_detail::CellToParam(*info);
  p.activation_type = info->activation_type;
  p.activation_alpha = static_cast<float>(info->activation_alpha);
  p.activation_beta = static_cast<float>(info->activation_beta);
  return p;
}

inline LSTMCellParam ToParam(const std::shared_ptr<runtime::LSTMCellInfo>& info) {
  ZV_ASSERT(info != nullptr, "null LSTMCellInfo");
  return param_detail::CellToParam(*info);
}

inline GRUCellParam ToParam(const std::shared_ptr<runtime::GRUCellInfo>& info) {
  ZV_ASSERT(info != nullptr, "null GRUCellInfo");
  return param_detail::CellToParam(*info);
}

inline RNNParam ToParam(const std::shared_ptr<runtime::RNNInfo>& info) {
  ZV_ASSERT(info != nullptr, "null RNNInfo");
  RNNParam p = param_detail::StackToParam(*info);
  p.activation_type = info->activation_type;
  p.activation_alpha = static_cast<float>(info->activation_alpha);
  p.activation_beta = static_cast<float>(info->activation_beta);
  return p;
}

inline LSTMParam ToParam(const std::shared_ptr<runtime::LSTMInfo>& info) {
  ZV_ASSERT(info != nullptr, "null LSTMInfo");
  return param_detail::StackToParam(*info);
}

inline GRUParam ToParam(const std::shared_ptr<runtime::GRUInfo>& info) {
  ZV_ASSERT(info != nullptr, "null GRUInfo");
  return param_detail::StackToParam(*info);
}

// Raises when groups is 0 (the per-group counts would divide by zero).
inline Conv1dParam ToParam(const std::shared_ptr<runtime::Conv1dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Conv1dInfo");
  ZV_ASSERT(info->groups != 0, "Conv1d %s has groups == 0", info->id.c_str());
  Conv1dParam p;
  p.kernel_size = info->kernel_size;
  p.stride = info->stride;
  p.dilation = info->dilation;
  p.in_channels = info->in_channels;
  p.out_channels = info->out_channels;
  p.in_channels_per_group = static_cast<uint32_t>(info->in_channels) / info->groups;
  p.out_channels_per_group = static_cast<uint32_t>(info->out_channels) / info->groups;
  p.groups = info->groups;
  p.padding_f = info->padding_f;
  p.padding_b = info->padding_b;
  p.if_bias = param_detail::Flag(info->if_bias);
  return p;
}

inline TensorExpandParam ToParam(const std::shared_ptr<runtime::TensorExpandInfo>& info) {
  ZV_ASSERT(info != nullptr, "null TensorExpandInfo");
  TensorExpandParam p;
  p.new_shape = param_detail::Widen<int32_t>(info->new_shape);
  return p;
}

inline Pad1dParam ToParam(const std::shared_ptr<runtime::Pad1dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Pad1dInfo");
  Pad1dParam p;
  p.padding_l = info->padding_l;
  p.padding_r = info->padding_r;
  p.padding_v = info->padding_v;
  return p;
}

inline Pad2dParam ToParam(const std::shared_ptr<runtime::Pad2dInfo>& info) {
  ZV_ASSERT(info != nullptr, "null Pad2dInfo");
  Pad2dParam p;
  p.padding_l = info->padding_l;
  p.padding_t = info->padding_t;
  p.padding_r = info->padding_r;
  p.padding_b = info->padding_b;
  p.padding_v = info->padding_v;
  return p;
}

inline BmmParam ToParam(const std::shared_ptr<runtime::BmmInfo>& info) {
  ZV_ASSERT(info != nullptr, "null BmmInfo");
  return BmmParam();
}

inline WarpAffineParam ToParam(const std::shared_ptr<runtime::WarpAffineInfo>& info) {
  ZV_ASSERT(info != nullptr, "null WarpAffineInfo");
  WarpAffineParam p;
  p.mode = info->mode;
  p.padding_mode = info->padding_mode;
  p.align_corners = param_detail::Flag(info->align_corners);
  return p;
}

inline SoftArgMaxParam ToParam(const std::shared_ptr<runtime::SoftArgMaxInfo>& info) {
  ZV_ASSERT(info != nullptr, "null SoftArgMaxInfo");
  SoftArgMaxParam p;
  p.beta = info->beta;
  p.size = param_detail::Widen<uint32_t>(info->size);
  return p;
}

inline SpatialGatherParam ToParam(const std::shared_ptr<runtime::SpatialGatherInfo>& info) {
  ZV_ASSERT(info != nullptr, "null SpatialGatherInfo");
  SpatialGatherParam p;
  p.scale = info->scale;
  return p;
}

inline LayerPlaceholderParam ToParam(const std::shared_ptr<runtime::LayerPlaceholderInfo>& info) {
  ZV_ASSERT(info != nullptr, "null LayerPlaceholderInfo");
  LayerPlaceholderParam p;
  p.input_shapes.reserve(info->input_shapes.size());
  for (const auto& s : info->input_shapes) p.input_shapes.push_back(param_detail::Widen<uint32_t>(s));
  p.output_shape = param_detail::Widen<uint32_t>(info->output_shape);
  p.desc = info->desc;
  return p;
}

}  // namespace kernel
}  // namespace zelva
