// The transposed convolution, one-dimensional convolution and upsampling members, each beside one memcpy of
// its output measured in the same run (counters memcpy_ns and x_memcpy, thread CPU time):
//   ConvTranspose  32 to 32 channels, 3x3, stride 2, torch padding 1 and output padding 1: 28 x 28 to 56
//   x 56. Conv1d         64 to 64 channels, kernel 3, stride 1, padding 1, length 256. Upsampling     32
//   channels, 28 x 28 to 56 x 56 by a factor 2, in each mode a member implements.
// Every row of each list that accepts its layer runs, fed in its own layout.
// Run: build/bench/zelva_bench --benchmark_filter='ConvTranspose|Conv1d|Upsampling'
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench_support.h"
#include "zelva/src/kernel/family/conv1d/members.h"
#include "zelva/src/kernel/family/convtranspose/members.h"
#include "zelva/src/kernel/family/upsampling/members.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {
namespace {

uint32_t LanesOf(uint32_t layout) {
  return layout == runtime::Layout::C4HW4 ? 4 : layout == runtime::Layout::C8HW8 ? 8 : 1;
}

std::string Encoded(size_t n, uint32_t seed) {
  const std::vector<float> v = zvbench::RandomFloats(n, seed);
  return runtime::EncodeWeights(v.data(), v.size());
}

// Configures `kernel` (a member of `isa`) on `context` with `info`, then times Forward on a random input of
// `dims` in `layout`.
void Time(benchmark::State& state, Isa isa, const std::shared_ptr<runtime::Context>& context,
          runtime::IKernel& kernel, std::shared_ptr<runtime::LayerInfo> info, std::vector<uint32_t> dims,
          uint32_t layout) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) {
    state.SkipWithError("no AVX on this processor");
    return;
  }
  if (!kernel.Config(info, nullptr, nullptr, context)) {
    state.SkipWithError("refused");
    return;
  }
  runtime::TensorShape shape(std::move(dims), runtime::DataType::FLOAT32, layout);
  const std::vector<float> x = zvbench::RandomFloats(shape.ElementCount(), 3);
  std::shared_ptr<runtime::Tensor> input;
  context->GetDeviceCPU()->CreateTensor(input, shape, x.data());
  runtime::TensorList inputs = {input}, outputs;
  kernel.Forward(inputs, outputs, context);
  const double copy_ns = zvbench::MemcpyNanoseconds(outputs[0]->shape.ElementCount() * sizeof(float));
  outputs.clear();
  const double start = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
    outputs.clear();
  }
  const double ns = (zvbench::ThreadNanoseconds() - start) / static_cast<double>(state.iterations());
  state.counters["memcpy_ns"] = copy_ns;
  state.counters["x_memcpy"] = ns / copy_ns;
}

std::shared_ptr<runtime::LayerInfo> ConvTransposeLayer() {
  auto info = std::make_shared<runtime::ConvTranspose2dInfo>();
  info->in_channels = info->out_channels = 32;
  info->kernel_x = info->kernel_y = 3;
  info->stride_x = info->stride_y = 2;
  info->groups = 1;
  info->padding_l = info->padding_t = 1;
  info->if_bias = true;
  info->weight = Encoded(32 * 32 * 9, 1);
  info->bias = Encoded(32, 2);
  return info;
}

std::shared_ptr<runtime::LayerInfo> Conv1dLayer() {
  auto info = std::make_shared<runtime::Conv1dInfo>();
  info->in_channels = info->out_channels = 64;
  info->kernel_size = 3;
  info->padding_f = info->padding_b = 1;
  info->if_bias = true;
  info->weight = Encoded(64 * 64 * 3, 1);
  info->bias = Encoded(64, 2);
  return info;
}

std::shared_ptr<runtime::LayerInfo> UpsampleLayer(uint16_t mode) {
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->unsample_type = mode;
  info->scale_factor_x = info->scale_factor_y = 2.0f;
  return info;
}

#define ZV_BENCH_CONVTRANSPOSE(group, isa, cls, accuracy, layout, ...)                                      \
  void BM_ConvTranspose_##cls(benchmark::State& state) {                                                    \
    auto context = runtime::CreateCPUContext(64); /* made first: it outlives the kernel */                  \
    cls kernel;                                                                                             \
    const uint32_t lanes = LanesOf(runtime::Layout::layout);                                                \
    Time(state, Isa::isa, context, kernel, ConvTransposeLayer(),                                            \
         lanes == 1 ? std::vector<uint32_t>{32, 28, 28} : std::vector<uint32_t>{32 / lanes, 28, 28, lanes}, \
         runtime::Layout::layout);                                                                          \
  }                                                                                                         \
  BENCHMARK(BM_ConvTranspose_##cls);
ZV_CONVTRANSPOSE_MEMBERS(ZV_BENCH_CONVTRANSPOSE)

#define ZV_BENCH_CONV1D(group, isa, cls, ...)                                              \
  void BM_Conv1d_##cls(benchmark::State& state) {                                          \
    auto context = runtime::CreateCPUContext(64); /* made first: it outlives the kernel */ \
    cls kernel;                                                                            \
    Time(state, Isa::isa, context, kernel, Conv1dLayer(), {64, 256}, runtime::Layout::CL); \
  }                                                                                        \
  BENCHMARK(BM_Conv1d_##cls);
ZV_CONV1D_MEMBERS(ZV_BENCH_CONV1D)

// The modes a member implements, as the benchmark's argument (the layer's mode code).
template <UpsampleModes M>
void ModeArgs(benchmark::internal::Benchmark* b) {
  if (M != UpsampleModes::kBilinear) b->Arg(0);
  if (M != UpsampleModes::kNearest) b->Arg(1);
  if (M == UpsampleModes::kAll) b->Arg(2);
}

#define ZV_BENCH_UPSAMPLING(group, isa, cls, accuracy, layout, modes, core)                                 \
  void BM_Upsampling_##cls(benchmark::State& state) {                                                       \
    auto context = runtime::CreateCPUContext(64); /* made first: it outlives the kernel */                  \
    cls kernel;                                                                                             \
    const uint32_t lanes = LanesOf(runtime::Layout::layout);                                                \
    Time(state, Isa::isa, context, kernel, UpsampleLayer(static_cast<uint16_t>(state.range(0))),            \
         lanes == 1 ? std::vector<uint32_t>{32, 28, 28} : std::vector<uint32_t>{32 / lanes, 28, 28, lanes}, \
         runtime::Layout::layout);                                                                          \
  }                                                                                                         \
  BENCHMARK(BM_Upsampling_##cls)->Apply(ModeArgs<UpsampleModes::modes>);
ZV_UPSAMPLING_MEMBERS(ZV_BENCH_UPSAMPLING)

}  // namespace
}  // namespace kernel
}  // namespace zelva
