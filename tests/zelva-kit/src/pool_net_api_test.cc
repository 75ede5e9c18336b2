// A convolutional network through the denoise engine's public entry points, against PyTorch (fixtures from
// tools/gen_pool_net.py): convolution, batch normalisation with and without affine parameters, average
// pooling with and without count_include_pad and maximum pooling, all padded, and the concatenation of planar
// and of blocked maps, with the layout converters the configuration places in front of the blocked layers.
// And what a configuration or model of layers the kernels refuse does: a failed call with an Error line
// that names the kernel, never a crash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "support/log_capture.h"
#include "zv2.h"

namespace {

std::string Data(const std::string& name) {
  return std::string(ZELVA_TEST_DATA_DIR) + "/e2e/" + name;
}

std::vector<float> ReadFloats(const std::string& name) {
  std::ifstream file(Data(name), std::ios::binary | std::ios::ate);
  EXPECT_TRUE(file.good()) << name;
  const std::streamsize bytes = file.tellg();
  std::vector<float> values(static_cast<size_t>(bytes) / sizeof(float));
  file.seekg(0);
  file.read(reinterpret_cast<char*>(values.data()),
            static_cast<std::streamsize>(values.size() * sizeof(float)));
  return values;
}

constexpr size_t kBlock = 8 * 12, kOut = 24 * 4 * 6;

_ZV2_Result Create(uint32_t* handle, const char* model, const char* config) {
  const std::string m = Data(model), c = Data(config);
  const char* argv[] = {m.c_str(), c.c_str()};
  return ZV2_Create_AudioDenoise(handle, 2, argv);
}

bool AnyLineHas(const std::vector<std::string>& lines, const std::string& a, const std::string& b) {
  for (const std::string& line : lines)
    if (line.find("Error") != std::string::npos && line.find(a) != std::string::npos &&
        line.find(b) != std::string::npos)
      return true;
  return false;
}

TEST(PoolNet, StreamsLikePyTorch) {
  zvtest::LogCapture log;
  if (ZV2_CheckIsaAVX() != 0) GTEST_SKIP() << "the configuration names AVX kernels; this processor lacks AVX";
  const std::vector<float> input = ReadFloats("pool_net_input.f32"),
                           expected = ReadFloats("pool_net_expected.f32");
  ASSERT_EQ(input.size() % kBlock, 0u);
  const size_t blocks = input.size() / kBlock;
  ASSERT_GE(blocks, 4u);
  ASSERT_EQ(expected.size(), blocks * kOut);

  uint32_t handle = 0;
  ASSERT_EQ(Create(&handle, "pool_net.json", "pool_net.cfg.json"), ZV2_RESULT_OK) << log.Last();
  std::vector<float> out(kOut + 4);
  float worst = 0.0f, largest = 0.0f;
  for (size_t b = 0; b < blocks; ++b) {
    std::fill(out.begin(), out.end(), -12345.0f);
    ASSERT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, input.data() + b * kBlock, out.data()), ZV2_RESULT_OK)
        << log.Last();
    for (size_t k = kOut; k < out.size(); ++k) EXPECT_EQ(out[k], -12345.0f) << "written past the output";
    int reported = 0;
    for (size_t k = 0; k < kOut; ++k) {
      const float want = expected[b * kOut + k], diff = std::fabs(out[k] - want);
      worst = std::max(worst, diff);
      largest = std::max(largest, std::fabs(out[k]));
      // Sums of nine products and nine taps, in another order than torch's.
      if (!(diff <= 1e-5f * (1.0f + std::fabs(want))) && reported++ < 5)
        ADD_FAILURE() << "block " << b << " output " << k << ": " << out[k] << " vs " << want;
    }
  }
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
  EXPECT_GT(largest, 1.0f);  // the outputs are the network's, not an untouched buffer
  char text[32];
  std::snprintf(text, sizeof text, "%.3g", worst);
  RecordProperty("largest_difference", text);
}

// A member given a window it does not take and a concatenation along another axis fail the load; inputs of
// two layouts reach the concatenation only at the first block, since the net plans no shapes at load, and
// fail that block. Each failure names the kernel in an Error line, and the engine is left usable or gone.
TEST(PoolNet, RefusedLayersFailWithTheKernelsName) {
  zvtest::LogCapture log;
  uint32_t handle = 0;
  EXPECT_EQ(Create(&handle, "pool_net.json", "pool_net_bad_window.cfg.json"), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(AnyLineHas(log.lines(), "Pooling2D_Avg_K2x2_S2x2_SSE_CHW_Float_M1", "Config Kernel"))
      << log.Last();

  log.Clear();
  EXPECT_EQ(Create(&handle, "pool_net_bad_axis.json", "pool_net.cfg.json"), ZV2_RESULT_FAILED);
  EXPECT_EQ(handle, 0u);
  EXPECT_TRUE(AnyLineHas(log.lines(), "Concatenate_C_Fallback_CnHWn_M1", "Config Kernel")) << log.Last();

  if (ZV2_CheckIsaAVX() != 0) GTEST_SKIP() << "the configuration names AVX kernels; this processor lacks AVX";
  log.Clear();
  ASSERT_EQ(Create(&handle, "pool_net.json", "pool_net_bad_layouts.cfg.json"), ZV2_RESULT_OK) << log.Last();
  const std::vector<float> block(kBlock, 0.5f);
  std::vector<float> out(kOut);
  EXPECT_EQ(ZV2_Apply_AudioDenoise_CPU(handle, block.data(), out.data()), ZV2_RESULT_FAILED);
  EXPECT_TRUE(AnyLineHas(log.lines(), "Concatenate_C_Fallback_CnHWn_M1", "layout")) << log.Last();
  EXPECT_EQ(ZV2_Destory_AudioDenoise(&handle), ZV2_RESULT_OK);
}

}  // namespace
