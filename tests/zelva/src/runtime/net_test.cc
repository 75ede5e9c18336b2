#include "zelva/src/runtime/net.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/log_capture.h"
#include "support/model_builder.h"
#include "support/probe_kernel.h"
#include "zelva/src/runtime/net_constructor.h"

namespace zelva {
namespace runtime {
namespace {

using Trace = std::vector<std::string>;

class NetForwardTest : public ::testing::Test {
 protected:
  NetForwardTest() {
    kernel::RegisterBaseKernels(registry_);
    zvtest::RegisterProbe(registry_, "Probe");
    zvtest::RegisterProbe(registry_, "Probe_Double");
    zvtest::RegisterProbe(registry_, "Probe_Empty");
    zvtest::ResetProbes();
  }
  std::shared_ptr<Net> Build() {
    auto net = CreateNet(b_.model, b_.cfg, registry_, context_);
    EXPECT_NE(net, nullptr);
    return net;
  }
  // Runs with the planar vector `input_` fed to every Input layer index in `input_indices`.
  NetOutputs Run(Net& net, const std::vector<uint32_t>& output_ids, std::vector<uint32_t> input_indices = {0},
                 std::vector<float>* cpu_times = nullptr, std::vector<float>* gpu_times = nullptr) {
    NetInputs inputs;
    for (uint32_t i : input_indices) {
      std::shared_ptr<Tensor> t;
      context_->GetDeviceCPU()->WrapPlanar(t, {1, 1, static_cast<uint32_t>(input_.size())}, input_.data());
      inputs[i] = t;
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

  kernel::KernelRegistry registry_;
  zvtest::ModelBuilder b_;
  std::shared_ptr<Context> context_ = zvtest::MakeTestContext();
  std::vector<float> input_ = {1.0f, 2.0f, 3.0f};
};

TEST_F(NetForwardTest, InputReshapeOutput) {
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<TensorReshapeInfo>("r", {"in"}, "Transform_MainMemory_Reshape_Fallback")->new_shape = {1, -1};
  auto net = Build();
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

TEST_F(NetForwardTest, ConvertersFlagsAndUpPool) {
  // sum = a + 2b + 1, then doubled behind the layer.
  b_.AddLayer<InputInfo>("a", {}, "Input_Fallback_M1");
  b_.AddLayer<InputInfo>("b", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("sum", {"a", "b"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("tail", {"sum"}, "Probe");
  b_.AddInputConverter("sum", "1", "Probe_Double");
  b_.AddOutputConverter("sum", "0", "Probe_Double");
  auto net = Build();

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

TEST_F(NetForwardTest, ReleasesSourcesWhenAllReadersRan) {
  // in -> a -> b -> c, and a is read again by c.
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("b", {"a"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("c", {"b", "a"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("d", {"c"}, "Probe");
  auto net = Build();

  NetOutputs out = Run(*net, {4});
  auto& made = zvtest::ProbeOutputs();
  EXPECT_TRUE(made.at("a").expired());  // both readers ran
  EXPECT_TRUE(made.at("b").expired());
  EXPECT_TRUE(made.at("c").expired());
  EXPECT_FALSE(made.at("d").expired());  // held by the result
  EXPECT_EQ(Values(out, 4), (std::vector<float>{7.0f, 9.0f, 11.0f}));
  out.clear();
  EXPECT_TRUE(made.at("d").expired());  // the net keeps nothing

  // An output read by a later layer survives the release in the results.
  zvtest::ResetProbes();
  out = Run(*net, {1, 4});
  EXPECT_EQ(Values(out, 1), (std::vector<float>{2.0f, 3.0f, 4.0f}));
}

TEST_F(NetForwardTest, StopsAtTheLastRequestedOutputByPosition) {
  // "side" depends on nothing that is requested, but stands before "b".
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("side", {"in"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("b", {"a"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("after", {"b"}, "Probe");
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
}

TEST_F(NetForwardTest, EmptyRequestsAndEmptyNet) {
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe");
  auto net = Build();
  std::vector<float> cpu{1.0f, 2.0f};
  NetOutputs out = Run(*net, {}, {0}, &cpu);
  EXPECT_TRUE(out.empty());
  EXPECT_TRUE(cpu.empty());
  EXPECT_TRUE(zvtest::ProbeTrace().empty());

  Net empty({}, {});
  out = Run(empty, {0});
  EXPECT_TRUE(out.empty());
  EXPECT_FALSE(UsesUpPool());
}

TEST_F(NetForwardTest, LayerWithoutInputsEndsTheRunWithAnErrorLine) {
  zvtest::LogCapture capture;
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("orphan", {}, "Probe");
  b_.AddLayer<ElementWiseOperatorInfo>("b", {"a"}, "Probe");
  auto net = Build();
  NetOutputs out = Run(*net, {1, 3});
  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_TRUE(zvtest::IsErrorLine(capture.Last(), "zelva::runtime::Net::Forward",
                                  "forward index 2 layer type ElementWiseOperator, input size == 0"));
  EXPECT_EQ(out.size(), 1u);  // what was served so far
  EXPECT_EQ(Values(out, 1), (std::vector<float>{2.0f, 3.0f, 4.0f}));
  EXPECT_TRUE(UsesUpPool());  // only the normal end clears it
  out.clear();
  EXPECT_TRUE(zvtest::ProbeOutputs().at("a").expired());
}

TEST_F(NetForwardTest, FailuresThatWouldReadNothingAreReported) {
  b_.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  b_.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe_Empty");
  b_.AddLayer<ElementWiseOperatorInfo>("b", {"a"}, "Probe");
  auto net = Build();
  EXPECT_THROW(Run(*net, {2}), std::runtime_error);      // "a" produced no output for "b" to read
  EXPECT_THROW(Run(*net, {2}, {}), std::runtime_error);  // the Input layer was fed nothing

  zvtest::LogCapture capture;
  zvtest::ModelBuilder c;
  c.AddLayer<InputInfo>("in", {}, "Input_Fallback_M1");
  c.AddLayer<ElementWiseOperatorInfo>("a", {"in"}, "Probe");
  c.AddInputConverter("a", "0", "Missing");
  auto broken = CreateNet(c.model, c.cfg, registry_, context_);
  ASSERT_NE(broken, nullptr);
  EXPECT_THROW(Run(*broken, {1}), std::runtime_error);
}

}  // namespace
}  // namespace runtime
}  // namespace zelva
