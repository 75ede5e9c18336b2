#include "zelva/src/runtime/net_constructor.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "support/probe_kernel.h"
#include "zelva/src/utility/environment_x86.h"
#include "zv2.h"

namespace zelva {
namespace runtime {
namespace {

class NetConstructorTest : public ::testing::Test {
 protected:
  NetConstructorTest() {
    kernel::RegisterBaseKernels(registry_);
    zvtest::RegisterProbe(registry_, "Probe");
    zvtest::RegisterProbe(registry_, "Probe_Refuse");
    zvtest::RegisterProbe(registry_, "Probe_Double");
  }
  std::shared_ptr<Net> Build() { return CreateNet(b_.model, b_.cfg, registry_, context_); }

  kernel::KernelRegistry registry_;
  zvtest::ModelBuilder b_;
  std::shared_ptr<Context> context_ = zvtest::MakeTestContext();
};

TEST_F(NetConstructorTest, LayersEdgesAndNames) {
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<TensorReshapeInfo>("r", {"in"}, "Transform_MainMemory_Reshape_Fallback")->new_shape = {1, -1};
  b_.AddLayer<ElementWiseOperatorInfo>("sum", {"in", "r"}, "Probe");
  auto net = Build();
  ASSERT_NE(net, nullptr);
  ASSERT_EQ(net->layers.size(), 3u);
  EXPECT_EQ(net->input_layers, (std::map<std::string, uint32_t>{{"in", 0}}));
  EXPECT_EQ(net->layers[0]->name, "Input");
  EXPECT_EQ(net->layers[1]->name, "TensorReshape");
  EXPECT_EQ(net->layers[2]->name, "ElementWiseOperator");
  EXPECT_EQ(net->layers[2]->inputs, (std::vector<LayerEdge>{{0, 0}, {1, 0}}));
  EXPECT_EQ(net->layers[0]->consumers, (std::vector<LayerEdge>{{1, 0}, {2, 0}}));
  EXPECT_EQ(net->layers[1]->consumers, (std::vector<LayerEdge>{{2, 1}}));
  for (const auto& layer : net->layers) EXPECT_TRUE(layer->kernel->IsConfigured());
}

TEST_F(NetConstructorTest, TypeNamesWithGapsAndShared) {
  EXPECT_EQ(LayerTypeName(0), "Input");
  EXPECT_EQ(LayerTypeName(22), "TensorGetItem");
  EXPECT_EQ(LayerTypeName(29), "Blob");
  EXPECT_EQ(LayerTypeName(254), "Blob");
  EXPECT_EQ(LayerTypeName(36), "LSTM");
  EXPECT_EQ(LayerTypeName(38), "UnKnown");  // GRU has no name here
  EXPECT_EQ(LayerTypeName(4), "UnKnown");

  // A layer of an unlisted type builds and runs when its kernel accepts it.
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  auto odd = std::make_shared<LayerInfo>();
  odd->type = 200;
  odd->id = "odd";
  odd->input_ids = {"in"};
  b_.model->AddLayer(odd);
  b_.cfg->layer_cfgs["odd"] = std::make_shared<LayerCfg>();
  b_.cfg->layer_cfgs["odd"]->kernel->kernel_type = "Probe";
  auto net = Build();
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(net->layers[1]->name, "UnKnown");
}

TEST_F(NetConstructorTest, ConvertersByDecimalPosition) {
  b_.AddLayer<InputInfo>("a", {}, "Input_Fallback_M1");
  b_.AddLayer<InputInfo>("b", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("sum", {"a", "b"}, "Probe");
  b_.AddInputConverter("sum", "1", "Probe_Double");
  b_.AddOutputConverter("sum", "0", "Probe_Double");
  auto net = Build();
  ASSERT_NE(net, nullptr);
  const Layer& sum = *net->layers[2];
  ASSERT_EQ(sum.input_converters.size(), 1u);
  ASSERT_EQ(sum.input_converters.count(1), 1u);
  EXPECT_EQ(sum.input_converters.at(1)->GetName(), "Probe_Double");
  EXPECT_TRUE(sum.input_converters.at(1)->IsConfigured());
  EXPECT_EQ(sum.output_converters.count(0), 1u);
  EXPECT_EQ(net->input_layers.size(), 2u);
}

TEST_F(NetConstructorTest, MainKernelFailuresRaiseWithTheRegistryWord) {
  zvtest::LogCapture capture;
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("x", {"in"}, "Probe_Refuse");
  EXPECT_THROW(Build(), std::runtime_error);
  ASSERT_EQ(capture.lines().size(), 1u);  // the assertion itself raises silently
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <Probe_Refuse> failed. In KERNEL REGISTRY"));

  capture.Clear();
  b_.cfg->layer_cfgs["x"]->kernel->kernel_type = "probe";  // names are case-sensitive
  EXPECT_THROW(Build(), std::runtime_error);
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <probe> failed. Not in KERNEL REGISTRY"));
}

TEST_F(NetConstructorTest, InputKernelWithoutDescriptionIsRefused) {
  zvtest::LogCapture capture;
  auto cfg = std::make_shared<KernelCfg>();
  cfg->kernel_type = "Input_Fallback_M1";
  EXPECT_EQ(CreateKernel(cfg, nullptr, registry_, nullptr, context_), nullptr);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <Input_Fallback_M1> failed. In KERNEL REGISTRY"));
  auto made = CreateKernel(cfg, std::make_shared<InputInfo>(), registry_, nullptr, context_);
  ASSERT_NE(made, nullptr);
  EXPECT_TRUE(made->IsConfigured());
}

TEST_F(NetConstructorTest, MissingConverterIsStoredAsNull) {
  zvtest::LogCapture capture;
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("x", {"in"}, "Probe");
  b_.AddInputConverter("x", "0", "NoSuchConverter");
  auto net = Build();
  ASSERT_NE(net, nullptr);
  ASSERT_EQ(net->layers[1]->input_converters.count(0), 1u);
  EXPECT_EQ(net->layers[1]->input_converters.at(0), nullptr);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <NoSuchConverter> failed. Not in KERNEL REGISTRY"));
}

TEST_F(NetConstructorTest, MissingDescriptionOrConfigurationGivesNoNet) {
  zvtest::LogCapture capture;
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.model->squential_ids.push_back("ghost");  // listed, never described
  EXPECT_EQ(Build(), nullptr);

  b_.model->squential_ids.pop_back();
  b_.AddLayer<ElementWiseOperatorInfo>("x", {"in"}, "Probe");
  b_.cfg->layer_cfgs.erase("x");
  EXPECT_EQ(Build(), nullptr);
  EXPECT_EQ(b_.cfg->layer_cfgs.count("x"), 1u);  // the look-up left an empty entry behind
  EXPECT_TRUE(capture.lines().empty());
}

TEST_F(NetConstructorTest, EdgeRules) {
  // An input id the model doesn't list reads from layer 0.
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("x", {"nowhere"}, "Probe");
  auto net = Build();
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(net->layers[1]->inputs, (std::vector<LayerEdge>{{0, 0}}));

  // A source standing behind its consumer is reported instead of read out of range.
  zvtest::ModelBuilder late;
  late.AddLayer<ElementWiseOperatorInfo>("x", {"in"}, "Probe");
  late.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  EXPECT_THROW(CreateNet(late.model, late.cfg, registry_, context_), std::runtime_error);
}

// The processor report forced to "no AVX" for the length of a test.
class NoAvx {
 public:
  NoAvx() { utility::OverrideAvxForTesting(true); }
  ~NoAvx() { utility::OverrideAvxForTesting(false); }
};

class AvxGuardTest : public NetConstructorTest {
 protected:
  AvxGuardTest() {
    kernel::RegisterFallbackKernels(registry_);
    kernel::RegisterSSEKernels(registry_);
    kernel::RegisterAVXKernels(registry_);
  }
  // in -> ReLU on the AVX member, with an AVX input converter when `converter` names one.
  void AddAvxNet(const std::string& main_kernel, const std::string& converter = "") {
    b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
    auto act = b_.AddLayer<ActivationInfo>("act", {"in"}, main_kernel);
    act->activation_type = 2;  // ReLU
    if (!converter.empty()) b_.AddInputConverter("act", "0", converter);
  }
  static std::string Refusal(const std::string& name) {
    return "Kernel <" + name + "> needs AVX, which this processor (or its operating system) does not offer.";
  }
};

// The guard reads the instruction set from the name: every AVX-group name holds "_AVX_", no other name does.
TEST_F(AvxGuardTest, TheAvxTokenMarksExactlyTheAvxGroup) {
  using Register = void (*)(kernel::KernelRegistry&);
  for (Register group :
       {&kernel::RegisterBaseKernels, &kernel::RegisterFallbackKernels, &kernel::RegisterSGEMMKernels,
        &kernel::RegisterSSEKernels, &kernel::RegisterAVXKernels}) {
    kernel::KernelRegistry one;
    group(one);
    const bool avx_group = group == &kernel::RegisterAVXKernels;
    if (avx_group) {
      EXPECT_FALSE(one.empty());
    }
    for (const auto& entry : one) {
      EXPECT_EQ(entry.first.find("_AVX_") != std::string::npos, avx_group) << entry.first;
    }
  }
}

TEST_F(AvxGuardTest, AvxMainKernelAndConverterAreRefusedWithoutAvx) {
  zvtest::LogCapture capture;
  {
    NoAvx no_avx;
    AddAvxNet("ReLU_AVX_Float_M1");
    EXPECT_THROW(Build(), std::runtime_error);
    ASSERT_EQ(capture.lines().size(), 1u);  // the refusal's own line; the assertion raises silently
    EXPECT_TRUE(
        zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel", Refusal("ReLU_AVX_Float_M1")))
        << capture.Last();

    // A converter that needs AVX fails the build too, where a missing one would only be stored as null.
    capture.Clear();
    b_ = zvtest::ModelBuilder();
    AddAvxNet("ReLU_SSE_Float_M1", "Elementwise_Add_AVX_Float_M1");
    EXPECT_THROW(Build(), std::runtime_error);
    EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                    Refusal("Elementwise_Add_AVX_Float_M1")))
        << capture.Last();

    // Kernels of the other groups are untouched by the guard.
    capture.Clear();
    b_ = zvtest::ModelBuilder();
    AddAvxNet("ReLU_SSE_Float_M1");
    EXPECT_NE(Build(), nullptr);
    EXPECT_TRUE(capture.lines().empty());
  }
  // With the processor's own answer back, the AVX member builds where the processor has AVX.
  if (utility::EnvironmentX86::Instance().IsAvxUsable()) {
    b_ = zvtest::ModelBuilder();
    AddAvxNet("ReLU_AVX_Float_M1");
    auto net = Build();
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(net->layers[1]->kernel->GetName(), "ReLU_AVX_Float_M1");
  }
}

// Through an engine: the create returns -1 and the log names the kernel and AVX.
TEST_F(AvxGuardTest, EngineCreateFailsWithoutAvx) {
  AddAvxNet("ReLU_AVX_Float_M1");
  b_.model->extra_info.model_base_h = 1;
  b_.model->extra_info.model_base_w = 8;
  b_.model->squential_output_ids = {"act"};
  ZVModelMultiBackendCfgs configs;
  configs.cpu_sse = b_.cfg;
  const std::string dir = ::testing::TempDir();
  const std::string model_path = dir + "avx_guard_" + std::to_string(getpid()) + ".json";
  const std::string config_path = dir + "avx_guard_" + std::to_string(getpid()) + ".cfg.json";
  b_.model->ToFile(model_path, "json");
  configs.ToFile(config_path, "json");

  zvtest::LogCapture capture;
  const char* argv[] = {model_path.c_str(), config_path.c_str()};
  uint32_t handle = 0;
  {
    NoAvx no_avx;
    EXPECT_EQ(ZV2_Create_AudioDenoise(&handle, 2, argv), ZV2_RESULT_FAILED);
    EXPECT_EQ(ZV2_Create_VAD(&handle, 2, argv), ZV2_RESULT_FAILED);
  }
  EXPECT_EQ(handle, 0u);
  size_t refusals = 0;
  for (const std::string& line : capture.lines())
    if (line.find(Refusal("ReLU_AVX_Float_M1")) != std::string::npos) ++refusals;
  EXPECT_EQ(refusals, 2u);
  std::remove(model_path.c_str());
  std::remove(config_path.c_str());
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
