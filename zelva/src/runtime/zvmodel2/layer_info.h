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

class LayerInfo : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t type = kLayerUnset;
  std::string id = " ";
  std::vector<std::string> input_ids;
  uint16_t read_count = 0;
};

// Sets `type` to the kind's number; `kType` names it for code that checks a description's kind.
template <uint16_t kKind, class Base = LayerInfo>
class LayerKind : public Base {
 public:
  static constexpr uint16_t kType = kKind;
  LayerKind() { this->type = kKind; }
};

// ---- Field sets shared by several kinds -------------------------------------------------------------------

template <class Padding>
class ConvolutionInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t in_channels = 0;
  uint16_t out_channels = 0;
  uint16_t kernel_x = 0;
  uint16_t kernel_y = 0;
  Padding padding_l = 0;
  Padding padding_t = 0;
  Padding padding_r = 0;
  Padding padding_b = 0;
  uint16_t stride_x = 1;
  uint16_t stride_y = 1;
  uint16_t dilation_x = 1;
  uint16_t dilation_y = 1;
  uint16_t groups = 0;
  bool if_bias = false;
  std::string weight;  // weight data, "GNCHW": [groups, out/groups, in/groups, kernel_y, kernel_x]
  std::string bias;    // weight data; visited whatever if_bias says, empty without bias
};

class BatchNormInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t num_features = 0;
  float eps = 1e-5f;
  float momentum = 0.1f;
  bool if_affine = true;
  bool if_track_running_stats = true;
  std::string scale;                 // weight data
  std::string shift;                 // weight data
  std::string variance;              // weight data
  std::string mean;                  // weight data
  int32_t num_batches_tracked = -1;  // files of protocol 20005 and later
};

class ElementOperatorInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint16_t op_type = 0;
};

class NewShapeInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::vector<int16_t> new_shape;
};

class SignedDimInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t dim = 0;
};

class UnsignedDimInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint16_t dim = 0;
};

// Single-step recurrent cells. RNNCellInfo adds its activation between "if_bias" and the weights.
class RecurrentCellInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t in_size = 0;
  uint16_t hidden_size = 0;
  bool if_bias = false;
  std::string weight_ih;  // weight data
  std::string weight_hh;  // weight data
  std::string bias_ih;    // weight data
  std::string bias_hh;    // weight data

 protected:
  virtual void VisitActivation(std::shared_ptr<Visitor>&) {}
};

// Stacked recurrent layers: one entry per stacked layer in each weight list. RNNInfo adds its activation
// between "if_bias" and "num_layers".
class RecurrentInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t in_size = 0;
  uint16_t hidden_size = 0;
  bool if_bias = false;
  uint16_t num_layers = 0;
  bool bidirectional = false;
  uint16_t complex_rnn_type = 0;
  std::vector<std::string> weight_ih_forward;  // weight lists
  std::vector<std::string> weight_hh_forward;
  std::vector<std::string> bias_ih_forward;
  std::vector<std::string> bias_hh_forward;
  std::vector<std::string> weight_ih_reverse;
  std::vector<std::string> weight_hh_reverse;
  std::vector<std::string> bias_ih_reverse;
  std::vector<std::string> bias_hh_reverse;

 protected:
  virtual void VisitActivation(std::shared_ptr<Visitor>&) {}
};

// ---- The kinds
// ---------------------------------------------------------------------------------------------

class InputInfo final : public LayerKind<kLayerInput> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint16_t location = 0;  // 16 bits wide in files
};

class ActivationInfo final : public LayerKind<kLayerActivation> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t activation_type = 0;
  half activation_alpha = half(half::FromBits, 0x3C00);  // 1.0
  half activation_beta = half(half::FromBits, 0x0000);
  int16_t num_parameters = 1;  // files of protocol above 20011
  std::string weight;          // a plain string, not weight data; files of protocol above 20011
};

class Conv2dInfo final : public LayerKind<kLayerConv2d, ConvolutionInfo<uint16_t>> {};
class ConvTranspose2dInfo final : public LayerKind<kLayerConvTranspose2d, ConvolutionInfo<int16_t>> {};

class AvgPool2dInfo final : public LayerKind<kLayerAvgPool2d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t kernel_x = 0;
  uint16_t kernel_y = 0;
  int16_t padding_l = 0;
  int16_t padding_t = 0;
  int16_t padding_r = 0;
  int16_t padding_b = 0;
  uint16_t stride_x = 0;
  uint16_t stride_y = 0;
  bool ceil_mode = false;
  bool count_include_pad = false;
};

class MaxPool2dInfo final : public LayerKind<kLayerMaxPool2d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t kernel_x = 0;
  uint16_t kernel_y = 0;
  int16_t padding_l = 0;
  int16_t padding_t = 0;
  int16_t padding_r = 0;
  int16_t padding_b = 0;
  uint16_t stride_x = 0;
  uint16_t stride_y = 0;
  uint16_t dilation_x = 0;
  uint16_t dilation_y = 0;
  bool ceil_mode = false;
};

class InstanceNorm2dInfo final : public LayerKind<kLayerInstanceNorm2d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t num_features = 0;
  float eps = 1e-5f;
  float momentum = 0.1f;
  bool if_affine = false;
  bool if_track_running_stats = false;
  std::string scale;  // weight data
  std::string shift;  // weight data
};

class BatchNorm2dInfo final : public LayerKind<kLayerBatchNorm2d, BatchNormInfo> {};

class Upsample2dInfo final : public LayerKind<kLayerUpsample2d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  float scale_factor_y = 0.0f;
  float scale_factor_x = 0.0f;
  bool align_corner = false;
  uint16_t unsample_type = 0;
  // Files of protocol above 20015 only; for older files these stay 0 and mean nothing.
  float scale_width = 0.0f;
  float scale_height = 0.0f;
};

class ElementWiseOperatorInfo final : public LayerKind<kLayerElementWiseOperator, ElementOperatorInfo> {};
class ConcatenateInfo final : public LayerKind<kLayerConcatenate, UnsignedDimInfo> {};
class TensorReshapeInfo final : public LayerKind<kLayerTensorReshape, NewShapeInfo> {};

class TensorTransposeInfo final : public LayerKind<kLayerTensorTranspose> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::vector<uint16_t> axes;
};

class TensorSqueezeInfo final : public LayerKind<kLayerTensorSqueeze, SignedDimInfo> {};
class TensorUnSqueezeInfo final : public LayerKind<kLayerTensorUnSqueeze, SignedDimInfo> {};

class FullConnectionInfo final : public LayerKind<kLayerFullConnection> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t in_features = 0;
  uint16_t out_features = 0;
  bool if_bias = false;
  std::string weight;  // weight data, always visited
  std::string bias;    // weight data, always visited
};

class PixelShuffleInfo final : public LayerKind<kLayerPixelShuffle> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  float upscale_factor = 0.0f;
};

// One dimension's sampling of a TensorGetItemInfo; no kind of its own.
class TensorDimemsionSamplingInfo final : public Serializable {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint16_t sampling_type = 0;
  std::vector<int16_t> data;
};

// "num_sampling_infos", then that many nested TensorDimemsionSamplingInfo under the keys "0", "1", ...
// The list follows the count: a writer sets num_sampling_infos to the number of entries it means to write.
class TensorGetItemInfo final : public LayerKind<kLayerTensorGetItem> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  uint16_t num_sampling_infos = 0;
  std::vector<TensorDimemsionSamplingInfo> sampling_infos;
};

class BroadcastOperatorInfo final : public LayerKind<kLayerBroadcastOperator, ElementOperatorInfo> {};
class BatchNorm1dInfo final : public LayerKind<kLayerBatchNorm1d, BatchNormInfo> {};

class ClipInfo final : public LayerKind<kLayerClip> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  half minimum_value = half(half::FromBits, 0x0000);
  half maximum_value = half(half::FromBits, 0x0000);
};

class SoftmaxInfo final : public LayerKind<kLayerSoftmax, UnsignedDimInfo> {};

class RNNCellInfo final : public LayerKind<kLayerRNNCell, RecurrentCellInfo> {
 public:
  uint16_t activation_type = 0;
  half activation_alpha = half(half::FromBits, 0x0000);
  half activation_beta = half(half::FromBits, 0x0000);

 protected:
  void VisitActivation(std::shared_ptr<Visitor>& visitor) override;
};

class RNNInfo final : public LayerKind<kLayerRNN, RecurrentInfo> {
 public:
  uint16_t activation_type = 0;
  half activation_alpha = half(half::FromBits, 0x0000);
  half activation_beta = half(half::FromBits, 0x0000);

 protected:
  void VisitActivation(std::shared_ptr<Visitor>& visitor) override;
};

class LSTMCellInfo final : public LayerKind<kLayerLSTMCell, RecurrentCellInfo> {};
class LSTMInfo final : public LayerKind<kLayerLSTM, RecurrentInfo> {};
class GRUCellInfo final : public LayerKind<kLayerGRUCell, RecurrentCellInfo> {};
class GRUInfo final : public LayerKind<kLayerGRU, RecurrentInfo> {};

class Conv1dInfo final : public LayerKind<kLayerConv1d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;

  uint16_t in_channels = 0;
  uint16_t out_channels = 0;
  uint16_t kernel_size = 0;
  uint16_t padding_f = 0;  // in front of the signal
  uint16_t padding_b = 0;  // behind it
  uint16_t stride = 1;
  uint16_t dilation = 1;
  uint16_t groups = 1;
  bool if_bias = false;
  std::string weight;  // weight data
  std::string bias;    // weight data
};

class TensorExpandInfo final : public LayerKind<kLayerTensorExpand, NewShapeInfo> {};

class Pad1dInfo final : public LayerKind<kLayerPad1d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t padding_l = 0;
  int16_t padding_r = 0;
  float padding_v = 0.0f;
};

class Pad2dInfo final : public LayerKind<kLayerPad2d> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  int16_t padding_l = 0;
  int16_t padding_t = 0;
  int16_t padding_r = 0;
  int16_t padding_b = 0;
  float padding_v = 0.0f;
};

class BmmInfo final : public LayerKind<kLayerBmm> {};

class WarpAffineInfo final : public LayerKind<kLayerWarpAffine> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::string mode;  // free strings that the kernel compares
  std::string padding_mode;
  bool align_corners = false;
};

class SoftArgMaxInfo final : public LayerKind<kLayerSoftArgMax> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  float beta = 0.0f;
  std::vector<uint16_t> size;
};

class SpatialGatherInfo final : public LayerKind<kLayerSpatialGather> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  float scale = 0.0f;
};

// Declared shapes and a free description; no kernel of its own.
class LayerPlaceholderInfo final : public LayerKind<kLayerPlaceholder> {
 public:
  void VisitAttr(std::shared_ptr<Visitor>& visitor) override;
  std::vector<std::vector<uint16_t>> input_shapes;
  std::vector<uint16_t> output_shape;
  std::string desc;
};

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
