// A configuration that names a member for a layer it does not take fails the net's construction, and the
// Error line names the member: a layer of the member's kind with other fields, a layer of another kind, and
// a blocked member given a channel count off its block. Nothing is run.
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/utility/environment_x86.h"

namespace zelva {
namespace runtime {
namespace {

// A convolution layer of `in` -> `out` channels, square kernel `k`, stride 1, padding k/2, with weights.
void Conv(zvtest::ModelBuilder& b, const std::string& kernel, uint16_t in, uint16_t out, uint16_t k,
          uint16_t groups = 1) {
  auto c = b.AddLayer<Conv2dInfo>("conv", {"in"}, kernel);
  c->in_channels = in;
  c->out_channels = out;
  c->kernel_x = c->kernel_y = k;
  c->stride_x = c->stride_y = c->dilation_x = c->dilation_y = 1;
  c->padding_l = c->padding_r = c->padding_t = c->padding_b = k / 2;
  c->groups = groups;
  c->weight = zvtest::WeightText(std::vector<float>(size_t{out} * in / groups * k * k, 0.5f));
}

struct Refusal {
  const char* what;
  const char* kernel;
  std::function<void(zvtest::ModelBuilder&, const char*)> layer;
};

TEST(KernelRefusal, TheLoadFailsNamingTheMember) {
  const Refusal refusals[] = {
      {"a 5x5 layer for a 3x3 member", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 4, 4, 5); }},
      {"a 1x1 layer for a Winograd member", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 4, 4, 1); }},
      {"an activation layer for a convolution member", "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) {
         b.AddLayer<ActivationInfo>("act", {"in"}, k)->activation_type = 2;
       }},
      {"a convolution layer for a depthwise member", "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 4, 8, 3); }},
      {"6 channels for a 4-blocked depthwise member", "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 6, 6, 3, 6); }},
      {"12 channels for an 8-blocked depthwise member", "Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 12, 12, 3, 12); }},
      {"12 channels for an 8-blocked convolution member", "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 12, 8, 3); }},
      {"6 output channels for a 4-blocked convolution member", "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 8, 6, 1); }},
      {"a description for a layout converter", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1",
       [](zvtest::ModelBuilder& b, const char* k) { Conv(b, k, 4, 4, 1); }},
  };
  kernel::KernelRegistry registry;
  kernel::RegisterBaseKernels(registry);
  kernel::RegisterFallbackKernels(registry);
  kernel::RegisterSGEMMKernels(registry);
  kernel::RegisterSSEKernels(registry);
  kernel::RegisterAVXKernels(registry);
  const bool avx = utility::EnvironmentX86::Instance().IsAvxUsable();
  for (const Refusal& r : refusals) {
    SCOPED_TRACE(r.what);
    if (std::string(r.kernel).find("_AVX_") != std::string::npos && !avx) continue;  // refused for that
    zvtest::ModelBuilder b;
    b.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
    r.layer(b, r.kernel);
    zvtest::LogCapture capture;
    EXPECT_THROW(CreateNet(b.model, b.cfg, registry, zvtest::MakeTestContext()), std::runtime_error);
    ASSERT_FALSE(capture.lines().empty());
    EXPECT_TRUE(
        zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                            std::string("Config Kernel <") + r.kernel + "> failed. In KERNEL REGISTRY"))
        << capture.Last();
  }
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
