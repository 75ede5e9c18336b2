#include "zelva/src/runtime/zvmodel2/layer_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "zelva/src/runtime/zvmodel2/script_visitor.h"

namespace zelva {
namespace runtime {
namespace {

using zvtest::Parse;
using zvtest::ScriptVisitor;
using zvtest::Visited;

// The file layout of every kind, written out by hand: "key:tag" in visit order, after the common head.
struct KindLayout {
  uint16_t id;
  const char* name;
  const char* fields;
};

const KindLayout kKinds[] = {
    {0, "InputInfo", "location:u16"},
    {1, "ActivationInfo",
     "activation_type:u16 activation_alpha:half activation_beta:half num_parameters:i16 weight:str"},
    {2, "Conv2dInfo",
     "in_channels:u16 out_channels:u16 kernel_x:u16 kernel_y:u16 padding_l:u16 padding_t:u16 padding_r:u16 "
     "padding_b:u16 stride_x:u16 stride_y:u16 dilation_x:u16 dilation_y:u16 groups:u16 if_bias:bool "
     "weight:weight bias:weight"},
    {3, "ConvTranspose2dInfo",
     "in_channels:u16 out_channels:u16 kernel_x:u16 kernel_y:u16 padding_l:i16 padding_t:i16 padding_r:i16 "
     "padding_b:i16 stride_x:u16 stride_y:u16 dilation_x:u16 dilation_y:u16 groups:u16 if_bias:bool "
     "weight:weight bias:weight"},
    {6, "AvgPool2dInfo",
     "kernel_x:u16 kernel_y:u16 padding_l:i16 padding_t:i16 padding_r:i16 padding_b:i16 stride_x:u16 "
     "stride_y:u16 ceil_mode:bool count_include_pad:bool"},
    {7, "MaxPool2dInfo",
     "kernel_x:u16 kernel_y:u16 padding_l:i16 padding_t:i16 padding_r:i16 padding_b:i16 stride_x:u16 "
     "stride_y:u16 dilation_x:u16 dilation_y:u16 ceil_mode:bool"},
    {8, "InstanceNorm2dInfo",
     "num_features:u16 eps:f32 momentum:f32 if_affine:bool if_track_running_stats:bool scale:weight "
     "shift:weight"},
    {9, "BatchNorm2dInfo",
     "num_features:u16 eps:f32 momentum:f32 if_affine:bool if_track_running_stats:bool scale:weight "
     "shift:weight variance:weight mean:weight num_batches_tracked:i32"},
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
    {30, "BatchNorm1dInfo",
     "num_features:u16 eps:f32 momentum:f32 if_affine:bool if_track_running_stats:bool scale:weight "
     "shift:weight variance:weight mean:weight num_batches_tracked:i32"},
    {31, "ClipInfo", "minimum_value:half maximum_value:half"},
    {32, "SoftmaxInfo", "dim:u16"},
    {33, "RNNCellInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool activation_type:u16 activation_alpha:half "
     "activation_beta:half "
     "weight_ih:weight weight_hh:weight bias_ih:weight bias_hh:weight"},
    {34, "RNNInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool activation_type:u16 activation_alpha:half "
     "activation_beta:half "
     "num_layers:u16 bidirectional:bool complex_rnn_type:u16 weight_ih_forward:weights "
     "weight_hh_forward:weights "
     "bias_ih_forward:weights bias_hh_forward:weights weight_ih_reverse:weights weight_hh_reverse:weights "
     "bias_ih_reverse:weights bias_hh_reverse:weights"},
    {35, "LSTMCellInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool weight_ih:weight weight_hh:weight bias_ih:weight "
     "bias_hh:weight"},
    {36, "LSTMInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool num_layers:u16 bidirectional:bool complex_rnn_type:u16 "
     "weight_ih_forward:weights weight_hh_forward:weights bias_ih_forward:weights bias_hh_forward:weights "
     "weight_ih_reverse:weights weight_hh_reverse:weights bias_ih_reverse:weights bias_hh_reverse:weights"},
    {37, "GRUCellInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool weight_ih:weight weight_hh:weight bias_ih:weight "
     "bias_hh:weight"},
    {38, "GRUInfo",
     "in_size:u16 hidden_size:u16 if_bias:bool num_layers:u16 bidirectional:bool complex_rnn_type:u16 "
     "weight_ih_forward:weights weight_hh_forward:weights bias_ih_forward:weights bias_hh_forward:weights "
     "weight_ih_reverse:weights weight_hh_reverse:weights bias_ih_reverse:weights bias_hh_reverse:weights"},
    {40, "Conv1dInfo",
     "in_channels:u16 out_channels:u16 kernel_size:u16 padding_f:u16 padding_b:u16 stride:u16 dilation:u16 "
     "groups:u16 if_bias:bool weight:weight bias:weight"},
    {41, "TensorExpandInfo", "new_shape:vec<i16>"},
    {42, "Pad1dInfo", "padding_l:i16 padding_r:i16 padding_v:f32"},
    {43, "Pad2dInfo", "padding_l:i16 padding_t:i16 padding_r:i16 padding_b:i16 padding_v:f32"},
    {44, "BmmInfo", ""},
    {47, "WarpAffineInfo", "mode:str padding_mode:str align_corners:bool"},
    {48, "SoftArgMaxInfo", "beta:f32 size:vec<u16>"},
    {49, "SpatialGatherInfo", "scale:f32"},
    {252, "LayerPlaceholderInfo", "input_shapes:vec<vec<u16>> output_shape:vec<u16> desc:str"},
};

std::vector<Visited> Expected(const KindLayout& kind) {
  std::vector<Visited> out = Parse("serializable_type:str type:u16 id:str input_ids:vec<str> read_count:u16");
  for (const Visited& v : Parse(kind.fields)) out.push_back(v);
  return out;
}

uint32_t Bits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, 4);
  return b;
}

// A value the walk saw, as text, for the types of the gated fields.
std::string RecordOf(const ScriptVisitor& visitor, const std::string& path) {
  const std::any& a = visitor.seen.at(path);
  if (const auto* x = std::any_cast<int16_t>(&a)) return std::to_string(*x);
  if (const auto* x = std::any_cast<int32_t>(&a)) return std::to_string(*x);
  if (const auto* x = std::any_cast<float>(&a)) return std::to_string(*x);
  if (const auto* x = std::any_cast<std::string>(&a)) return "'" + *x + "'";
  return "?";
}

const KindLayout& Kind(uint16_t id) {
  for (const KindLayout& k : kKinds)
    if (k.id == id) return k;
  throw std::out_of_range("no such kind");
}

TEST(LayerInfo, EveryKindVisitsItsFieldsInFileOrder) {
  for (const KindLayout& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    std::shared_ptr<LayerInfo> info = CreateLayerInfo(kind.id);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->type, kind.id);
    EXPECT_EQ(info->GetTypeName(), kind.name);
    EXPECT_EQ(LayerInfoClassName(kind.id), kind.name);

    auto v = ScriptVisitor::Walk(*info);
    EXPECT_EQ(v->visits, Expected(kind));
    EXPECT_EQ(v->Seen<std::string>("serializable_type"), kind.name);
    EXPECT_EQ(info->serializable_type, kind.name);
  }
}

TEST(LayerInfo, NumbersWithoutKindMakeNothing) {
  std::set<uint16_t> assigned;
  for (const KindLayout& kind : kKinds) assigned.insert(kind.id);
  for (uint32_t t = 0; t <= 0xFFFF; ++t) {
    if (assigned.count(t)) continue;
    ASSERT_EQ(CreateLayerInfo(static_cast<uint16_t>(t)), nullptr) << t;
    ASSERT_EQ(LayerInfoClassName(static_cast<uint16_t>(t)), "") << t;
  }
}

// Gated fields: absent from the walk of the newest protocol without them (keeping the constructor's value
// whatever the script offers), present from the next one on. Every other kind walks alike at any version.
TEST(LayerInfo, VersionGatesSkipLaterFieldsOfOlderFiles) {
  struct Gate {
    uint16_t kind;
    uint32_t last_without;
    std::map<std::string, std::any> offered;  // each gated field, with a value other than its default
  };
  const Gate gates[] = {
      {kLayerActivation, 20011, {{"num_parameters", int16_t{5}}, {"weight", std::string("x")}}},
      {kLayerBatchNorm2d, 20004, {{"num_batches_tracked", int32_t{7}}}},
      {kLayerBatchNorm1d, 20004, {{"num_batches_tracked", int32_t{7}}}},
      {kLayerUpsample2d, 20015, {{"scale_width", 2.0f}, {"scale_height", 3.0f}}},
  };
  std::set<uint16_t> gated;
  for (const Gate& gate : gates) {
    gated.insert(gate.kind);
    SCOPED_TRACE(Kind(gate.kind).name);
    auto older = CreateLayerInfo(gate.kind);
    const auto defaults = ScriptVisitor::Walk(*CreateLayerInfo(gate.kind));
    const auto old_walk = ScriptVisitor::Walk(*older, gate.last_without, gate.offered);
    std::vector<Visited> expected;
    for (const Visited& v : Expected(Kind(gate.kind)))
      if (gate.offered.count(v.path) == 0) expected.push_back(v);
    EXPECT_EQ(old_walk->visits, expected);
    const auto kept = ScriptVisitor::Walk(*older);
    auto newer = CreateLayerInfo(gate.kind);
    const auto new_walk = ScriptVisitor::Walk(*newer, gate.last_without + 1, gate.offered);
    EXPECT_EQ(new_walk->visits, Expected(Kind(gate.kind)));
    for (const auto& field : gate.offered) {
      EXPECT_EQ(RecordOf(*kept, field.first), RecordOf(*defaults, field.first)) << field.first;
      EXPECT_NE(RecordOf(*new_walk, field.first), RecordOf(*defaults, field.first)) << field.first;
    }
  }
  for (const KindLayout& kind : kKinds) {
    if (gated.count(kind.id)) continue;
    auto info = CreateLayerInfo(kind.id);
    EXPECT_EQ(ScriptVisitor::Walk(*info, 20000)->visits, Expected(kind)) << kind.name;
  }
}

// The constructor values that differ from zero: what a fresh description holds, and what a binary file of an
// older protocol leaves in gated fields.
TEST(LayerInfo, ConstructorDefaults) {
  LayerInfo base;
  EXPECT_EQ(base.type, 0xFFFF);
  EXPECT_EQ(base.id, " ");
  ActivationInfo act;
  EXPECT_EQ(act.activation_alpha.bits(), 0x3C00);
  EXPECT_EQ(act.num_parameters, 1);
  Conv2dInfo conv;
  EXPECT_EQ(conv.stride_x + conv.stride_y + conv.dilation_x + conv.dilation_y, 4);
  EXPECT_EQ(conv.groups, 0);
  Conv1dInfo conv1d;
  EXPECT_EQ(conv1d.stride + conv1d.dilation + conv1d.groups, 3);
  InstanceNorm2dInfo in;
  BatchNorm1dInfo bn;
  for (float eps : {in.eps, bn.eps}) EXPECT_EQ(Bits(eps), 0x3727C5ACu);
  for (float momentum : {in.momentum, bn.momentum}) EXPECT_EQ(Bits(momentum), 0x3DCCCCCDu);
  EXPECT_FALSE(in.if_affine || in.if_track_running_stats);
  EXPECT_TRUE(bn.if_affine && bn.if_track_running_stats);
  EXPECT_EQ(bn.num_batches_tracked, -1);
}

TEST(LayerInfo, GetItemListFollowsTheCount) {
  TensorGetItemInfo item;
  auto v = ScriptVisitor::Walk(item, 20018,
                               {{"num_sampling_infos", std::any(uint16_t{2})},
                                {"1/sampling_type", std::any(uint16_t{5})},
                                {"1/data", std::any(std::vector<int16_t>{0, -1, 2})}});
  ASSERT_EQ(item.sampling_infos.size(), 2u);
  EXPECT_EQ(item.sampling_infos[0].sampling_type, 0);
  EXPECT_EQ(item.sampling_infos[1].sampling_type, 5);
  EXPECT_EQ(item.sampling_infos[1].data, (std::vector<int16_t>{0, -1, 2}));

  std::vector<Visited> tail(v->visits.begin() + 6, v->visits.end());
  const std::vector<Visited> expected = {
      {"object", "0"}, {"str", "0/serializable_type"}, {"u16", "0/sampling_type"}, {"vec<i16>", "0/data"},
      {"object", "1"}, {"str", "1/serializable_type"}, {"u16", "1/sampling_type"}, {"vec<i16>", "1/data"}};
  EXPECT_EQ(tail, expected);
  EXPECT_EQ(v->Seen<std::string>("1/serializable_type"), "TensorDimemsionSamplingInfo");

  // A smaller count shrinks the list; entries that stay keep their values.
  ScriptVisitor::Walk(item, 20018, {{"num_sampling_infos", std::any(uint16_t{1})}});
  ASSERT_EQ(item.sampling_infos.size(), 1u);
  item.sampling_infos[0].sampling_type = 9;
  ScriptVisitor::Walk(item, 20018, {{"num_sampling_infos", std::any(uint16_t{3})}});
  ASSERT_EQ(item.sampling_infos.size(), 3u);
  EXPECT_EQ(item.sampling_infos[0].sampling_type, 9);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
