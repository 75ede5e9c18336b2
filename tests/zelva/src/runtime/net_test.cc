// Building a net from a model and its configuration, and running it.
#include "zelva/src/runtime/net.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "support/probe_kernel.h"
#include "zelva/src/runtime/net_constructor.h"
#include "zelva/src/utility/environment_x86.h"

namespace zelva {
namespace runtime {
namespace {

using Trace = std::vector<std::string>;
using Edges = std::vector<LayerEdge>;

class NetTest : public ::testing::Test {
 protected:
  NetTest() {
    kernel::RegisterBaseKernels(registry_);
    for (const char* probe : {"Probe", "Probe_Refuse", "Probe_Double", "Probe_Empty"})
      zvtest::RegisterProbe(registry_, probe);
    zvtest::ResetProbes();
  }
  std::shared_ptr<Net> Build() { return CreateNet(b_.model, b_.cfg, registry_, context_); }
  // Runs with the planar vector `input_` fed to every Input layer index in `input_indices`.
  NetOutputs Run(Net& net, const std::vector<uint32_t>& output_ids, std::vector<uint32_t> input_indices = {0},
                 std::vector<float>* cpu_times = nullptr, std::vector<float>* gpu_times = nullptr) {
    NetInputs inputs;
    for (uint32_t i : input_indices) {
      context_->GetDeviceCPU()->WrapPlanar(inputs[i], {1, 1, static_cast<uint32_t>(input_.size())},
                                           input_.data());
    }
    NetOutputs outputs;
    outputs[99] = {};  // replaced as a whole
    net.Forward(outputs, inputs, output_ids, context_, cpu_times, gpu_times);
    return outputs;
  }
  static std::vector<float> Values(const NetOutputs& outputs, uint32_t index) {
    const auto& t = outputs.at(index).at(0);
    return std::vector<float>(t->Data<float>(), t->Data<float>() + t->shape.ElementCount());
  }
  bool UsesUpPool() const { return context_->device_cpu->use_up_pool; }
  void AddInput(const std::string& id) { b_.AddLayer<InputInfo>(id, {}, "Input_Fallback_M1"); }
  void AddProbe(const std::string& id, const std::vector<std::string>& inputs,
                const std::string& kernel = "Probe") {
    b_.AddLayer<ElementWiseOperatorInfo>(id, inputs, kernel);
  }

  kernel::KernelRegistry registry_;
  zvtest::ModelBuilder b_;
  std::shared_ptr<Context> context_ = zvtest::MakeTestContext();
  std::vector<float> input_ = {1.0f, 2.0f, 3.0f};
};

TEST_F(NetTest, LayersEdgesNamesAndAPlainRun) {
  AddInput("in");
  b_.AddLayer<TensorReshapeInfo>("r", {"in"}, "Transform_MainMemory_Reshape_Fallback")->new_shape = {1, -1};
  AddProbe("sum", {"in", "r"});
  auto net = Build();
  ASSERT_NE(net, nullptr);
  ASSERT_EQ(net->layers.size(), 3u);
  EXPECT_EQ(net->input_layers, (std::map<std::string, uint32_t>{{"in", 0}}));
  EXPECT_EQ(net->layers[1]->name, "TensorReshape");
  EXPECT_EQ(net->layers[2]->name, "ElementWiseOperator");
  EXPECT_EQ(net->layers[2]->inputs, (Edges{{0, 0}, {1, 0}}));
  EXPECT_EQ(net->layers[0]->consumers, (Edges{{1, 0}, {2, 0}}));
  EXPECT_EQ(net->layers[1]->consumers, (Edges{{2, 1}}));

  std::vector<float> cpu{5.0f}, gpu{5.0f};
  NetOutputs out = Run(*net, {1}, {0}, &cpu, &gpu);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(Values(out, 1), input_);
  EXPECT_EQ(out.at(1)[0]->shape.layout, Layout::C);
  EXPECT_EQ(cpu.size(), 2u);
  EXPECT_GE(cpu[0], 0.0f);
  EXPECT_EQ(gpu, (std::vector<float>{0.0f, 0.0f}));
  EXPECT_FALSE(UsesUpPool());
}

TEST_F(NetTest, LayerTypeNamesWithGapsAndShared) {
  const std::pair<uint16_t, const char*> names[] = {{0, "Input"},  {22, "TensorGetItem"},
                                                    {29, "Blob"},  {254, "Blob"},
                                                    {36, "LSTM"},  {38, "UnKnown"},  // GRU has no name here
                                                    {4, "UnKnown"}};
  for (const auto& n : names) EXPECT_EQ(LayerTypeName(n.first), n.second) << n.first;

  // A layer of an unlisted type builds when its kernel accepts it.
  AddInput("in");
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

TEST_F(NetTest, KernelFailuresAndMissingEntries) {
  zvtest::LogCapture capture;
  AddInput("in");
  AddProbe("x", {"in"}, "Probe_Refuse");
  EXPECT_THROW(Build(), std::runtime_error);
  ASSERT_EQ(capture.lines().size(), 1u);  // the assertion itself raises silently
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <Probe_Refuse> failed. In KERNEL REGISTRY"));
  b_.cfg->layer_cfgs["x"]->kernel->kernel_type = "probe";  // names are case-sensitive
  EXPECT_THROW(Build(), std::runtime_error);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <probe> failed. Not in KERNEL REGISTRY"));

  // An input kernel refuses a missing description.
  auto cfg = std::make_shared<KernelCfg>();
  cfg->kernel_type = "Input_Fallback_M1";
  EXPECT_EQ(CreateKernel(cfg, nullptr, registry_, nullptr, context_), nullptr);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <Input_Fallback_M1> failed. In KERNEL REGISTRY"));

  // A layer listed but never described, or without configuration: no net, silently; the look-up leaves an
  // empty entry behind.
  capture.Clear();
  b_.cfg->layer_cfgs["x"]->kernel->kernel_type = "Probe";
  b_.model->squential_ids.push_back("ghost");
  EXPECT_EQ(Build(), nullptr);
  b_.model->squential_ids.pop_back();
  b_.cfg->layer_cfgs.erase("x");
  EXPECT_EQ(Build(), nullptr);
  EXPECT_EQ(b_.cfg->layer_cfgs.count("x"), 1u);
  EXPECT_TRUE(capture.lines().empty());
}

TEST_F(NetTest, EdgeRules) {
  // An input id the model doesn't list reads from layer 0.
  AddInput("in");
  AddProbe("x", {"nowhere"});
  auto net = Build();
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(net->layers[1]->inputs, (Edges{{0, 0}}));

  // A source standing behind its consumer is reported instead of read out of range.
  zvtest::ModelBuilder late;
  late.AddLayer<ElementWiseOperatorInfo>("x", {"in"}, "Probe");
  late.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  EXPECT_THROW(CreateNet(late.model, late.cfg, registry_, context_), std::runtime_error);
}

TEST_F(NetTest, ConvertersByDecimalPositionFlagsAndUpPool) {
  // sum = a + 2b + 1, then doubled behind the layer; the converter positions are decimal ids.
  AddInput("a");
  AddInput("b");
  AddProbe("sum", {"a", "b"});
  AddProbe("tail", {"sum"});
  b_.AddInputConverter("sum", "1", "Probe_Double");
  b_.AddOutputConverter("sum", "0", "Probe_Double");
  auto net = Build();
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(net->layers[2]->input_converters.count(1), 1u);
  EXPECT_EQ(net->input_layers.size(), 2u);

  NetOutputs out = Run(*net, {2, 3}, {0, 1});
  EXPECT_EQ(Values(out, 2), (std::vector<float>{8.0f, 14.0f, 20.0f}));
  EXPECT_EQ(Values(out, 3), (std::vector<float>{9.0f, 15.0f, 21.0f}));
  // Input converters may always be temporary; an output converter of an output layer may not; a main
  // kernel may not when its own output leaves the net directly.
  EXPECT_EQ(zvtest::ProbeTrace(), (Trace{"Probe_Double:1", "sum:1", "Probe_Double:0", "tail:0"}));
  EXPECT_TRUE(zvtest::ProbeUpPool().at("sum"));
  EXPECT_FALSE(UsesUpPool());

  // Not an output: the output converter may be temporary too.
  zvtest::ResetProbes();
  Run(*net, {3}, {0, 1});
  EXPECT_EQ(zvtest::ProbeTrace(), (Trace{"Probe_Double:1", "sum:1", "Probe_Double:1", "tail:0"}));
}

TEST_F(NetTest, ReleasesSourcesWhenAllReadersRan) {
  // in -> a -> b -> c, and a is read again by c.
  AddInput("in");
  AddProbe("a", {"in"});
  AddProbe("b", {"a"});
  AddProbe("c", {"b", "a"});
  AddProbe("d", {"c"});
  auto net = Build();

  NetOutputs out = Run(*net, {4});
  auto& made = zvtest::ProbeOutputs();
  EXPECT_TRUE(made.at("a").expired());  // both readers ran
  EXPECT_TRUE(made.at("b").expired());
  EXPECT_TRUE(made.at("c").expired());
  EXPECT_FALSE(made.at("d").expired());       // held by the result
  EXPECT_EQ(zvtest::ProbeLive().at("d"), 1);  // only c was alive while d ran: a and b went as c finished
  EXPECT_EQ(Values(out, 4), (std::vector<float>{7.0f, 9.0f, 11.0f}));
  out.clear();
  EXPECT_TRUE(made.at("d").expired());  // the net keeps nothing

  // An output read by a later layer survives the release in the results.
  out = Run(*net, {1, 4});
  EXPECT_EQ(Values(out, 1), (std::vector<float>{2.0f, 3.0f, 4.0f}));
}

TEST_F(NetTest, StopsAtTheLastRequestedOutputByPosition) {
  // "side" depends on nothing that is requested, but stands before "b".
  AddInput("in");
  AddProbe("a", {"in"});
  AddProbe("side", {"in"});
  AddProbe("b", {"a"});
  AddProbe("after", {"b"});
  auto net = Build();

  std::vector<float> cpu, gpu;
  NetOutputs out = Run(*net, {3}, {0}, &cpu, &gpu);
  EXPECT_EQ(zvtest::ProbeTrace(), (Trace{"a:1", "side:1", "b:0"}));
  EXPECT_EQ(cpu.size(), 4u);
  EXPECT_EQ(gpu.size(), 4u);

  zvtest::ResetProbes();
  out = Run(*net, {1}, {0}, &cpu, &gpu);
  EXPECT_EQ(zvtest::ProbeTrace(), (Trace{"a:0"}));
  EXPECT_EQ(cpu.size(), 2u);

  // A requested index no layer has keeps the walk going to the end and is simply missing.
  zvtest::ResetProbes();
  out = Run(*net, {1, 77});
  EXPECT_EQ(zvtest::ProbeTrace().size(), 4u);
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(out.count(1), 1u);

  // Nothing requested: nothing runs, and the times are emptied. An empty net serves nothing.
  zvtest::ResetProbes();
  out = Run(*net, {}, {0}, &cpu);
  EXPECT_TRUE(out.empty() && cpu.empty() && zvtest::ProbeTrace().empty());
  Net empty({}, {});
  EXPECT_TRUE(Run(empty, {0}).empty());
  EXPECT_FALSE(UsesUpPool());
}

TEST_F(NetTest, RunFailures) {
  zvtest::LogCapture capture;
  AddInput("in");
  AddProbe("a", {"in"});
  AddProbe("orphan", {});
  AddProbe("b", {"a"});
  AddProbe("empty", {"in"}, "Probe_Empty");
  AddProbe("c", {"empty"});
  auto net = Build();
  // A layer without inputs ends the run with an Error line, serving what was made so far.
  NetOutputs out = Run(*net, {1, 3});
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::Net::Forward",
                                  "forward index 2 layer type ElementWiseOperator, input size == 0"));
  EXPECT_EQ(out.size(), 1u);
  EXPECT_EQ(Values(out, 1), (std::vector<float>{2.0f, 3.0f, 4.0f}));
  EXPECT_TRUE(UsesUpPool());  // only the normal end clears it
  out.clear();
  EXPECT_TRUE(zvtest::ProbeOutputs().at("a").expired());

  // Failures that would read nothing raise: a layer's output that was never made, an Input fed nothing.
  b_.model->squential_ids = {"in", "a", "empty", "c"};
  net = Build();
  EXPECT_THROW(Run(*net, {3}), std::runtime_error);
  EXPECT_THROW(Run(*net, {1}, {}), std::runtime_error);

  // A converter missing from the registry is stored as null with its Error line, and the run raises.
  b_.AddInputConverter("a", "0", "NoSuchConverter");
  net = Build();
  ASSERT_NE(net, nullptr);
  EXPECT_EQ(net->layers[1]->input_converters.at(0), nullptr);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                  "Config Kernel <NoSuchConverter> failed. Not in KERNEL REGISTRY"));
  EXPECT_THROW(Run(*net, {1}), std::runtime_error);
}

// The processor report forced to "no AVX" for the length of a test.
class NoAvx {
 public:
  NoAvx() { utility::OverrideAvxForTesting(true); }
  ~NoAvx() { utility::OverrideAvxForTesting(false); }
};

// The guard reads the instruction set from the name: every AVX-group name holds "_AVX_", no other name does;
// an AVX main kernel or converter fails the build on a processor without AVX.
TEST_F(NetTest, AvxKernelsAreRefusedWithoutAvx) {
  using Register = void (*)(kernel::KernelRegistry&);
  for (Register group :
       {&kernel::RegisterBaseKernels, &kernel::RegisterFallbackKernels, &kernel::RegisterSGEMMKernels,
        &kernel::RegisterSSEKernels, &kernel::RegisterAVXKernels}) {
    kernel::KernelRegistry one;
    group(one);
    const bool avx_group = group == &kernel::RegisterAVXKernels;
    EXPECT_TRUE(!avx_group || !one.empty());
    for (const auto& entry : one)
      EXPECT_EQ(entry.first.find("_AVX_") != std::string::npos, avx_group) << entry.first;
    group(registry_);
  }

  // in -> ReLU, with an input converter when one is named.
  auto build = [&](const std::string& main_kernel, const std::string& converter) {
    b_ = zvtest::ModelBuilder();
    AddInput("in");
    b_.AddLayer<ActivationInfo>("act", {"in"}, main_kernel)->activation_type = 2;  // ReLU
    if (!converter.empty()) b_.AddInputConverter("act", "0", converter);
    return Build();
  };
  const std::string refusal = "needs AVX, which this processor (or its operating system) does not offer.";
  zvtest::LogCapture capture;
  {
    NoAvx no_avx;
    EXPECT_THROW(build("ReLU_AVX_Float_M1", ""), std::runtime_error);
    ASSERT_EQ(capture.lines().size(), 1u);  // the refusal's own line; the assertion raises silently
    EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                    "Kernel <ReLU_AVX_Float_M1> " + refusal));
    // A converter that needs AVX fails the build too, where a missing one would only be stored as null.
    EXPECT_THROW(build("ReLU_SSE_Float_M1", "Elementwise_Add_AVX_Float_M1"), std::runtime_error);
    EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::CreateKernel",
                                    "Kernel <Elementwise_Add_AVX_Float_M1> " + refusal));
    // Kernels of the other groups are untouched by the guard.
    capture.Clear();
    EXPECT_NE(build("ReLU_SSE_Float_M1", ""), nullptr);
    EXPECT_TRUE(capture.lines().empty());
  }
  // With the processor's own answer back, the AVX member builds where the processor has AVX.
  if (utility::EnvironmentX86::Instance().IsAvxUsable()) {
    auto net = build("ReLU_AVX_Float_M1", "");
    ASSERT_NE(net, nullptr);
    EXPECT_EQ(net->layers[1]->kernel->GetName(), "ReLU_AVX_Float_M1");
  }
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
