#include "zelva/src/runtime/zvmodel2/layer_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <sstream>

#include "zelva/src/runtime/zvmodel2/script_visitor.h"

namespace zelva {
namespace runtime {
namespace {

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

std::vector<Visited> Parse(const std::string& fields) {
  std::vector<Visited> out;
  std::istringstream in(fields);
  std::string item;
  while (in >> item) {
    const size_t colon = item.find(':');
    out.push_back({item.substr(colon + 1), item.substr(0, colon)});
  }
  return out;
}

std::vector<Visited> Expected(const KindLayout& kind) {
  std::vector<Visited> out = Parse("serializable_type:str type:u16 id:str input_ids:vec<str> read_count:u16");
  for (const Visited& v : Parse(kind.fields)) out.push_back(v);
  return out;
}

std::vector<Visited> Without(std::vector<Visited> visits, const std::set<std::string>& keys) {
  std::vector<Visited> out;
  for (const Visited& v : visits)
    if (keys.count(v.path) == 0) out.push_back(v);
  return out;
}

uint32_t Bits(float f) {
  uint32_t b;
  std::memcpy(&b, &f, 4);
  return b;
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
  ASSERT_EQ(assigned.size(), 37u);
  for (uint32_t t = 0; t <= 0xFFFF; ++t) {
    if (assigned.count(t)) continue;
    ASSERT_EQ(CreateLayerInfo(static_cast<uint16_t>(t)), nullptr) << t;
    ASSERT_EQ(LayerInfoClassName(static_cast<uint16_t>(t)), "") << t;
  }
}

TEST(LayerInfo, VersionGatesSkipLaterFieldsOfOlderFiles) {
  struct Gate {
    uint16_t kind;
    uint32_t last_without;  // newest protocol that lacks the fields
    std::set<std::string> fields;
  };
  const Gate gates[] = {
      {1, 20011, {"num_parameters", "weight"}},
      {9, 20004, {"num_batches_tracked"}},
      {30, 20004, {"num_batches_tracked"}},
      {10, 20015, {"scale_width", "scale_height"}},
  };
  for (const Gate& gate : gates) {
    const KindLayout* kind = nullptr;
    for (const KindLayout& k : kKinds)
      if (k.id == gate.kind) kind = &k;
    ASSERT_NE(kind, nullptr);
    SCOPED_TRACE(kind->name);
    auto older = CreateLayerInfo(gate.kind);
    EXPECT_EQ(ScriptVisitor::Walk(*older, gate.last_without)->visits, Without(Expected(*kind), gate.fields));
    auto newer = CreateLayerInfo(gate.kind);
    EXPECT_EQ(ScriptVisitor::Walk(*newer, gate.last_without + 1)->visits, Expected(*kind));
  }
  // Every other kind reads the same at the oldest protocol considered.
  for (const KindLayout& kind : kKinds) {
    if (kind.id == 1 || kind.id == 9 || kind.id == 30 || kind.id == 10) continue;
    auto info = CreateLayerInfo(kind.id);
    EXPECT_EQ(ScriptVisitor::Walk(*info, 20000)->visits, Expected(kind)) << kind.name;
  }
}

TEST(LayerInfo, OlderFilesKeepTheDefaultsOfGatedFields) {
  ActivationInfo act;
  ScriptVisitor::Walk(act, 20011,
                      {{"num_parameters", std::any(int16_t{5})}, {"weight", std::any(std::string("x"))}});
  EXPECT_EQ(act.num_parameters, 1);
  EXPECT_EQ(act.weight, "");
  ScriptVisitor::Walk(act, 20012,
                      {{"num_parameters", std::any(int16_t{5})}, {"weight", std::any(std::string("x"))}});
  EXPECT_EQ(act.num_parameters, 5);
  EXPECT_EQ(act.weight, "x");

  BatchNorm2dInfo bn;
  ScriptVisitor::Walk(bn, 20004, {{"num_batches_tracked", std::any(int32_t{7})}});
  EXPECT_EQ(bn.num_batches_tracked, -1);
  ScriptVisitor::Walk(bn, 20005, {{"num_batches_tracked", std::any(int32_t{7})}});
  EXPECT_EQ(bn.num_batches_tracked, 7);
}

TEST(LayerInfo, ConstructorDefaults) {
  LayerInfo base;
  EXPECT_EQ(base.type, 0xFFFF);
  EXPECT_EQ(base.id, " ");
  EXPECT_TRUE(base.input_ids.empty());
  EXPECT_EQ(base.read_count, 0);

  ActivationInfo act;
  EXPECT_EQ(act.activation_type, 0);
  EXPECT_EQ(act.activation_alpha.bits(), 0x3C00);
  EXPECT_EQ(act.activation_beta.bits(), 0x0000);
  EXPECT_EQ(act.num_parameters, 1);
  EXPECT_EQ(act.weight, "");

  Conv2dInfo conv;
  EXPECT_EQ(conv.stride_x, 1);
  EXPECT_EQ(conv.stride_y, 1);
  EXPECT_EQ(conv.dilation_x, 1);
  EXPECT_EQ(conv.dilation_y, 1);
  EXPECT_EQ(conv.groups, 0);
  EXPECT_EQ(conv.padding_l, 0);
  EXPECT_FALSE(conv.if_bias);

  Conv1dInfo conv1d;
  EXPECT_EQ(conv1d.stride, 1);
  EXPECT_EQ(conv1d.dilation, 1);
  EXPECT_EQ(conv1d.groups, 1);

  InstanceNorm2dInfo in;
  EXPECT_EQ(Bits(in.eps), 0x3727C5ACu);
  EXPECT_EQ(Bits(in.momentum), 0x3DCCCCCDu);
  EXPECT_FALSE(in.if_affine);
  EXPECT_FALSE(in.if_track_running_stats);

  BatchNorm2dInfo bn2;
  BatchNorm1dInfo bn1;
  for (BatchNormInfo* bn : {static_cast<BatchNormInfo*>(&bn2), static_cast<BatchNormInfo*>(&bn1)}) {
    EXPECT_EQ(Bits(bn->eps), 0x3727C5ACu);
    EXPECT_EQ(Bits(bn->momentum), 0x3DCCCCCDu);
    EXPECT_TRUE(bn->if_affine);
    EXPECT_TRUE(bn->if_track_running_stats);
    EXPECT_EQ(bn->num_batches_tracked, -1);
  }
}

// Equal values of the same type, for the listed types.
template <class... T>
bool AnyEqual(const std::any& a, const std::any& b) {
  bool same = false;
  ((std::any_cast<T>(&a) != nullptr && (same = *std::any_cast<T>(&a) == *std::any_cast<T>(&b))), ...);
  return same;
}

// Every field gets a value of its own from the script; a second walk must see each value under its own key,
// so no two keys share a member and no key reads into the wrong place.
TEST(LayerInfo, EachKeyOwnsItsField) {
  for (const KindLayout& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    std::map<std::string, std::any> script;
    int n = 1;
    for (const Visited& v : Expected(kind)) {
      if (v.path == "serializable_type" || v.path == "type" || v.path == "num_sampling_infos") continue;
      ++n;
      if (v.tag == "u16") script[v.path] = static_cast<uint16_t>(n);
      if (v.tag == "i16") script[v.path] = static_cast<int16_t>(-n);
      if (v.tag == "i32") script[v.path] = static_cast<int32_t>(n * 1000);
      if (v.tag == "f32") script[v.path] = static_cast<float>(n) + 0.5f;
      if (v.tag == "half") script[v.path] = half(half::FromBits, static_cast<uint16_t>(0x3C00 + n));
      if (v.tag == "bool") script[v.path] = (n % 2) == 0;
      if (v.tag == "str" || v.tag == "weight") script[v.path] = "text" + std::to_string(n);
      if (v.tag == "vec<str>" || v.tag == "weights")
        script[v.path] = std::vector<std::string>{"a" + std::to_string(n), "b"};
      if (v.tag == "vec<i16>") script[v.path] = std::vector<int16_t>{static_cast<int16_t>(n), -1};
      if (v.tag == "vec<u16>") script[v.path] = std::vector<uint16_t>{static_cast<uint16_t>(n), 3};
      if (v.tag == "vec<vec<u16>>")
        script[v.path] = std::vector<std::vector<uint16_t>>{{static_cast<uint16_t>(n)}, {}};
      ASSERT_TRUE(script.count(v.path)) << "no value for tag " << v.tag;
    }
    auto info = CreateLayerInfo(kind.id);
    ScriptVisitor::Walk(*info, __SERIALIZATION_PROTOCOL_VERSION__, script);
    auto again = ScriptVisitor::Walk(*info);
    for (const auto& entry : script) {
      const std::any& seen = again->seen.at(entry.first);
      ASSERT_EQ(seen.type(), entry.second.type()) << entry.first;
      const bool same =
          AnyEqual<uint16_t, int16_t, int32_t, float, half, bool, std::string, std::vector<std::string>,
                   std::vector<int16_t>, std::vector<uint16_t>, std::vector<std::vector<uint16_t>>>(
              seen, entry.second);
      EXPECT_TRUE(same) << entry.first;
    }
  }
}

// Keys reach the members of the same name (a consistent swap of two keys would pass the test above).
TEST(LayerInfo, KeysReachTheirNamedMembers) {
  Conv2dInfo conv;
  ScriptVisitor::Walk(conv, 20018,
                      {{"kernel_x", std::any(uint16_t{3})},
                       {"kernel_y", std::any(uint16_t{5})},
                       {"padding_l", std::any(uint16_t{1})},
                       {"padding_t", std::any(uint16_t{2})},
                       {"padding_r", std::any(uint16_t{3})},
                       {"padding_b", std::any(uint16_t{4})},
                       {"in_channels", std::any(uint16_t{16})},
                       {"out_channels", std::any(uint16_t{8})},
                       {"weight", std::any(std::string("W"))},
                       {"bias", std::any(std::string("B"))}});
  EXPECT_EQ(conv.kernel_x, 3);
  EXPECT_EQ(conv.kernel_y, 5);
  EXPECT_EQ(conv.padding_l, 1);
  EXPECT_EQ(conv.padding_t, 2);
  EXPECT_EQ(conv.padding_r, 3);
  EXPECT_EQ(conv.padding_b, 4);
  EXPECT_EQ(conv.in_channels, 16);
  EXPECT_EQ(conv.out_channels, 8);
  EXPECT_EQ(conv.weight, "W");
  EXPECT_EQ(conv.bias, "B");

  GRUInfo gru;
  using Strings = std::vector<std::string>;
  ScriptVisitor::Walk(gru, 20018,
                      {{"in_size", std::any(uint16_t{74})},
                       {"hidden_size", std::any(uint16_t{256})},
                       {"weight_ih_forward", std::any(Strings{"wi"})},
                       {"weight_hh_forward", std::any(Strings{"wh"})},
                       {"bias_ih_forward", std::any(Strings{"bi"})},
                       {"bias_hh_forward", std::any(Strings{"bh"})}});
  EXPECT_EQ(gru.in_size, 74);
  EXPECT_EQ(gru.hidden_size, 256);
  EXPECT_EQ(gru.weight_ih_forward, Strings{"wi"});
  EXPECT_EQ(gru.weight_hh_forward, Strings{"wh"});
  EXPECT_EQ(gru.bias_ih_forward, Strings{"bi"});
  EXPECT_EQ(gru.bias_hh_forward, Strings{"bh"});

  BatchNorm1dInfo bn;
  ScriptVisitor::Walk(bn, 20018,
                      {{"scale", std::any(std::string("s"))},
                       {"shift", std::any(std::string("h"))},
                       {"variance", std::any(std::string("v"))},
                       {"mean", std::any(std::string("m"))}});
  EXPECT_EQ(bn.scale, "s");
  EXPECT_EQ(bn.shift, "h");
  EXPECT_EQ(bn.variance, "v");
  EXPECT_EQ(bn.mean, "m");

  Upsample2dInfo up;
  ScriptVisitor::Walk(up, 20018,
                      {{"scale_factor_y", std::any(2.0f)},
                       {"scale_factor_x", std::any(3.0f)},
                       {"scale_width", std::any(4.0f)},
                       {"scale_height", std::any(5.0f)}});
  EXPECT_EQ(up.scale_factor_y, 2.0f);
  EXPECT_EQ(up.scale_factor_x, 3.0f);
  EXPECT_EQ(up.scale_width, 4.0f);
  EXPECT_EQ(up.scale_height, 5.0f);
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
