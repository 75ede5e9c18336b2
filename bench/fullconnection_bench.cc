// Fully connected members against the time of streaming their weights once (a memcpy of the weight bytes),
// measured in the same process: counter vs_memcpy = member time / memcpy time, each the best of
// interleaved rounds. A dense product reads every
// weight once, so 1.0 is the memory-bound floor for weights that do not stay in cache.
//
//   build/bench/zelva_bench --benchmark_filter=FullConnection
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/fullconnection/members.h"
#include "zelva/src/kernel/functional/gemm.h"
#include "zelva/src/kernel/registry/registry.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"

namespace {

using zelva::kernel::FcInput;
using zelva::kernel::Isa;
using zelva::runtime::DataType;
using zelva::runtime::Layout;
using zelva::runtime::TensorShape;

const std::vector<std::pair<int64_t, int64_t>> kSizes = {{256, 256}, {256, 80}, {80, 256}};  // in, out

std::vector<float> Random(size_t n, uint32_t seed) {
  return zvbench::RandomFloats(n, seed);
}

template <class K>
void RunMember(benchmark::State& state, uint32_t layout, FcInput rule) {
  const uint32_t in = static_cast<uint32_t>(state.range(0)), out = static_cast<uint32_t>(state.range(1));
  auto context = zelva::runtime::CreateCPUContext(64);
  auto info = std::make_shared<zelva::runtime::FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(in);
  info->out_features = static_cast<uint16_t>(out);
  info->if_bias = true;
  const std::vector<float> w = Random(static_cast<size_t>(in) * out, 1), b = Random(out, 2),
                           x = Random(in, 3);
  info->weight = zelva::runtime::EncodeWeights(w.data(), w.size());
  info->bias = zelva::runtime::EncodeWeights(b.data(), b.size());
  K kernel;
  if (!kernel.Config(info, nullptr, nullptr, context)) {
    state.SkipWithError("Config refused");
    return;
  }
  TensorShape shape({in}, DataType::FLOAT32, Layout::C);
  if (rule == FcInput::kBatchRows) shape = TensorShape({1, in}, DataType::FLOAT32, Layout::BC);
  if (layout == Layout::FLEXIABLE) shape = TensorShape({in, 1, 1}, DataType::FLOAT32, Layout::FLEXIABLE);
  std::shared_ptr<zelva::runtime::Tensor> input;
  context->GetDeviceCPU()->CreateTensor(input, shape, x.data());
  zelva::runtime::TensorList outputs;

  auto run = [&]() {
    kernel.Forward({input}, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
  };
  for (auto _ : state) run();
  state.counters["vs_memcpy"] = zvbench::RatioToMemcpy(run, sizeof(float) * w.size());
}

template <class K>
void Register(const char* name, Isa isa, uint32_t layout, FcInput rule) {
  for (const auto& size : kSizes) {
    benchmark::RegisterBenchmark(name, [isa, layout, rule](benchmark::State& state) {
      if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) {
        state.SkipWithError("no AVX");
        return;
      }
      RunMember<K>(state, layout, rule);
    })->Args({size.first, size.second});
  }
}

// The BLAS route of the bridge, for comparison (not a member).
void DenseBySgemmBench(benchmark::State& state) {
  const int32_t in = static_cast<int32_t>(state.range(0)), out = static_cast<int32_t>(state.range(1));
  const std::vector<float> w = Random(static_cast<size_t>(in) * out, 1), b = Random(out, 2),
                           x = Random(in, 3);
  std::vector<float> y(out);
  auto run = [&]() {
    zelva::kernel::functional::DenseBySgemm(x.data(), in, out, w.data(), b.data(), y.data());
    benchmark::ClobberMemory();
  };
  for (auto _ : state) run();
  state.counters["vs_memcpy"] = zvbench::RatioToMemcpy(run, sizeof(float) * w.size());
}

int RegisterAll() {
#define ZV_FC_BENCH_MEMBER(group, isa, cls, ...)                                  \
  Register<zelva::kernel::cls>(#cls, Isa::isa, zelva::kernel::cls##_Row::kLayout, \
                               zelva::kernel::cls##_Row::kInput);
  ZV_FULLCONNECTION_MEMBERS(ZV_FC_BENCH_MEMBER)
#undef ZV_FC_BENCH_MEMBER
  for (const auto& size : kSizes)
    benchmark::RegisterBenchmark("FullConnection_DenseBySgemm", DenseBySgemmBench)
        ->Args({size.first, size.second});
  return 0;
}

const int kRegistered = RegisterAll();

}  // namespace
