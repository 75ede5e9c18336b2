// Every variant of the fused network that this machine can run gives exactly the bits of the SSE reference
// with fp32 weights, computed in the same run: over the PyTorch fixture stream and the bundled stream of the
// bundled model (whose weights are all halves) with resets in the middle, and over a model of random fp32
// weights. A variant the machine cannot run is skipped with the reason.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "support/files.h"
#include "zelva-kit/src/audiodenoise/revolver.h"
#include "zelva/src/runtime/weight_data.h"
#include "zelva/src/runtime/zvmodel2/layer_info.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace hyperspecific {
namespace audiodenoise_v4_final_cpu_sse {

// Test names and failure messages show the variant's name.
void PrintTo(const RevolverVariant& variant, std::ostream* os) {
  *os << variant.Name();
}

namespace {

using zelva::runtime::ZVModelInfo;
using Floats = std::vector<float>;
constexpr size_t kBlock = 7 * 80;

using zvtest::ReadFloats;

std::shared_ptr<ZVModelInfo> BundledModel() {
  auto model = std::make_shared<ZVModelInfo>();
  model->FromFile(std::string(ZELVA_TEST_DATA_DIR) + "/../../models/denoise.zvmod", "bin");
  return model;
}

// The thirteen layers with weights drawn uniformly from [-scale, scale] at full float precision: almost
// none of them is a half.
std::shared_ptr<ZVModelInfo> RandomModel(uint32_t seed) {
  std::mt19937 rng(seed);
  auto values = [&](size_t n, float scale) {
    std::uniform_real_distribution<float> dist(-scale, scale);
    Floats v(n);
    for (float& x : v) x = dist(rng);
    return zelva::runtime::EncodeWeights(v.data(), v.size());
  };
  auto model = std::make_shared<ZVModelInfo>();
  struct Conv {
    const char* id;
    size_t weights, biases;
  };
  for (const Conv& c :
       {Conv{"1", 9, 1}, Conv{"2", 16, 16}, Conv{"4", 16, 16}, Conv{"7", 144, 16}, Conv{"8", 256, 16},
        Conv{"10", 256, 16}, Conv{"13", 144, 16}, Conv{"14", 16, 1}, Conv{"16", 16, 1}}) {
    auto layer = std::make_shared<zelva::runtime::Conv2dInfo>();
    layer->id = c.id;
    layer->weight = values(c.weights, 0.6f);
    layer->bias = values(c.biases, 0.3f);
    model->AddLayer(layer);
  }
  for (const char* id : {"20", "21", "22"}) {
    auto layer = std::make_shared<zelva::runtime::GRUInfo>();
    layer->id = id;
    layer->weight_ih_forward = {values(768 * (layer->id == "20" ? 74 : 256), 0.15f)};
    layer->weight_hh_forward = {values(768 * 256, 0.1f)};
    layer->bias_ih_forward = {values(768, 0.2f)};
    layer->bias_hh_forward = {values(768, 0.2f)};
    model->AddLayer(layer);
  }
  auto dense = std::make_shared<zelva::runtime::FullConnectionInfo>();
  dense->id = "24";
  dense->weight = values(80 * 256, 0.1f);
  dense->bias = values(80, 0.1f);
  model->AddLayer(dense);
  return model;
}

// The output of every block and the three hidden vectors after it, as raw bytes; `resets` lists the blocks
// before which the recurrent state is cleared.
std::vector<unsigned char> RunStream(Revolver& net, const Floats& stream, const std::vector<size_t>& resets) {
  const size_t hidden[] = {22, 29, 36};  // gru20_h, gru21_h, gru22_h in the region table
  std::vector<unsigned char> bytes;
  HyperspecificTensorMap outputs;
  std::vector<HyperspecificTensor> inputs(1);
  for (size_t b = 0; b * kBlock < stream.size(); ++b) {
    for (size_t r : resets) {
      if (r == b) net.ResetRnnState();
    }
    inputs[0].data = stream.data() + b * kBlock;
    net.Forward(outputs, inputs, false);
    const auto* out = static_cast<const unsigned char*>(outputs["25"].data);
    bytes.insert(bytes.end(), out, out + 80 * sizeof(float));
    for (size_t region : hidden) {
      const auto* h = reinterpret_cast<const unsigned char*>(net.region(region));
      bytes.insert(bytes.end(), h, h + 256 * sizeof(float));
    }
  }
  return bytes;
}

// The first block (output or hidden vectors) whose bits differ, or -1.
long FirstDifference(const std::vector<unsigned char>& got, const std::vector<unsigned char>& want) {
  const size_t per_block = (80 + 3 * 256) * sizeof(float);
  if (got.size() != want.size()) return 0;
  for (size_t b = 0; b * per_block < got.size(); ++b) {
    if (std::memcmp(got.data() + b * per_block, want.data() + b * per_block, per_block) != 0) {
      return static_cast<long>(b);
    }
  }
  return -1;
}

TEST(RevolverVariants, HiddenRegionsAreTheGruStates) {
  EXPECT_STREQ(Revolver::kRegions[22].name, "gru20_h");
  EXPECT_STREQ(Revolver::kRegions[29].name, "gru21_h");
  EXPECT_STREQ(Revolver::kRegions[36].name, "gru22_h");
}

class RevolverVariantTest : public ::testing::TestWithParam<RevolverVariant> {
 protected:
  void SetUp() override {
    std::string why;
    if (!Revolver::ProcessorRuns(GetParam(), &why)) GTEST_SKIP() << GetParam().Name() << ": " << why;
  }
};

TEST_P(RevolverVariantTest, BundledModelStreamsMatchTheReferenceBitForBit) {
  const std::shared_ptr<ZVModelInfo> model = BundledModel();
  ASSERT_TRUE(Revolver::WeightsAreHalves(*model)) << "a binary model is read as half precision";
  Revolver reference(model, RevolverVariant{});
  Revolver variant(model, GetParam());
  EXPECT_EQ(variant.variant(), GetParam());

  const Floats fixture = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/denoise_fused_input.f32");
  const Floats bundled = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/../../models/denoise_blocks.f32");
  for (const Floats* stream : {&fixture, &bundled}) {
    ASSERT_GE(stream->size(), 8 * kBlock);
    ASSERT_EQ(stream->size() % kBlock, 0u);
    const size_t blocks = stream->size() / kBlock;
    // A reset in the middle and one two blocks later; the objects have run the other stream before.
    const std::vector<size_t> resets = {0, blocks / 2, blocks / 2 + 2};
    const std::vector<unsigned char> want = RunStream(reference, *stream, resets);
    EXPECT_EQ(FirstDifference(RunStream(variant, *stream, resets), want), -1) << GetParam().Name();
  }
}

TEST_P(RevolverVariantTest, RandomFp32ModelMatchesTheReferenceOrIsRefusedForHalves) {
  const std::shared_ptr<ZVModelInfo> model = RandomModel(20261124);
  ASSERT_FALSE(Revolver::WeightsAreHalves(*model));
  if (GetParam().half_weights) {
    EXPECT_THROW(Revolver(model, GetParam()), std::runtime_error);
    return;
  }
  std::mt19937 rng(7);
  std::normal_distribution<float> dist(0.0f, 2.0f);
  Floats stream(24 * kBlock);
  for (float& x : stream) x = dist(rng);
  Revolver reference(model, RevolverVariant{});
  Revolver variant(model, GetParam());
  const std::vector<size_t> resets = {11};
  EXPECT_EQ(FirstDifference(RunStream(variant, stream, resets), RunStream(reference, stream, resets)), -1);
}

// The weights shared by outside states: Run gives Forward's outputs and hidden vectors, and a batch of
// streams in different states gives each one what Run gives it alone.
TEST_P(RevolverVariantTest, RunAndBatchesWithOutsideStatesGiveForwardsBits) {
  const std::shared_ptr<ZVModelInfo> model = BundledModel();
  const Revolver net(model, GetParam());
  Revolver own(model, GetParam());
  const Floats stream = ReadFloats(std::string(ZELVA_TEST_DATA_DIR) + "/../../models/denoise_blocks.f32");
  const size_t blocks = stream.size() / kBlock;
  ASSERT_GE(blocks, 8u);
  const std::vector<size_t> resets = {0, blocks / 2};
  const std::vector<unsigned char> want = RunStream(own, stream, resets);

  auto state = std::make_unique<RevolverState>();
  auto scratch = std::make_unique<RevolverScratch>();
  std::vector<unsigned char> got;
  float out[80];
  for (size_t b = 0; b < blocks; ++b) {
    if (b == blocks / 2) *state = RevolverState{};
    net.Run(stream.data() + b * kBlock, *state, *scratch, out);
    const auto* o = reinterpret_cast<const unsigned char*>(out);
    got.insert(got.end(), o, o + sizeof(out));
    const auto* h = reinterpret_cast<const unsigned char*>(state->h);
    got.insert(got.end(), h, h + sizeof(state->h));
  }
  EXPECT_EQ(FirstDifference(got, want), -1);

  constexpr size_t kCount = 7;  // groups of four streams and a rest of three
  std::vector<RevolverState> alone(kCount), batched(kCount);
  std::vector<RevolverState*> states(kCount);
  std::vector<const float*> inputs(kCount);
  std::vector<float*> outputs(kCount);
  Floats batch_out(kCount * 80), alone_out(kCount * 80);
  RevolverBatchScratch batch_scratch;
  for (size_t b = 0; b < blocks; ++b) {
    for (size_t i = 0; i < kCount; ++i) {
      states[i] = &batched[i];
      inputs[i] = stream.data() + ((b + 7 * i) % blocks) * kBlock;
      outputs[i] = batch_out.data() + i * 80;
      net.Run(inputs[i], alone[i], *scratch, alone_out.data() + i * 80);
    }
    ASSERT_TRUE(net.RunBatch(kCount, inputs.data(), states.data(), outputs.data(), batch_scratch));
    ASSERT_EQ(std::memcmp(batch_out.data(), alone_out.data(), batch_out.size() * sizeof(float)), 0) << b;
    for (size_t i = 0; i < kCount; ++i) {
      ASSERT_EQ(std::memcmp(batched[i].h, alone[i].h, sizeof(alone[i].h)), 0) << b << " " << i;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllVariants, RevolverVariantTest, ::testing::ValuesIn(Revolver::AllVariants()),
                         [](const ::testing::TestParamInfo<RevolverVariant>& info) {
                           std::string name = info.param.Name();
                           for (char& c : name) {
                             if (c == ' ' || c == '+') c = '_';
                           }
                           return name;
                         });

TEST(RevolverVariants, LoadPicksTheFastestVariantThisProcessorAndModelAllow) {
  const std::shared_ptr<ZVModelInfo> bundled = BundledModel();
  EXPECT_EQ(Revolver(bundled).variant(), Revolver::BestVariant(true));
  const std::shared_ptr<ZVModelInfo> random = RandomModel(3);
  const RevolverVariant chosen = Revolver(random).variant();
  EXPECT_FALSE(chosen.half_weights);
  EXPECT_EQ(chosen, Revolver::BestVariant(false));
  // The best variant is one this processor runs; half weights are never chosen without halves.
  EXPECT_TRUE(Revolver::ProcessorRuns(Revolver::BestVariant(true)));
  EXPECT_FALSE(Revolver::ProcessorRuns(RevolverVariant{RevolverIsa::kSse, true}));
}

// One weight of the bundled model nudged off the half grid: the model no longer counts as halves.
TEST(RevolverVariants, OneNonHalfWeightMakesTheModelFp32) {
  const std::shared_ptr<ZVModelInfo> model = BundledModel();
  auto dense = model->GetLayerInfoAs<zelva::runtime::FullConnectionInfo>("24");
  Floats w = zelva::runtime::DecodeWeights(dense->weight);
  ASSERT_EQ(w.size(), 80u * 256);
  w[4321] = std::nextafter(w[4321], 1.0f);
  dense->weight = zelva::runtime::EncodeWeights(w.data(), w.size());
  EXPECT_FALSE(Revolver::WeightsAreHalves(*model));
  EXPECT_FALSE(Revolver(model).variant().half_weights);
}

}  // namespace
}  // namespace audiodenoise_v4_final_cpu_sse
}  // namespace hyperspecific
