#include "zelva/src/runtime/zvmodel2/layer_info.h"

#include <gtest/gtest.h>

#include <set>

#include "zelva/src/runtime/zvmodel2/field_visitors.h"

namespace zelva {
namespace runtime {
namespace {

using zvtest::FieldWalker;

// The file layout of every kind, written out by hand: "key:tag" in visit order, after the common head.
const std::string kConv = "kernel_x:u16 kernel_y:u16 ";
const std::string kConvTail =
    "stride_x:u16 stride_y:u16 dilation_x:u16 dilation_y:u16 groups:u16 if_bias:bool weight:weight "
    "bias:weight";
const std::string kPadU = "padding_l:u16 padding_t:u16 padding_r:u16 padding_b:u16 ";
const std::string kPadI = "padding_l:i16 padding_t:i16 padding_r:i16 padding_b:i16 ";
const std::string kNorm =
    "num_features:u16 eps:f32 momentum:f32 if_affine:bool if_track_running_stats:bool scale:weight "
    "shift:weight";
const std::string kBatchNorm = kNorm + " variance:weight mean:weight num_batches_tracked:i32";
const std::string kAct = "activation_type:u16 activation_alpha:half activation_beta:half ";
const std::string kRecurrent = "in_size:u16 hidden_size:u16 if_bias:bool ";
const std::string kCellWeights = "weight_ih:weight weight_hh:weight bias_ih:weight bias_hh:weight";
const std::string kStack = "num_layers:u16 bidirectional:bool complex_rnn_type:u16 ";
const std::string kStackWeights =
    "weight_ih_forward:weights weight_hh_forward:weights bias_ih_forward:weights bias_hh_forward:weights "
    "weight_ih_reverse:weights weight_hh_reverse:weights bias_ih_reverse:weights bias_hh_reverse:weights";

const struct {
  uint16_t id;
  const char* name;
  std::string fields;
} kKinds[] = {
    {0, "InputInfo", "location:u16"},
    {1, "ActivationInfo", kAct + "num_parameters:i16 weight:str"},
    {2, "Conv2dInfo", "in_channels:u16 out_channels:u16 " + kConv + kPadU + kConvTail},
    {3, "ConvTranspose2dInfo", "in_channels:u16 out_channels:u16 " + kConv + kPadI + kConvTail},
    {6, "AvgPool2dInfo", kConv + kPadI + "stride_x:u16 stride_y:u16 ceil_mode:bool count_include_pad:bool"},
    {7, "MaxPool2dInfo",
     kConv + kPadI + "stride_x:u16 stride_y:u16 dilation_x:u16 dilation_y:u16 ceil_mode:bool"},
    {8, "InstanceNorm2dInfo", kNorm},
    {9, "BatchNorm2dInfo", kBatchNorm},
    {10, "Upsample2dInfo",
     "scale_factor_y:f32 scale_factor_x:f32 align_corner:bool unsample_type:u16 scale_width:f32 "
     "scale_height:f32"},
    {11, "ElementWiseOperatorInfo", "op_type:u16"},
    {12, "ConcatenateInfo", "dim:u16"},
    {13, "TensorReshapeInfo", "new_shape:vec<i16>"},
    {14, "TensorTransposeInfo", "axes:vec<u16>"},
    {15, "TensorSqueezeInfo", "dim:i16"},
    {16, "TensorUnSqueezeInfo", "dim:i16"},
    {17, "FullConnectionInfo", "in_features:u16 out_features:u16 if_bias:bool weight:weight bias:weight"},
    {21, "PixelShuffleInfo", "upscale_factor:f32"},
    {22, "TensorGetItemInfo", "num_sampling_infos:u16"},
    {29, "BroadcastOperatorInfo", "op_type:u16"},
    {30, "BatchNorm1dInfo", kBatchNorm},
    {31, "ClipInfo", "minimum_value:half maximum_value:half"},
    {32, "SoftmaxInfo", "dim:u16"},
    {33, "RNNCellInfo", kRecurrent + kAct + kCellWeights},
    {34, "RNNInfo", kRecurrent + kAct + kStack + kStackWeights},
    {35, "LSTMCellInfo", kRecurrent + kCellWeights},
    {36, "LSTMInfo", kRecurrent + kStack + kStackWeights},
    {37, "GRUCellInfo", kRecurrent + kCellWeights},
    {38, "GRUInfo", kRecurrent + kStack + kStackWeights},
    {40, "Conv1dInfo",
     "in_channels:u16 out_channels:u16 kernel_size:u16 padding_f:u16 padding_b:u16 stride:u16 dilation:u16 "
     "groups:u16 if_bias:bool weight:weight bias:weight"},
    {41, "TensorExpandInfo", "new_shape:vec<i16>"},
    {42, "Pad1dInfo", "padding_l:i16 padding_r:i16 padding_v:f32"},
    {43, "Pad2dInfo", kPadI + "padding_v:f32"},
    {44, "BmmInfo", ""},
    {47, "WarpAffineInfo", "mode:str padding_mode:str align_corners:bool"},
    {48, "SoftArgMaxInfo", "beta:f32 size:vec<u16>"},
    {49, "SpatialGatherInfo", "scale:f32"},
    {252, "LayerPlaceholderInfo", "input_shapes:vec<vec<u16>> output_shape:vec<u16> desc:str"},
};

// Every number names the listed kind, with its class and its fields in file order, or none at all.
TEST(LayerInfo, EveryKindVisitsItsFieldsInFileOrder) {
  std::set<uint16_t> assigned;
  for (const auto& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    assigned.insert(kind.id);
    std::shared_ptr<LayerInfo> info = CreateLayerInfo(kind.id);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->type, kind.id);
    EXPECT_EQ(LayerInfoClassName(kind.id), kind.name);
    auto walk = FieldWalker::Walk(*info);
    const std::string head = "serializable_type:str type:u16 id:str input_ids:vec<str> read_count:u16";
    EXPECT_EQ(walk->Fields(), kind.fields.empty() ? head : head + " " + kind.fields);
    EXPECT_EQ(walk->Value("serializable_type"), "'" + std::string(kind.name) + "'");
  }
  for (uint32_t t = 0; t <= 0xFFFF; ++t) {
    if (assigned.count(t)) continue;
    ASSERT_EQ(CreateLayerInfo(static_cast<uint16_t>(t)), nullptr) << t;
    ASSERT_EQ(LayerInfoClassName(static_cast<uint16_t>(t)), "") << t;
  }
}

TEST(LayerInfo, GetItemListFollowsTheCount) {
  TensorGetItemInfo item;
  auto walk = FieldWalker::Walk(item, 20018,
                                {{"num_sampling_infos", uint16_t{2}},
                                 {"1/sampling_type", uint16_t{5}},
                                 {"1/data", std::vector<int16_t>{0, -1, 2}}});
  ASSERT_EQ(item.sampling_infos.size(), 2u);
  EXPECT_EQ(item.sampling_infos[1].data, (std::vector<int16_t>{0, -1, 2}));
  EXPECT_EQ(walk->Fields().substr(walk->Fields().find("num_sampling_infos")),
            "num_sampling_infos:u16 0:object 1:object");
  EXPECT_EQ(walk->Fields("1/"), "serializable_type:str sampling_type:u16 data:vec<i16>");
  EXPECT_EQ(walk->Value("1/serializable_type"), "'TensorDimemsionSamplingInfo'");

  // A smaller count shrinks the list; entries that stay keep their values.
  FieldWalker::Walk(item, 20018, {{"num_sampling_infos", uint16_t{1}}});
  ASSERT_EQ(item.sampling_infos.size(), 1u);
  item.sampling_infos[0].sampling_type = 9;
  FieldWalker::Walk(item, 20018, {{"num_sampling_infos", uint16_t{3}}});
  ASSERT_EQ(item.sampling_infos.size(), 3u);
  EXPECT_EQ(item.sampling_infos[0].sampling_type, 9);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
