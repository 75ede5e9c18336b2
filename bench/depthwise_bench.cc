// The depthwise members and the layout converters on a 64-channel 56 x 56 map, each beside one memcpy of its
// input measured in the same run.
//
// Depthwise: 5x5 and 3x3 layers, stride 1 and 2, padding 2 and 1 (output 56 x 56, or 28 x 28), every row of
// the depthwise list that accepts a layer, fed in its own layout. Counters: GFLOP/s (two per tap and output
// value, thread CPU time), memcpy_ns (one copy of the input) and x_memcpy (the member's time over it).
// Converters: every row of the layout list on the same map, counters memcpy_ns and x_memcpy.
// Run: build/bench/zelva_bench --benchmark_filter='Depthwise|LayoutTransform'
#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/depthwise/members.h"
#include "zelva/src/kernel/family/layout/members.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {
namespace {

constexpr uint32_t kChannels = 64, kSize = 56;

struct Layer {
  const char* label;
  uint32_t k, stride;
};
const Layer kLayers[] = {{"k5s1", 5, 1}, {"k5s2", 5, 2}, {"k3s1", 3, 1}, {"k3s2", 3, 2}};

std::shared_ptr<runtime::Conv2dInfo> MakeInfo(const Layer& l) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->id = l.label;
  info->in_channels = info->out_channels = info->groups = kChannels;
  info->kernel_x = info->kernel_y = static_cast<uint16_t>(l.k);
  info->stride_x = info->stride_y = static_cast<uint16_t>(l.stride);
  info->padding_l = info->padding_r = info->padding_t = info->padding_b = static_cast<uint16_t>(l.k / 2);
  info->if_bias = true;
  const std::vector<float> weight = zvbench::RandomFloats(kChannels * l.k * l.k, 1);
  const std::vector<float> bias = zvbench::RandomFloats(kChannels, 2);
  info->weight = runtime::EncodeWeights(weight.data(), weight.size());
  info->bias = runtime::EncodeWeights(bias.data(), bias.size());
  return info;
}

// The map in `layout`: [64, 56, 56] planar, or [64 / lanes, 56, 56, lanes].
runtime::TensorShape MapShape(uint32_t layout) {
  const uint32_t lanes = layout == runtime::Layout::C4HW4 ? 4 : layout == runtime::Layout::C8HW8 ? 8 : 1;
  std::vector<uint32_t> dims = {kChannels, kSize, kSize};
  if (lanes > 1) dims = {kChannels / lanes, kSize, kSize, lanes};
  return runtime::TensorShape(std::move(dims), runtime::DataType::FLOAT32, layout);
}

// Times `kernel` on the map in `layout`; `flops` per call, 0 for none.
void Time(benchmark::State& state, runtime::IKernel& kernel, const std::shared_ptr<runtime::Context>& context,
          uint32_t layout, double flops) {
  const std::vector<float> x = zvbench::RandomFloats(kChannels * kSize * kSize, 3);
  std::shared_ptr<runtime::Tensor> input;
  context->GetDeviceCPU()->CreateTensor(input, MapShape(layout), x.data());
  const double copy_ns = zvbench::MemcpyNanoseconds(x.size() * sizeof(float));
  runtime::TensorList inputs = {input}, outputs;
  const double start = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const double ns = (zvbench::ThreadNanoseconds() - start) / static_cast<double>(state.iterations());
  if (flops > 0) state.counters["GFLOP/s"] = flops / ns;
  state.counters["memcpy_ns"] = copy_ns;
  state.counters["x_memcpy"] = ns / copy_ns;
}

uint32_t LayoutOf(const Conv2dRule& rule) {
  return rule.channels == ConvChannels::kMult4   ? runtime::Layout::C4HW4
         : rule.channels == ConvChannels::kMult8 ? runtime::Layout::C8HW8
                                                 : runtime::Layout::CHW;
}

template <class Kernel>
void RegisterDepthwise(const char* name, const Conv2dRule& rule, Isa isa) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  for (const Layer& l : kLayers) {
    if (Kernel().CheckSupport(MakeInfo(l), nullptr) != 0) continue;
    const uint32_t layout = LayoutOf(rule);
    benchmark::RegisterBenchmark(
        (std::string(name) + "/" + l.label + "_c64_56x56").c_str(), [l, layout](benchmark::State& state) {
          auto context = runtime::CreateCPUContext(64);
          Kernel kernel;
          if (!kernel.Config(MakeInfo(l), nullptr, nullptr, context)) {
            state.SkipWithError("refused");
            return;
          }
          const double out = kSize / l.stride;
          Time(state, kernel, context, layout, 2.0 * kChannels * out * out * l.k * l.k);
        });
  }
}

template <class Kernel>
void RegisterLayout(const char* name, uint32_t from, Isa isa) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  benchmark::RegisterBenchmark((std::string(name) + "/c64_56x56").c_str(), [from](benchmark::State& state) {
    auto context = runtime::CreateCPUContext(64);
    Kernel kernel;
    kernel.Config(nullptr, nullptr, nullptr, context);
    Time(state, kernel, context, from, 0);
  });
}

const int kRegistered = [] {
#define ZV_BENCH_DEPTHWISE(group, isa, cls, ...) RegisterDepthwise<cls>(#cls, cls##_rule, Isa::isa);
#define ZV_BENCH_LAYOUT(group, isa, cls, accuracy, from, to, core) \
  RegisterLayout<cls>(#cls, runtime::Layout::from, Isa::isa);
  ZV_DEPTHWISE_MEMBERS(ZV_BENCH_DEPTHWISE)
  ZV_LAYOUT_MEMBERS(ZV_BENCH_LAYOUT)
#undef ZV_BENCH_DEPTHWISE
#undef ZV_BENCH_LAYOUT
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
