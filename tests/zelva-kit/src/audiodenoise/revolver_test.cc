// The fused network: its memory layout, loading from a model (and refusing a broken one), and the exp-free
// stages of whole blocks pinned bit for bit. The stream against PyTorch (fixtures of
// tools/gen_denoise_model.py), and resets, are driven through the public entries in
// denoise_network_api_test.cc.
#include "zelva-kit/src/audiodenoise/revolver.h"
#include "support/files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"
#include "zelva/src/utility/logging.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {
namespace {

using ::testing::HasSubstr;
using zelva::runtime::Conv2dInfo;
using zelva::runtime::EncodeWeights;
using zelva::runtime::FullConnectionInfo;
using zelva::runtime::GRUInfo;
using zelva::runtime::ZVModelInfo;
using Floats = std::vector<float>;

Floats Fill(size_t n, float value) {
  return Floats(n, value);
}
std::string Encode(const Floats& v) {
  return EncodeWeights(v.data(), v.size());
}

// A model holding the thirteen layers, every weight `value`; `edit` may change a layer before it is added, or
// return false to drop it.
std::shared_ptr<ZVModelInfo> MakeModel(
    float value, const std::function<bool(zelva::runtime::LayerInfo&)>& edit = nullptr) {
  auto model = std::make_shared<ZVModelInfo>();
  auto add = [&](std::shared_ptr<zelva::runtime::LayerInfo> layer) {
    if (!edit || edit(*layer)) model->AddLayer(layer);
  };
  struct Conv {
    const char* id;
    size_t weights, biases;
  };
  for (const Conv& c :
       {Conv{"1", 9, 1}, Conv{"2", 16, 16}, Conv{"4", 16, 16}, Conv{"7", 144, 16}, Conv{"8", 256, 16},
        Conv{"10", 256, 16}, Conv{"13", 144, 16}, Conv{"14", 16, 1}, Conv{"16", 16, 1}}) {
    auto layer = std::make_shared<Conv2dInfo>();
    layer->id = c.id;
    layer->weight = Encode(Fill(c.weights, value));
    layer->bias = Encode(Fill(c.biases, value));
    add(layer);
  }
  for (const char* id : {"20", "21", "22"}) {
    auto layer = std::make_shared<GRUInfo>();
    layer->id = id;
    layer->weight_ih_forward = {Encode(Fill(768 * (layer->id == "20" ? 74 : 256), value))};
    layer->weight_hh_forward = {Encode(Fill(768 * 256, value))};
    layer->bias_ih_forward = {Encode(Fill(768, value))};
    layer->bias_hh_forward = {Encode(Fill(768, value))};
    add(layer);
  }
  auto dense = std::make_shared<FullConnectionInfo>();
  dense->id = "24";
  dense->weight = Encode(Fill(80 * 256, value));
  dense->bias = Encode(Fill(80, value));
  add(dense);
  return model;
}

// The fixtures of tools/gen_denoise_model.py: the bundled network (trained weights, half precision), input
// blocks and the outputs PyTorch gave for them streaming from a zero state.
using zvtest::ReadFloats;

std::shared_ptr<ZVModelInfo> FixtureModel() {
  auto model = std::make_shared<ZVModelInfo>();
  model->FromFile(std::string(ZELVA_TEST_DATA_DIR) + "/../../models/denoise.zvmod", "bin");
  return model;
}

// One block through the fused network, the 80 values copied out as the engine does.
Floats RunBlock(Revolver& net, const Floats& x, const void** data = nullptr) {
  HyperspecificTensorMap outputs;
  std::vector<HyperspecificTensor> inputs(1);
  inputs[0].shape = {1, 7, 80};
  inputs[0].element_size = 4;
  inputs[0].data = x.data();
  net.Forward(outputs, inputs, false);
  EXPECT_EQ(outputs.size(), 1u);
  const HyperspecificTensor& out = outputs["25"];
  EXPECT_EQ(out.shape, std::vector<int32_t>{80});
  EXPECT_EQ(out.element_size, 4u);
  if (data != nullptr) *data = out.data;
  Floats y(80);
  std::memcpy(y.data(), out.data, 320);
  return y;
}

// The exception's text and the log line the assertion delivered.
std::string FailureOf(const std::function<void()>& f) {
  static std::string lines;
  lines.clear();
  const zelva::utility::LogCallback previous = zelva::utility::GetLogCallback();
  zelva::utility::SetLogCallback([](const char* text) -> int32_t {
    lines += text;
    return 0;
  });
  std::string result = "<no failure>";
  try {
    f();
  } catch (const std::runtime_error& e) {
    result = std::string(e.what()) + " | " + lines;
  }
  zelva::utility::SetLogCallback(previous);
  return result;
}

// ---- Tests
// -----------------------------------------------------------------------------------------------------

TEST(Revolver, RegionsTileTheBlockInOrderOnSixteenByteBoundaries) {
  const Revolver net(MakeModel(0.0f));
  // Floats each region must hold at least.
  const size_t used[Revolver::kRegionCount] = {
      9,      1,      16,    16,     16,  16,  144, 16,    256, 16,     256,    16,   144,  16,  16,  1,
      16,     1,      56832, 196608, 768, 768, 256, 768,   768, 196608, 196608, 768,  768,  256, 768, 768,
      196608, 196608, 768,   768,    256, 768, 768, 20480, 80,  256,    6240,   6240, 6240, 74,  74,  390};
  const char* base = static_cast<const char*>(net.storage());
  size_t offset = 0;
  std::set<std::string> names;
  for (size_t i = 0; i < Revolver::kRegionCount; ++i) {
    const Revolver::Region& r = Revolver::kRegions[i];
    EXPECT_TRUE(names.insert(r.name).second) << r.name;
    EXPECT_EQ(reinterpret_cast<const char*>(net.region(i)), base + offset) << r.name;
    EXPECT_EQ(offset % 16, 0u) << r.name;
    EXPECT_GE(r.capacity, used[i] * sizeof(float)) << r.name;
    offset += r.capacity;
  }
  EXPECT_EQ(offset, 4364960u);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(base) % 16, 0u);
}

// Everything of a block that does not pass through exp or tanh, pinned bit for bit over the fixture's
// stream: the packed weights, the three convolution stages (left in the planes and gates) and the first GRU
// layer's input product. The vector exp and tanh may differ by processor; the rest may not change.
uint32_t Fnv1a(const float* p, size_t bytes, uint32_t h) {
  const unsigned char* b = reinterpret_cast<const unsigned char*>(p);
  for (size_t i = 0; i < bytes; ++i) {
    h ^= b[i];
    h *= 16777619u;
  }
  return h;
}

TEST(Revolver, ExpFreeStagesArePinnedBitForBit) {
  const Floats inputs = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
  ASSERT_EQ(inputs.size(), 60u * 560);
  Revolver net(FixtureModel(), RevolverVariant{});  // the reference keeps every weight in its fp32 region
  auto hash_regions = [&](std::initializer_list<const char*> names, uint32_t h) {
    for (const char* name : names) {
      size_t i = 0;
      while (i < Revolver::kRegionCount && Revolver::kRegions[i].name != std::string(name)) ++i;
      EXPECT_LT(i, Revolver::kRegionCount) << name;
      if (i < Revolver::kRegionCount) h = Fnv1a(net.region(i), Revolver::kRegions[i].capacity, h);
    }
    return h;
  };
  uint32_t h =
      hash_regions({"layer1_weight",  "layer1_bias",    "layer2_weight",  "layer2_bias",   "layer4_weight",
                    "layer4_bias",    "layer7_weight",  "layer7_bias",    "layer8_weight", "layer8_bias",
                    "layer10_weight", "layer10_bias",   "layer13_weight", "layer13_bias",  "layer14_weight",
                    "layer14_bias",   "layer16_weight", "layer16_bias",   "gru20_w_ih",    "gru20_b_ih"},
                   2166136261u);
  EXPECT_EQ(h, 0x61D6CA32u) << "weights";
  const void* first_data = nullptr;
  for (size_t b = 0; b < 60; ++b) {
    const void* data = nullptr;
    RunBlock(net, Floats(inputs.begin() + b * 560, inputs.begin() + (b + 1) * 560), &data);
    if (b == 0) first_data = data;
    EXPECT_EQ(data, first_data) << "the output stays in place";
    h = hash_regions({"plane_a", "plane_b", "plane_c", "gate_a", "gate_b", "gru20_gates_x"}, h);
  }
  EXPECT_EQ(h, 0xA9E8DFEAu) << "stages";
}

TEST(Revolver, LayersBeyondTheThirteenAreIgnored) {
  std::shared_ptr<ZVModelInfo> model = FixtureModel();
  auto extra = std::make_shared<Conv2dInfo>();
  extra->id = "26";
  model->AddLayer(extra);
  Revolver a(model), b(FixtureModel());
  const Floats x = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
  ASSERT_GE(x.size(), 560u);
  const Floats block(x.begin(), x.begin() + 560);
  EXPECT_EQ(RunBlock(a, block), RunBlock(b, block));
}

TEST(Revolver, BrokenModelsFailConstructionWithAClearMessage) {
  auto build = [&](const std::function<bool(zelva::runtime::LayerInfo&)>& edit) {
    return FailureOf([&] { Revolver net(MakeModel(0.5f, edit)); });
  };
  EXPECT_THAT(FailureOf([] { Revolver net(nullptr); }), HasSubstr("needs a model"));
  EXPECT_THAT(build([](zelva::runtime::LayerInfo& l) { return l.id != "13"; }),
              HasSubstr("Layer [13] not found in model."));
  EXPECT_THAT(build([](zelva::runtime::LayerInfo& l) { return l.id != "24"; }),
              HasSubstr("Layer [24] not found in model."));
  // Short data: a conv weight, a conv bias, a GRU matrix, a missing GRU entry, the dense bias.
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "8") static_cast<Conv2dInfo&>(l).weight = Encode(Fill(255, 1.0f));
                return true;
              }),
              HasSubstr("Layer [8] field weight holds 255 floats, 256 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "1") static_cast<Conv2dInfo&>(l).bias.clear();
                return true;
              }),
              HasSubstr("Layer [1] field bias holds 0 floats, 1 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "21") static_cast<GRUInfo&>(l).weight_hh_forward = {Encode(Fill(1000, 1.0f))};
                return true;
              }),
              HasSubstr("Layer [21] field weight_hh_forward holds 1000 floats, 196608 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "20") static_cast<GRUInfo&>(l).bias_ih_forward.clear();
                return true;
              }),
              HasSubstr("Layer [20] field bias_ih_forward holds no entry."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "24") static_cast<FullConnectionInfo&>(l).bias = Encode(Fill(79, 1.0f));
                return true;
              }),
              HasSubstr("Layer [24] field bias holds 79 floats, 80 needed."));
  // A layer of another kind under one of the keys.
  std::shared_ptr<ZVModelInfo> model =
      MakeModel(0.5f, [](zelva::runtime::LayerInfo& l) { return l.id != "22"; });
  auto wrong = std::make_shared<Conv2dInfo>();
  wrong->id = "22";
  model->AddLayer(wrong);
  EXPECT_THAT(FailureOf([&] { Revolver net(model); }), HasSubstr("Layer [22] is not of the expected kind."));
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
