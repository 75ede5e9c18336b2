// Every pooling member on a 64-channel 56 x 56 map in its own layout (the general members planar), with the
// window and stride its name fixes (the general members: 3 x 3, stride 2), no padding, against one memcpy of
// the input in the same run, the rounds of the two interleaved (zvbench::RatioToMemcpy).
// Counters: x_memcpy (the member's best time over the copy's best time) and ns (the member's time per call).
// Run: build/bench/zelva_bench --benchmark_filter=Pooling2D
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/pooling/members.h"
#include "zelva/src/runtime/context.h"

namespace zelva {
namespace kernel {
namespace {

constexpr uint32_t kChannels = 64, kSize = 56;

std::shared_ptr<runtime::LayerInfo> MakeInfo(const PoolRule& rule) {
  const uint32_t ky = rule.kernel_y ? rule.kernel_y : 3, kx = rule.kernel_x ? rule.kernel_x : 3;
  const uint32_t sy = rule.stride_y ? rule.stride_y : 2, sx = rule.stride_x ? rule.stride_x : 2;
  const auto fill = [&](auto& info) {
    info.id = "pool";
    info.kernel_y = static_cast<uint16_t>(ky);
    info.kernel_x = static_cast<uint16_t>(kx);
    info.stride_y = static_cast<uint16_t>(sy);
    info.stride_x = static_cast<uint16_t>(sx);
  };
  if (rule.kind == PoolKind::kMax) {
    auto info = std::make_shared<runtime::MaxPool2dInfo>();
    fill(*info);
    return info;
  }
  auto info = std::make_shared<runtime::AvgPool2dInfo>();
  fill(*info);
  return info;
}

runtime::TensorShape MapShape(PoolLayout layout) {
  const uint32_t lanes = layout == PoolLayout::kC4HW4 ? 4 : layout == PoolLayout::kC8HW8 ? 8 : 1;
  if (lanes == 1)
    return runtime::TensorShape({kChannels, kSize, kSize}, runtime::DataType::FLOAT32, runtime::Layout::CHW);
  return runtime::TensorShape({kChannels / lanes, kSize, kSize, lanes}, runtime::DataType::FLOAT32,
                              lanes == 8 ? runtime::Layout::C8HW8 : runtime::Layout::C4HW4);
}

template <class Kernel>
void Register(const char* name, const PoolRule& rule, Isa isa) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  benchmark::RegisterBenchmark((std::string(name) + "/c64_56x56").c_str(), [&rule](benchmark::State& state) {
    auto context = runtime::CreateCPUContext(64);
    Kernel kernel;
    if (!kernel.Config(MakeInfo(rule), nullptr, nullptr, context)) {
      state.SkipWithError("refused");
      return;
    }
    const std::vector<float> x = zvbench::RandomFloats(kChannels * kSize * kSize, 3);
    std::shared_ptr<runtime::Tensor> input;
    context->GetDeviceCPU()->CreateTensor(input, MapShape(rule.layout), x.data());
    runtime::TensorList inputs = {input}, outputs;
    const auto run = [&] {
      kernel.Forward(inputs, outputs, context);
      benchmark::DoNotOptimize(outputs[0]->data);
      outputs.clear();
    };
    const double start = zvbench::ThreadNanoseconds();
    for (auto _ : state) run();
    state.counters["ns"] = (zvbench::ThreadNanoseconds() - start) / static_cast<double>(state.iterations());
    state.counters["x_memcpy"] = zvbench::RatioToMemcpy(run, x.size() * sizeof(float));
  });
}

const int kRegistered = [] {
#define ZV_BENCH_POOLING(group, isa, cls, ...) Register<cls>(#cls, cls##_rule, Isa::isa);
  ZV_POOLING_MEMBERS(ZV_BENCH_POOLING)
#undef ZV_BENCH_POOLING
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
