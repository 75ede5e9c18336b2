// The fused network: its memory layout, loading from a model (and refusing a broken one), and whole blocks
// against a plain double-precision rendering of the same network.
#include "zelva-kit/src/audiodenoise/revolver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
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

// The weights of the network in the model's own layouts.
struct Weights {
  Floats w1, b1, w2, b2, w4, b4, w7, b7, w8, b8, w10, b10, w13, b13, w14, b14, w16, b16;
  Floats gru_w_ih[3], gru_w_hh[3], gru_b_ih[3], gru_b_hh[3];
  Floats w24, b24;

  static Weights Random(uint32_t seed) {
    std::mt19937 rng(seed);
    auto r = [&](size_t n, float scale) {
      std::uniform_real_distribution<float> d(-scale, scale);
      Floats v(n);
      for (float& x : v) x = d(rng);
      return v;
    };
    Weights w;
    w.w1 = r(9, 0.6f), w.b1 = r(1, 0.3f);
    w.w2 = r(16, 1.5f), w.b2 = r(16, 1.0f), w.w4 = r(16, 1.5f), w.b4 = r(16, 0.5f);
    w.w7 = r(144, 0.6f), w.b7 = r(16, 0.3f);
    w.w8 = r(256, 0.5f), w.b8 = r(16, 0.5f), w.w10 = r(256, 0.5f), w.b10 = r(16, 0.3f);
    w.w13 = r(144, 0.6f), w.b13 = r(16, 0.3f);
    w.w14 = r(16, 0.8f), w.b14 = r(1, 0.5f), w.w16 = r(16, 0.8f), w.b16 = r(1, 0.3f);
    for (int l = 0; l < 3; ++l) {
      w.gru_w_ih[l] = r(768 * (l == 0 ? 74 : 256), l == 0 ? 0.3f : 0.12f);
      w.gru_w_hh[l] = r(768 * 256, 0.1f);
      w.gru_b_ih[l] = r(768, 0.5f);
      w.gru_b_hh[l] = r(768, 0.5f);
    }
    w.w24 = r(80 * 256, 0.15f), w.b24 = r(80, 0.2f);
    return w;
  }
  static Weights Zero() {
    Weights w = Random(1);
    for (Floats* f : {&w.w1,  &w.b1,  &w.w2,  &w.b2,  &w.w4,  &w.b4,  &w.w7,  &w.b7,  &w.w8,  &w.b8,
                      &w.w10, &w.b10, &w.w13, &w.b13, &w.w14, &w.b14, &w.w16, &w.b16, &w.w24, &w.b24}) {
      std::fill(f->begin(), f->end(), 0.0f);
    }
    for (int l = 0; l < 3; ++l) {
      for (Floats* f : {&w.gru_w_ih[l], &w.gru_w_hh[l], &w.gru_b_ih[l], &w.gru_b_hh[l]}) {
        std::fill(f->begin(), f->end(), 0.0f);
      }
    }
    return w;
  }
};

std::string Encode(const Floats& v) {
  return EncodeWeights(v.data(), v.size());
}

// A model holding the thirteen layers; `edit` may change a layer before it is added, or return false to drop
// it.
std::shared_ptr<ZVModelInfo> MakeModel(
    const Weights& w, const std::function<bool(zelva::runtime::LayerInfo&)>& edit = nullptr) {
  auto model = std::make_shared<ZVModelInfo>();
  auto add = [&](std::shared_ptr<zelva::runtime::LayerInfo> layer) {
    if (!edit || edit(*layer)) model->AddLayer(layer);
  };
  auto conv = [&](const char* id, const Floats& weight, const Floats& bias) {
    auto layer = std::make_shared<Conv2dInfo>();
    layer->id = id;
    layer->if_bias = true;
    layer->weight = Encode(weight);
    layer->bias = Encode(bias);
    add(layer);
  };
  conv("1", w.w1, w.b1);
  conv("2", w.w2, w.b2);
  conv("4", w.w4, w.b4);
  conv("7", w.w7, w.b7);
  conv("8", w.w8, w.b8);
  conv("10", w.w10, w.b10);
  conv("13", w.w13, w.b13);
  conv("14", w.w14, w.b14);
  conv("16", w.w16, w.b16);
  const char* gru_ids[3] = {"20", "21", "22"};
  for (int l = 0; l < 3; ++l) {
    auto layer = std::make_shared<GRUInfo>();
    layer->id = gru_ids[l];
    layer->if_bias = true;
    layer->num_layers = 1;
    layer->weight_ih_forward = {Encode(w.gru_w_ih[l])};
    layer->weight_hh_forward = {Encode(w.gru_w_hh[l])};
    layer->bias_ih_forward = {Encode(w.gru_b_ih[l])};
    layer->bias_hh_forward = {Encode(w.gru_b_hh[l])};
    add(layer);
  }
  auto dense = std::make_shared<FullConnectionInfo>();
  dense->id = "24";
  dense->if_bias = true;
  dense->weight = Encode(w.w24);
  dense->bias = Encode(w.b24);
  add(dense);
  return model;
}

// ---- The network in plain double precision
// --------------------------------------------------------------------

class ReferenceNet {
 public:
  explicit ReferenceNet(const Weights& w) : w_(w) {
    for (auto& h : h_) h.assign(256, 0.0);
  }

  std::vector<double> Forward(const Floats& x) {
    // Stage one: depthwise on 1 channel, then gated pointwise 1 -> 16.
    std::vector<double> a(5 * 78);
    for (int y = 0; y < 5; ++y)
      for (int c = 0; c < 78; ++c) {
        double s = w_.b1[0];
        for (int t = 0; t < 9; ++t) s += double(w_.w1[t]) * x[(y + t / 3) * 80 + c + t % 3];
        a[y * 78 + c] = s;
      }
    std::vector<double> m1(16 * 390);
    for (int o = 0; o < 16; ++o)
      for (int p = 0; p < 390; ++p) {
        m1[o * 390 + p] = HSig(w_.b2[o] + double(w_.w2[o]) * a[p]) * Relu(w_.b4[o] + double(w_.w4[o]) * a[p]);
      }
    // Stage two: depthwise 16 channels 5x78 -> 3x76, gated pointwise 16 -> 16.
    const std::vector<double> d = Depthwise(m1, w_.w7, w_.b7, 5, 78);
    std::vector<double> m2(16 * 228);
    for (int o = 0; o < 16; ++o)
      for (int p = 0; p < 228; ++p) {
        double g = w_.b8[o], r = w_.b10[o];
        for (int i = 0; i < 16; ++i) {
          g += double(w_.w8[o * 16 + i]) * d[i * 228 + p];
          r += double(w_.w10[o * 16 + i]) * d[i * 228 + p];
        }
        m2[o * 228 + p] = HSig(g) * Relu(r);
      }
    // Stage three: depthwise 3x76 -> 1x74, gated pointwise 16 -> 1.
    const std::vector<double> e = Depthwise(m2, w_.w13, w_.b13, 3, 76);
    std::vector<double> v(74);
    for (int p = 0; p < 74; ++p) {
      double g = w_.b14[0], r = w_.b16[0];
      for (int i = 0; i < 16; ++i) {
        g += double(w_.w14[i]) * e[i * 74 + p];
        r += double(w_.w16[i]) * e[i * 74 + p];
      }
      v[p] = HSig(g) * Relu(r);
    }
    // Three GRU layers, then the dense layer with ReLU.
    for (int l = 0; l < 3; ++l) {
      Gru(l, v);
      v = h_[l];
    }
    std::vector<double> out(80);
    for (int o = 0; o < 80; ++o) {
      double s = w_.b24[o];
      for (int i = 0; i < 256; ++i) s += double(w_.w24[o * 256 + i]) * v[i];
      out[o] = Relu(s);
    }
    return out;
  }

 private:
  static double HSig(double x) { return std::min(std::max(x + 3.0, 0.0), 6.0) / 6.0; }
  static double Relu(double x) { return std::max(x, 0.0); }

  static std::vector<double> Depthwise(const std::vector<double>& in, const Floats& w, const Floats& b, int h,
                                       int wd) {
    const int oh = h - 2, ow = wd - 2;
    std::vector<double> out(16 * oh * ow);
    for (int c = 0; c < 16; ++c)
      for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x) {
          double s = b[c];
          for (int t = 0; t < 9; ++t) s += double(w[c * 9 + t]) * in[(c * h + y + t / 3) * wd + x + t % 3];
          out[(c * oh + y) * ow + x] = s;
        }
    return out;
  }

  void Gru(int l, const std::vector<double>& x) {
    const size_t in = x.size();
    std::vector<double>& h = h_[l];
    std::vector<double> gx(768), gh(768), next(256);
    for (int r = 0; r < 768; ++r) {
      double sx = w_.gru_b_ih[l][r], sh = w_.gru_b_hh[l][r];
      for (size_t i = 0; i < in; ++i) sx += double(w_.gru_w_ih[l][r * in + i]) * x[i];
      for (int i = 0; i < 256; ++i) sh += double(w_.gru_w_hh[l][r * 256 + i]) * h[i];
      gx[r] = sx;
      gh[r] = sh;
    }
    for (int j = 0; j < 256; ++j) {
      const double r = 1.0 / (1.0 + std::exp(-(gx[j] + gh[j])));
      const double z = 1.0 / (1.0 + std::exp(-(gx[256 + j] + gh[256 + j])));
      const double n = std::tanh(gx[512 + j] + r * gh[512 + j]);
      next[j] = (1.0 - z) * n + z * h[j];
    }
    h = next;
  }

  const Weights& w_;
  std::vector<double> h_[3];
};

Floats RandomBlock(std::mt19937& rng) {
  std::uniform_real_distribution<float> d(-1.5f, 1.5f);
  Floats x(7 * 80);
  for (float& v : x) v = d(rng);
  return x;
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
  const Revolver net(MakeModel(Weights::Zero()));
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

TEST(Revolver, BlocksMatchThePlainNetworkAcrossCallsAndResets) {
  const Weights w = Weights::Random(21);
  Revolver net(MakeModel(w));
  ReferenceNet ref(w);
  std::mt19937 rng(22);
  std::vector<Floats> blocks;
  std::vector<Floats> first_outputs;
  const void* first_data = nullptr;
  double max_value = 0.0;
  for (int b = 0; b < 4; ++b) {
    blocks.push_back(RandomBlock(rng));
    const void* data = nullptr;
    const Floats y = RunBlock(net, blocks.back(), &data);
    const std::vector<double> want = ref.Forward(blocks.back());
    if (b == 0) first_data = data;
    EXPECT_EQ(data, first_data) << "the output stays in place";
    for (int i = 0; i < 80; ++i) {
      ASSERT_NEAR(y[i], want[i], 2e-5 + 2e-5 * std::fabs(want[i])) << "block " << b << " value " << i;
      EXPECT_GE(y[i], 0.0f);
      max_value = std::max(max_value, want[i]);
    }
    first_outputs.push_back(y);
  }
  EXPECT_GT(max_value, 0.05) << "weights too weak to test anything";

  // The state moves: the same block again gives another answer; after a reset, the first answers come back.
  EXPECT_NE(RunBlock(net, blocks[0]), first_outputs[0]);
  net.ResetRnnState();
  for (int b = 0; b < 4; ++b) {
    const Floats y = RunBlock(net, blocks[b]);
    EXPECT_EQ(std::memcmp(y.data(), first_outputs[b].data(), 320), 0) << b;
  }
}

TEST(Revolver, ZeroWeightsGiveZeroOutput) {
  Revolver net(MakeModel(Weights::Zero()));
  std::mt19937 rng(23);
  for (int b = 0; b < 2; ++b) {
    const Floats y = RunBlock(net, RandomBlock(rng));
    for (float v : y) EXPECT_EQ(v, 0.0f);
  }
}

TEST(Revolver, ExtraLayersAreIgnored) {
  const Weights w = Weights::Random(24);
  std::shared_ptr<ZVModelInfo> model = MakeModel(w);
  auto extra = std::make_shared<Conv2dInfo>();
  extra->id = "3";
  model->AddLayer(extra);
  Revolver a(model), b(MakeModel(w));
  std::mt19937 rng(25);
  const Floats x = RandomBlock(rng);
  EXPECT_EQ(RunBlock(a, x), RunBlock(b, x));
}

TEST(Revolver, BrokenModelsFailConstructionWithAClearMessage) {
  const Weights w = Weights::Random(26);
  auto build = [&](const std::function<bool(zelva::runtime::LayerInfo&)>& edit) {
    return FailureOf([&] { Revolver net(MakeModel(w, edit)); });
  };
  EXPECT_THAT(FailureOf([] { Revolver net(nullptr); }), HasSubstr("needs a model"));
  EXPECT_THAT(build([](zelva::runtime::LayerInfo& l) { return l.id != "13"; }),
              HasSubstr("Layer [13] not found in model."));
  EXPECT_THAT(build([](zelva::runtime::LayerInfo& l) { return l.id != "24"; }),
              HasSubstr("Layer [24] not found in model."));
  // Short data: a conv weight, a conv bias, a GRU matrix, the dense bias.
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "8") static_cast<Conv2dInfo&>(l).weight = Encode(Floats(255, 1.0f));
                return true;
              }),
              HasSubstr("Layer [8] field weight holds 255 floats, 256 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "1") static_cast<Conv2dInfo&>(l).bias.clear();
                return true;
              }),
              HasSubstr("Layer [1] field bias holds 0 floats, 1 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "21") static_cast<GRUInfo&>(l).weight_hh_forward = {Encode(Floats(1000, 1.0f))};
                return true;
              }),
              HasSubstr("Layer [21] field weight_hh_forward holds 1000 floats, 196608 needed."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "20") static_cast<GRUInfo&>(l).bias_ih_forward.clear();
                return true;
              }),
              HasSubstr("Layer [20] field bias_ih_forward holds no entry."));
  EXPECT_THAT(build([&](zelva::runtime::LayerInfo& l) {
                if (l.id == "24") static_cast<FullConnectionInfo&>(l).bias = Encode(Floats(79, 1.0f));
                return true;
              }),
              HasSubstr("Layer [24] field bias holds 79 floats, 80 needed."));
}

TEST(Revolver, LayerOfAnotherKindIsRefused) {
  const Weights w = Weights::Random(27);
  std::shared_ptr<ZVModelInfo> model =
      MakeModel(w, [](zelva::runtime::LayerInfo& l) { return l.id != "22"; });
  auto wrong = std::make_shared<Conv2dInfo>();
  wrong->id = "22";
  model->AddLayer(wrong);
  EXPECT_THAT(FailureOf([&] { Revolver net(model); }), HasSubstr("Layer [22] is not of the expected kind."));
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific

// ---- Against PyTorch (fixtures of tools/gen_denoise_model.py)
// -------------------------------------------------

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {
namespace {

Floats ReadFloats(const std::string& path) {
  Floats values;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return values;
  float v;
  while (std::fread(&v, sizeof(v), 1, file) == 1) values.push_back(v);
  std::fclose(file);
  return values;
}

TEST(Revolver, StreamingBlocksMatchPyTorch) {
  const std::string dir = ZELVA_TEST_DATA_DIR;
  auto model = std::make_shared<ZVModelInfo>();
  model->FromFile(dir + "/denoise_fused_model.json", "json");
  const Floats inputs = ReadFloats(dir + "/denoise_fused_input.f32");
  const Floats outputs = ReadFloats(dir + "/denoise_fused_output.f32");
  ASSERT_FALSE(inputs.empty());
  const size_t blocks = inputs.size() / 560;
  ASSERT_EQ(outputs.size(), blocks * 80);

  Revolver net(model);
  for (int pass = 0; pass < 2; ++pass) {  // the second pass after a reset
    for (size_t b = 0; b < blocks; ++b) {
      const Floats y = RunBlock(net, Floats(inputs.begin() + b * 560, inputs.begin() + (b + 1) * 560));
      for (size_t i = 0; i < 80; ++i) {
        const float want = outputs[b * 80 + i];
        ASSERT_NEAR(y[i], want, 1e-5f + 1e-4f * std::fabs(want))
            << "pass " << pass << " block " << b << " " << i;
      }
    }
    net.ResetRnnState();
  }
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
