// Networks streamed block by block through the engines' public entry points, against PyTorch's streaming
// outputs. Recurrent networks (tools/gen_e2e_models.py): input, reshape to a sequence, GRU or LSTM, reshape
// to a vector, dense, activation; the recurrent state must carry from block to block inside the engine, and a
// reset must bring the stream back to its start. Convolutional networks of planar and blocked members with
// layout converters between them (tools/gen_conv_e2e_model.py, tools/gen_pool_net.py) through the denoise
// engine. And what a configuration or model of layers the kernels refuse does: a failed call with an Error
// line that names the kernel, never a crash.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "support/families.h"
#include "support/files.h"
#include "support/log_capture.h"

namespace {

using zvtest::kDenoise;
using zvtest::kVad;

std::string Data(const std::string& name) {
  return zvtest::DataFile("e2e", name);
}
std::vector<float> ReadFloats(const std::string& name) {
  return zvtest::ReadFloats(Data(name));
}
_ZV2_Result Create(const zvtest::Family& f, uint32_t* handle, const std::string& model,
                   const std::string& config) {
  return zvtest::CreateOn(f.create, handle, Data(model), Data(config));
}

// Outputs written past the model's output count would overwrite this.
constexpr float kCanary = -12345.0f;

// Applies `count` blocks from the start of `input`, the outputs back to back; checks the canary behind each.
std::vector<float> Stream(const zvtest::Family& f, uint32_t handle, const float* input, size_t count,
                          size_t block_floats, size_t out_floats, const zvtest::LogCapture& log) {
  std::vector<float> out(count * out_floats), buffer(out_floats + 4);
  for (size_t b = 0; b < count; ++b) {
    std::fill(buffer.begin(), buffer.end(), kCanary);
    EXPECT_EQ(f.apply(handle, input + b * block_floats, buffer.data()), ZV2_RESULT_OK)
        << "block " << b << ": " << log.Last();
    for (size_t k = out_floats; k < buffer.size(); ++k) EXPECT_EQ(buffer[k], kCanary) << "block " << b;
    std::copy(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(out_floats),
              out.begin() + static_cast<std::ptrdiff_t>(b * out_floats));
  }
  return out;
}

// Every output within `absolute + relative * |want|` of PyTorch's (NaN counts as bad).
void ExpectClose(const std::vector<float>& got, const std::vector<float>& want, size_t out_floats,
                 float absolute, float relative) {
  ASSERT_EQ(got.size(), want.size());
  size_t bad = 0;
  for (size_t i = 0; i < got.size(); ++i) {
    if (!(std::fabs(got[i] - want[i]) <= absolute + relative * std::fabs(want[i])) && ++bad <= 5)
      ADD_FAILURE() << "block " << i / out_floats << " output " << i % out_floats << ": " << got[i] << " vs "
                    << want[i];
  }
  EXPECT_EQ(bad, 0u);
}

struct Case {
  const char* label;
  const zvtest::Family* engine;
  const char* model;  // under tests/data/e2e
  const char* config;
  const char* stem;      // <stem>_input.f32
  const char* expected;  // PyTorch's streaming outputs
  size_t block_floats;   // model_base_h x model_base_w
  size_t out_floats;
};
void PrintTo(const Case& c, std::ostream* os) {
  *os << c.label;
}

class EndToEnd : public ::testing::TestWithParam<Case> {
 protected:
  uint32_t CreateOne() {
    uint32_t handle = 0;
    EXPECT_EQ(Create(*GetParam().engine, &handle, GetParam().model, GetParam().config), ZV2_RESULT_OK)
        << log.Last();
    return handle;
  }
  std::vector<float> Run(uint32_t handle, const std::vector<float>& input, size_t count, size_t from = 0) {
    const Case& c = GetParam();
    return Stream(*c.engine, handle, input.data() + from * c.block_floats, count, c.block_floats,
                  c.out_floats, log);
  }
  zvtest::LogCapture log;
};

// The sigmoid of the one VAD output runs its scalar rest; ReLU is exact. What remains is the order of the
// sums in the recurrent and dense products, over 100 blocks of carried state.
TEST_P(EndToEnd, StreamsLikePyTorchAndResetsToTheStart) {
  const Case& c = GetParam();
  const std::vector<float> input = ReadFloats(std::string(c.stem) + "_input.f32");
  const std::vector<float> expected = ReadFloats(c.expected);
  ASSERT_EQ(input.size() % c.block_floats, 0u);
  const size_t blocks = input.size() / c.block_floats;
  ASSERT_GE(blocks, 100u);

  uint32_t handle = CreateOne();
  ASSERT_NE(handle, 0u);
  const std::vector<float> got = Run(handle, input, blocks);
  ExpectClose(got, expected, c.out_floats, 1e-5f, 0.0f);
  // The state did carry: a fresh start at block 50 differs from the stream's block 50.
  ASSERT_EQ(c.engine->reset(handle), ZV2_RESULT_OK);
  const std::vector<float> restarted = Run(handle, input, 1, 50);
  bool differs = false;
  for (size_t k = 0; k < c.out_floats; ++k) differs |= restarted[k] != got[50 * c.out_floats + k];
  EXPECT_TRUE(differs) << "the output does not depend on earlier blocks";

  // After a reset the stream starts over, and a second engine on the same files does the same whatever the
  // first one's state: the first blocks again, bit for bit.
  ASSERT_EQ(c.engine->reset(handle), ZV2_RESULT_OK);
  uint32_t second = CreateOne();
  ASSERT_NE(second, 0u);
  const std::vector<float> head(got.begin(), got.begin() + static_cast<std::ptrdiff_t>(10 * c.out_floats));
  EXPECT_EQ(Run(handle, input, 10), head);
  EXPECT_EQ(Run(second, input, 10), head);

  log.Clear();
  EXPECT_EQ(c.engine->destroy(&second), ZV2_RESULT_OK);
  EXPECT_EQ(c.engine->destroy(&handle), ZV2_RESULT_OK);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(log.lines().empty()) << log.Last();  // every pool block was back before the pools went
}

constexpr size_t kVadBlock = 2 * 40, kLstmBlock = 3 * 40;

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Models, EndToEnd,
    ::testing::Values(
        // The GRU network through the VAD engine: JSON, and the binary twin read at full precision.
        Case{"VadGruJson", &kVad, "vad_gru.json", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"VadGruBinary", &kVad, "vad_gru.zvmod", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"VadGruSgemm", &kVad, "vad_gru.json", "vad_gru_sgemm.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        // The same network through the denoise engine's generic path (JSON: weights as drawn).
        Case{"DenoiseGruJson", &kDenoise, "vad_gru.json", "vad_gru.cfg.json", "vad_gru", "vad_gru_expected.f32",
             kVadBlock, 1},
        Case{"DenoiseGruSgemm", &kDenoise, "vad_gru.json", "vad_gru_sgemm.cfg.json", "vad_gru",
             "vad_gru_expected.f32", kVadBlock, 1},
        // The LSTM network through the denoise engine: JSON, and the binary twin read at half precision
        // (weights truncated toward zero), against PyTorch on the truncated weights.
        Case{"DenoiseLstmJson", &kDenoise, "denoise_lstm.json", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected.f32", kLstmBlock, 18},
        Case{"DenoiseLstmBinaryHalf", &kDenoise, "denoise_lstm.zvmod", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected_half.f32", kLstmBlock, 18},
        // The VAD engine takes the LSTM network as well.
        Case{"VadLstmJson", &kVad, "denoise_lstm.json", "denoise_lstm.cfg.json", "denoise_lstm",
             "denoise_lstm_expected.f32", kLstmBlock, 18}),
    [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.label); });
// clang-format on

// The binary twin read at full precision holds the JSON model's weights exactly: the same bits out.
TEST(EndToEndFiles, VadBinaryTwinMatchesJsonBitForBit) {
  zvtest::LogCapture log;
  const std::vector<float> input = ReadFloats("vad_gru_input.f32");
  std::vector<float> outs[2];
  const char* models[2] = {"vad_gru.json", "vad_gru.zvmod"};
  for (int m = 0; m < 2; ++m) {
    uint32_t handle = 0;
    ASSERT_EQ(Create(kVad, &handle, models[m], "vad_gru.cfg.json"), ZV2_RESULT_OK) << log.Last();
    outs[m] = Stream(kVad, handle, input.data(), input.size() / kVadBlock, kVadBlock, 1, log);
    EXPECT_EQ(ZV2_Destory_VAD(&handle), ZV2_RESULT_OK);
  }
  EXPECT_EQ(outs[0], outs[1]);
}

// PyTorch's outputs within float rounding of the different orders of the sums, block after block, and the
// same bits from a second engine.
//   denoise_conv     planar and blocked convolutions and depthwise convolutions
//   denoise_decoder  convolution, transposed convolution, bilinear upsampling, pixel shuffle
//   pool_net         convolution, batch normalisation with and without affine parameters, average pooling
//                    with and without count_include_pad and maximum pooling, all padded, and the
//                    concatenation of planar and of blocked maps
struct ConvCase {
  const char* stem;
  size_t block_floats, out_floats;
};
void PrintTo(const ConvCase& c, std::ostream* os) {
  *os << c.stem;
}
class EndToEndConvolution : public ::testing::TestWithParam<ConvCase> {};

TEST_P(EndToEndConvolution, StreamsLikePyTorch) {
  if (ZV2_CheckIsaAVX() != 0) GTEST_SKIP() << "the network has AVX members; this processor has no AVX";
  const ConvCase& c = GetParam();
  zvtest::LogCapture log;
  const std::vector<float> input = ReadFloats(std::string(c.stem) + "_input.f32");
  const std::vector<float> expected = ReadFloats(std::string(c.stem) + "_expected.f32");
  const size_t blocks = input.size() / c.block_floats;
  ASSERT_GE(blocks, 2u);
  std::vector<float> first;
  for (int engine = 0; engine < 2; ++engine) {
    uint32_t handle = 0;
    ASSERT_EQ(Create(kDenoise, &handle, std::string(c.stem) + ".json", std::string(c.stem) + ".cfg.json"),
              ZV2_RESULT_OK)
        << log.Last();
    const std::vector<float> out =
        Stream(kDenoise, handle, input.data(), blocks, c.block_floats, c.out_floats, log);
    if (engine == 0) {
      ExpectClose(out, expected, c.out_floats, 1e-5f, 1e-5f);
      first = out;
    } else {
      EXPECT_EQ(out, first);
    }
    EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
  }
}

INSTANTIATE_TEST_SUITE_P(Models, EndToEndConvolution,
                         ::testing::Values(ConvCase{"denoise_conv", 9 * 13, 5 * 7},
                                           ConvCase{"denoise_decoder", 4 * 5, 32 * 40},
                                           ConvCase{"pool_net", 8 * 12, 24 * 4 * 6}),
                         [](const ::testing::TestParamInfo<ConvCase>& info) {
                           return std::string(info.param.stem);
                         });

bool AnyErrorLineHas(const std::vector<std::string>& lines, const std::string& a, const std::string& b) {
  for (const std::string& line : lines)
    if (line.find("Error") != std::string::npos && line.find(a) != std::string::npos &&
        line.find(b) != std::string::npos)
      return true;
  return false;
}

// A member given a window it does not take and a concatenation along another axis fail the load; inputs of
// two layouts reach the concatenation only at the first block, since the net plans no shapes at load, and
// fail that block. Each failure names the kernel in an Error line, and the engine is left usable or gone.
TEST(PoolNet, RefusedLayersFailWithTheKernelsName) {
  zvtest::LogCapture log;
  uint32_t handle = 0;
  EXPECT_EQ(Create(kDenoise, &handle, "pool_net.json", "pool_net_bad_window.cfg.json"), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(AnyErrorLineHas(log.lines(), "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1", "Config Kernel"))
      << log.Last();

  log.Clear();
  EXPECT_EQ(Create(kDenoise, &handle, "pool_net_bad_axis.json", "pool_net.cfg.json"), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(AnyErrorLineHas(log.lines(), "Concatenate_C_Fallback_CnHWn_M1", "Config Kernel")) << log.Last();

  if (ZV2_CheckIsaAVX() != 0) GTEST_SKIP() << "the configuration names AVX kernels; this processor lacks AVX";
  log.Clear();
  ASSERT_EQ(Create(kDenoise, &handle, "pool_net.json", "pool_net_bad_layouts.cfg.json"), ZV2_RESULT_OK)
      << log.Last();
  const std::vector<float> block(8 * 12, 0.5f);
  std::vector<float> out(24 * 4 * 6);
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, block.data(), out.data()), ZV2_RESULT_FAILED);
  EXPECT_TRUE(AnyErrorLineHas(log.lines(), "Concatenate_C_Fallback_CnHWn_M1", "layout")) << log.Last();
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
}

}  // namespace
