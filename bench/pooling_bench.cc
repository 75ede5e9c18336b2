// Every pooling member on a 64-channel 56 x 56 map in its own layout (the general members planar), with the
// window and stride its name fixes (the general members: 3 x 3, stride 2), no padding, against one memcpy of
// the input in the same run, the rounds of the two interleaved (zvbench::RatioToMemcpy).
// Counters: x_memcpy (the member's best time over the copy's best time) and ns (the member's time per call).
// Run: build/bench/zelva_bench --benchmark_filter='Pooling2D|Yardstick_TwoPass'
// (Yardstick_TwoPass_K7x7_SSE_C4HW4: see RegisterSseTwoPassYardstick.)
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/pooling/blocked_tile.h"
#include "zelva/src/kernel/family/pooling/members.h"
#include "zelva/src/kernel/functional/vector4.h"
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

// A yardstick for the planar SSE 7 x 7 member: the two-pass core of the AVX C8HW8 members (column sums, then
// the same split along each row) run on 4-lane SSE vectors over a C4HW4 copy of the map, with the same memcpy
// in the same run. This is the cheapest arrangement of the stride 1 sums in this family: every add is a whole
// vector, nothing is shifted or transposed. Its ratio is what 128-bit vectors cost for that work.
void RegisterSseTwoPassYardstick() {
  benchmark::RegisterBenchmark("Yardstick_TwoPass_K7x7_SSE_C4HW4/c64_56x56", [](benchmark::State& state) {
    constexpr uint32_t kOut = kSize - 6;
    const std::vector<float> x = zvbench::RandomFloats(kChannels * kSize * kSize, 3);
    std::vector<float> y(kChannels * kOut * kOut), rows(kOut, 7.0f), cols(kOut, 7.0f);
    std::vector<float> work(static_cast<size_t>(kSize + 2) * (kSize + 1) * 4 + kOut * kOut);
    PoolArgs args{};
    args.input = x.data();
    args.in_h = args.in_w = kSize;
    args.output = y.data();
    args.out_h = args.out_w = kOut;
    args.planes = kChannels / 4;
    args.lanes = 4;
    args.kernel_y = args.kernel_x = 7;
    args.stride_y = args.stride_x = 1;
    args.row_count = rows.data();
    args.col_count = cols.data();
    args.work = work.data();
    const auto run = [&] {
      pool_tile::BlockedSeparable<V4, 7, 7>(args);
      benchmark::DoNotOptimize(y.data());
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
  RegisterSseTwoPassYardstick();
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
