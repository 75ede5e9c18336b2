// Layers the pixel shuffle, expand, soft arg-max, warp affine, upsampling and 16-bit convolution kernels
// cannot run fail the load through CreateKernel, as a configuration naming them would: a refusal by
// CheckSupport gives the registry's Error line with the kernel's name, a refusal in Config raises with the
// kernel's name and the reason in its assertion line (which the engine repeats in its Error line). Nothing
// crashes.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/utility/environment_x86.h"

namespace zvtest {
namespace {

namespace runtime = zelva::runtime;

struct Refusal {
  const char* kernel;
  std::shared_ptr<runtime::LayerInfo> info;
  std::shared_ptr<runtime::InferenceParam> param;
  const char* reason;           // null: refused by CheckSupport, with the registry's line
  const char* first = nullptr;  // a line the kernel logs before the registry's
};

std::shared_ptr<runtime::LayerInfo> Shuffle(float factor) {
  auto i = std::make_shared<runtime::PixelShuffleInfo>();
  i->upscale_factor = factor;
  return i;
}
std::shared_ptr<runtime::LayerInfo> Expand(std::vector<int16_t> shape) {
  auto i = std::make_shared<runtime::TensorExpandInfo>();
  i->new_shape = std::move(shape);
  return i;
}
std::shared_ptr<runtime::LayerInfo> Warp(const char* mode, const char* pad) {
  auto i = std::make_shared<runtime::WarpAffineInfo>();
  i->mode = mode;
  i->padding_mode = pad;
  return i;
}
std::shared_ptr<runtime::LayerInfo> Upsample(uint16_t mode) {
  auto i = std::make_shared<runtime::Upsample2dInfo>();
  i->unsample_type = mode;
  i->scale_factor_x = i->scale_factor_y = 2.0f;
  return i;
}
std::shared_ptr<runtime::LayerInfo> Conv1x1() {
  auto i = std::make_shared<runtime::Conv2dInfo>();
  i->in_channels = i->out_channels = 8;
  i->kernel_x = i->kernel_y = 1;
  i->groups = 1;
  i->weight = WeightText(std::vector<float>(64, 0.5f));
  return i;
}

TEST(LayerRefusals, TheLoadFailsNamingTheKernel) {
  zelva::kernel::KernelRegistry registry;
  zelva::kernel::RegisterBaseKernels(registry);
  zelva::kernel::RegisterFallbackKernels(registry);
  zelva::kernel::RegisterSGEMMKernels(registry);
  zelva::kernel::RegisterSSEKernels(registry);
  zelva::kernel::RegisterAVXKernels(registry);
  auto ctx = MakeTestContext();
  auto sam = std::make_shared<runtime::SoftArgMaxInfo>();
  sam->size = {3};
  const Refusal cases[] = {
      {"PixelShuffle_Upscale2_SSE_C4HW4_Float_M1", Shuffle(3.0f), nullptr, nullptr},
      {"PixelShuffle_Downscale2_AVX_C8HW8_Float_M1", Shuffle(2.0f), nullptr, nullptr},
      {"Pixelshuffle_Fallback_CHW_Float_M1", Shuffle(2.5f), nullptr, nullptr},
      {"Expand_SSE_C4HW4_Float_M1", Expand({2, -1, -1, -1}), nullptr, nullptr},
      {"Expand_Fallback_CHW_Float_M1", Expand({1, 3, 0, 4}), nullptr, nullptr},
      {"SoftArgMax_SSE_CHW_Float_M1", sam, nullptr, nullptr},
      {"Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1", Conv1x1(), nullptr, nullptr},
      {"Upsampling2D_Bilinear_SSE_CHW_Float_M1", Upsample(2), nullptr, nullptr},  // bicubic
      {"Upsampling2D_Fallback_CHW_Float_M1", Upsample(9), nullptr, nullptr, "Invalid upsample2d type"},
      {"WarpAffine_SSE_Float_M1", Warp("bicubic", "zeros"), nullptr, "mode \"bicubic\" is not implemented"},
      {"WarpAffine_SSE_Float_M1", Warp("nearest", "circular"), nullptr,
       "padding mode \"circular\" is not implemented"},
  };
  for (const Refusal& r : cases) {
    SCOPED_TRACE(r.kernel);
    if (std::string(r.kernel).find("_AVX_") != std::string::npos && !zelva::utility::AvxUsableForKernels())
      continue;
    auto cfg = std::make_shared<runtime::KernelCfg>();
    cfg->kernel_type = r.kernel;
    cfg->infer_param = r.param;
    LogCapture capture;
    if (r.reason == nullptr) {
      EXPECT_EQ(runtime::CreateKernel(cfg, r.info, registry, nullptr, ctx), nullptr);
      EXPECT_TRUE(IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                              std::string("Config Kernel <") + r.kernel + "> failed. In KERNEL REGISTRY"))
          << capture.Last();
      if (r.first != nullptr) {
        ASSERT_GE(capture.lines().size(), 2u);
        EXPECT_NE(capture.lines()[0].find(r.first), std::string::npos) << capture.lines()[0];
      }
    } else {
      EXPECT_THROW(runtime::CreateKernel(cfg, r.info, registry, nullptr, ctx), std::runtime_error);
      const std::string line = capture.Last();
      EXPECT_NE(line.find("]: Assert Failed in FUNCTION<"), std::string::npos) << line;
      EXPECT_NE(line.find(std::string("[") + r.kernel + "] " + r.reason), std::string::npos) << line;
    }
  }
}

}  // namespace
}  // namespace zvtest
