#include "zelva/src/runtime/zvmodel2/layer_info.h"

#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace runtime {

// Protocol versions from which gated fields are present in a file.
namespace {
constexpr uint32_t kActivationParametersAbove = 20011;
constexpr uint32_t kBatchesTrackedFrom = 20005;
constexpr uint32_t kUpsampleScaleSizeAbove = 20015;
}  // namespace

void VisitWeightField(std::shared_ptr<Visitor>& visitor, std::string& field, const std::string& name) {
  if (auto* own = dynamic_cast<WeightFieldVisitor*>(visitor.get())) {
    own->VisitWeightData(field, name);
    return;
  }
  VisitWeightData(visitor, field, name);
}

void VisitWeightListField(std::shared_ptr<Visitor>& visitor, std::vector<std::string>& field,
                          const std::string& name) {
  if (auto* own = dynamic_cast<WeightFieldVisitor*>(visitor.get())) {
    own->VisitWeightList(field, name);
    return;
  }
  VisitWeightList(visitor, field, name);
}

void LayerInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(type, "type");
  visitor->Visit(id, "id");
  visitor->Visit(input_ids, "input_ids");
  visitor->Visit(read_count, "read_count");
}

// ---- Shared field sets
// --------------------------------------------------------------------------------------

template <class Padding>
void ConvolutionInfo<Padding>::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(in_channels, "in_channels");
  visitor->Visit(out_channels, "out_channels");
  visitor->Visit(kernel_x, "kernel_x");
  visitor->Visit(kernel_y, "kernel_y");
  visitor->Visit(padding_l, "padding_l");
  visitor->Visit(padding_t, "padding_t");
  visitor->Visit(padding_r, "padding_r");
  visitor->Visit(padding_b, "padding_b");
  visitor->Visit(stride_x, "stride_x");
  visitor->Visit(stride_y, "stride_y");
  visitor->Visit(dilation_x, "dilation_x");
  visitor->Visit(dilation_y, "dilation_y");
  visitor->Visit(groups, "groups");
  visitor->Visit(if_bias, "if_bias");
  VisitWeightField(visitor, weight, "weight");
  VisitWeightField(visitor, bias, "bias");
}

template class ConvolutionInfo<uint16_t>;
template class ConvolutionInfo<int16_t>;

void BatchNormInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(num_features, "num_features");
  visitor->Visit(eps, "eps");
  visitor->Visit(momentum, "momentum");
  visitor->Visit(if_affine, "if_affine");
  visitor->Visit(if_track_running_stats, "if_track_running_stats");
  VisitWeightField(visitor, scale, "scale");
  VisitWeightField(visitor, shift, "shift");
  VisitWeightField(visitor, variance, "variance");
  VisitWeightField(visitor, mean, "mean");
  if (visitor->serialization_protocol_version >= kBatchesTrackedFrom) {
    visitor->Visit(num_batches_tracked, "num_batches_tracked");
  }
}

void ElementOperatorInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(op_type, "op_type");
}

void NewShapeInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(new_shape, "new_shape");
}

void SignedDimInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(dim, "dim");
}

void UnsignedDimInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(dim, "dim");
}

void RecurrentCellInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(in_size, "in_size");
  visitor->Visit(hidden_size, "hidden_size");
  visitor->Visit(if_bias, "if_bias");
  VisitActivation(visitor);
  VisitWeightField(visitor, weight_ih, "weight_ih");
  VisitWeightField(visitor, weight_hh, "weight_hh");
  VisitWeightField(visitor, bias_ih, "bias_ih");
  VisitWeightField(visitor, bias_hh, "bias_hh");
}

void RecurrentInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(in_size, "in_size");
  visitor->Visit(hidden_size, "hidden_size");
  visitor->Visit(if_bias, "if_bias");
  VisitActivation(visitor);
  visitor->Visit(num_layers, "num_layers");
  visitor->Visit(bidirectional, "bidirectional");
  visitor->Visit(complex_rnn_type, "complex_rnn_type");
  VisitWeightListField(visitor, weight_ih_forward, "weight_ih_forward");
  VisitWeightListField(visitor, weight_hh_forward, "weight_hh_forward");
  VisitWeightListField(visitor, bias_ih_forward, "bias_ih_forward");
  VisitWeightListField(visitor, bias_hh_forward, "bias_hh_forward");
  VisitWeightListField(visitor, weight_ih_reverse, "weight_ih_reverse");
  VisitWeightListField(visitor, weight_hh_reverse, "weight_hh_reverse");
  VisitWeightListField(visitor, bias_ih_reverse, "bias_ih_reverse");
  VisitWeightListField(visitor, bias_hh_reverse, "bias_hh_reverse");
}

// ---- Kinds with fields of their own
// ----------------------------------------------------------------------------

void InputInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(location, "location");
}

void ActivationInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
  if (visitor->serialization_protocol_version > kActivationParametersAbove) {
    visitor->Visit(num_parameters, "num_parameters");
    visitor->Visit(weight, "weight");
  }
}

void AvgPool2dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(kernel_x, "kernel_x");
  visitor->Visit(kernel_y, "kernel_y");
  visitor->Visit(padding_l, "padding_l");
  visitor->Visit(padding_t, "padding_t");
  visitor->Visit(padding_r, "padding_r");
  visitor->Visit(padding_b, "padding_b");
  visitor->Visit(stride_x, "stride_x");
  visitor->Visit(stride_y, "stride_y");
  visitor->Visit(ceil_mode, "ceil_mode");
  visitor->Visit(count_include_pad, "count_include_pad");
}

void MaxPool2dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(kernel_x, "kernel_x");
  visitor->Visit(kernel_y, "kernel_y");
  visitor->Visit(padding_l, "padding_l");
  visitor->Visit(padding_t, "padding_t");
  visitor->Visit(padding_r, "padding_r");
  visitor->Visit(padding_b, "padding_b");
  visitor->Visit(stride_x, "stride_x");
  visitor->Visit(stride_y, "stride_y");
  visitor->Visit(dilation_x, "dilation_x");
  visitor->Visit(dilation_y, "dilation_y");
  visitor->Visit(ceil_mode, "ceil_mode");
}

void InstanceNorm2dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(num_features, "num_features");
  visitor->Visit(eps, "eps");
  visitor->Visit(momentum, "momentum");
  visitor->Visit(if_affine, "if_affine");
  visitor->Visit(if_track_running_stats, "if_track_running_stats");
  VisitWeightField(visitor, scale, "scale");
  VisitWeightField(visitor, shift, "shift");
}

void Upsample2dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(scale_factor_y, "scale_factor_y");
  visitor->Visit(scale_factor_x, "scale_factor_x");
  visitor->Visit(align_corner, "align_corner");
  visitor->Visit(unsample_type, "unsample_type");
  if (visitor->serialization_protocol_version > kUpsampleScaleSizeAbove) {
    visitor->Visit(scale_width, "scale_width");
    visitor->Visit(scale_height, "scale_height");
  }
}

void TensorTransposeInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(axes, "axes");
}

void FullConnectionInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(in_features, "in_features");
  visitor->Visit(out_features, "out_features");
  visitor->Visit(if_bias, "if_bias");
  VisitWeightField(visitor, weight, "weight");
  VisitWeightField(visitor, bias, "bias");
}

void PixelShuffleInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(upscale_factor, "upscale_factor");
}

void TensorDimemsionSamplingInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  Serializable::VisitAttr(visitor);
  visitor->Visit(sampling_type, "sampling_type");
  visitor->Visit(data, "data");
}

void TensorGetItemInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(num_sampling_infos, "num_sampling_infos");
  if (sampling_infos.size() != num_sampling_infos) sampling_infos.resize(num_sampling_infos);
  for (size_t i = 0; i < sampling_infos.size(); ++i) visitor->Visit(sampling_infos[i], std::to_string(i));
}

void ClipInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(minimum_value, "minimum_value");
  visitor->Visit(maximum_value, "maximum_value");
}

void RNNCellInfo::VisitActivation(std::shared_ptr<Visitor>& visitor) {
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
}

void RNNInfo::VisitActivation(std::shared_ptr<Visitor>& visitor) {
  visitor->Visit(activation_type, "activation_type");
  visitor->Visit(activation_alpha, "activation_alpha");
  visitor->Visit(activation_beta, "activation_beta");
}

void Conv1dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(in_channels, "in_channels");
  visitor->Visit(out_channels, "out_channels");
  visitor->Visit(kernel_size, "kernel_size");
  visitor->Visit(padding_f, "padding_f");
  visitor->Visit(padding_b, "padding_b");
  visitor->Visit(stride, "stride");
  visitor->Visit(dilation, "dilation");
  visitor->Visit(groups, "groups");
  visitor->Visit(if_bias, "if_bias");
  VisitWeightField(visitor, weight, "weight");
  VisitWeightField(visitor, bias, "bias");
}

void Pad1dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(padding_l, "padding_l");
  visitor->Visit(padding_r, "padding_r");
  visitor->Visit(padding_v, "padding_v");
}

void Pad2dInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(padding_l, "padding_l");
  visitor->Visit(padding_t, "padding_t");
  visitor->Visit(padding_r, "padding_r");
  visitor->Visit(padding_b, "padding_b");
  visitor->Visit(padding_v, "padding_v");
}

void WarpAffineInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(mode, "mode");
  visitor->Visit(padding_mode, "padding_mode");
  visitor->Visit(align_corners, "align_corners");
}

void SoftArgMaxInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(beta, "beta");
  visitor->Visit(size, "size");
}

void SpatialGatherInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(scale, "scale");
}

void LayerPlaceholderInfo::VisitAttr(std::shared_ptr<Visitor>& visitor) {
  LayerInfo::VisitAttr(visitor);
  visitor->Visit(input_shapes, "input_shapes");
  visitor->Visit(output_shape, "output_shape");
  visitor->Visit(desc, "desc");
}

// ---- Kind table
// -------------------------------------------------------------------------------------------------

std::shared_ptr<LayerInfo> CreateLayerInfo(uint16_t type) {
  switch (type) {
#define ZV_CREATE_KIND(Class) \
  case Class::kType:          \
    return std::make_shared<Class>();
    ZV_LAYER_INFO_KINDS(ZV_CREATE_KIND)
#undef ZV_CREATE_KIND
    default:
      return nullptr;
  }
}

std::string LayerInfoClassName(uint16_t type) {
  switch (type) {
#define ZV_NAME_KIND(Class) \
  case Class::kType:        \
    return #Class;
    ZV_LAYER_INFO_KINDS(ZV_NAME_KIND)
#undef ZV_NAME_KIND
    default:
      return std::string();
  }
}

}  // namespace runtime
}  // namespace zelva
