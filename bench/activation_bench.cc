// Every activation member (both member lists) through its kernel interface, against a memcpy of the same
// bytes measured in the same run: the counter "x_memcpy" is the member's time over the copy's time.
#include <benchmark/benchmark.h>

#include "bench_support.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "zelva/src/kernel/family/activation/members.h"
#include "zelva/src/kernel/frame/member.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/half.h"

namespace {

using namespace zelva;

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
  const double copy_ns = zvbench::MemcpyNanoseconds(n * sizeof(float));
  const double start = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const double took = zvbench::ThreadNanoseconds() - start;
  state.counters["x_memcpy"] = took / static_cast<double>(state.iterations()) / copy_ns;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * n * sizeof(float));
}

#define ZV_BENCH_ACTIVATION(group, isa, cls, accuracy, code, core, placement)                       \
  benchmark::RegisterBenchmark(#cls,                                                                \
                               [](benchmark::State& state) {                                        \
                                 BM_Activation<kernel::cls>(state, kernel::code,                    \
                                                            kernel::Isa::isa == kernel::Isa::kAVX); \
                               })                                                                   \
      ->Arg(80)                                                                                     \
      ->Arg(1024)                                                                                   \
      ->Arg(16384);

[[maybe_unused]] const int registered = [] {
  ZV_ACTIVATION_MEMBERS(ZV_BENCH_ACTIVATION)
  return 0;
}();

}  // namespace
