// Every activation member (both member lists) through its kernel interface, against a memcpy of the same
// bytes measured in the same run: the counter "x_memcpy" is the member's time over the copy's time.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "zelva/src/kernel/cpu/avx/activation/members.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/kernel/cpu/sse/activation/members.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/half.h"

namespace {

using namespace zelva;

// Nanoseconds of one memcpy of `bytes`, the best of several timed batches.
double MemcpyNanoseconds(size_t bytes) {
  std::vector<char> src(bytes, 1), dst(bytes);
  double best = 1e30;
  for (int batch = 0; batch < 20; ++batch) {
    const auto start = std::chrono::steady_clock::now();
    for (int k = 0; k < 200; ++k) {
      std::memcpy(dst.data(), src.data(), bytes);
      benchmark::DoNotOptimize(dst.data());
      benchmark::ClobberMemory();
    }
    const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count() / 200);
  }
  return best;
}

template <class Kernel>
void BM_Activation(benchmark::State& state, uint32_t code, bool avx) {
  if (avx && !__builtin_cpu_supports("avx")) {
    state.SkipWithError("no AVX on this processor");
    return;
  }
  const uint32_t n = static_cast<uint32_t>(state.range(0));
  auto context = runtime::CreateCPUContext(64);
  auto info = std::make_shared<runtime::ActivationInfo>();
  info->activation_type = static_cast<uint16_t>(code);
  info->activation_alpha = runtime::FloatToHalf(0.25f);
  Kernel kernel;
  if (!kernel.Config(info, nullptr, nullptr, context)) {
    state.SkipWithError("Config failed");
    return;
  }
  std::mt19937 rng(1);
  std::uniform_real_distribution<float> value(-8.0f, 8.0f);
  std::vector<float> x(n);
  for (float& v : x) v = value(rng);
  std::shared_ptr<runtime::Tensor> input;
  context->GetDeviceCPU()->CreateTensor(
      input, runtime::TensorShape({n}, runtime::DataType::FLOAT32, runtime::Layout::CHW), x.data());
  runtime::TensorList inputs = {input}, outputs;
  const double copy_ns = MemcpyNanoseconds(n * sizeof(float));
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
  state.counters["x_memcpy"] = took.count() / static_cast<double>(state.iterations()) / copy_ns;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * n * sizeof(float));
}

#define ZV_BENCH_ACTIVATION(group, cls, code, core, placement)                                 \
  benchmark::RegisterBenchmark(#cls,                                                           \
                               [](benchmark::State& state) {                                   \
                                 BM_Activation<kernel::cls>(                                   \
                                     state, kernel::code,                                      \
                                     kernel::KernelGroup::group == kernel::KernelGroup::kAVX); \
                               })                                                              \
      ->Arg(80)                                                                                \
      ->Arg(1024)                                                                              \
      ->Arg(16384);

[[maybe_unused]] const int registered = [] {
  ZV_SSE_ACTIVATION_MEMBERS(ZV_BENCH_ACTIVATION)
  ZV_AVX_ACTIVATION_MEMBERS(ZV_BENCH_ACTIVATION)
  return 0;
}();

}  // namespace
