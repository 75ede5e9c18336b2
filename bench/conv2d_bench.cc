// Planar convolution members at the shapes of the fused denoise network (1 x 7 x 80 in; 3x3 valid depthwise
// stages shrinking to 5 x 78, 3 x 76, 1 x 74; pointwise 1 -> 16, 16 -> 16, 16 -> 1), each against the time
// to stream its input and weights once with memcpy, measured in the same run: counter x_stream is the
// member's thread CPU time per call over that yardstick's.
//
// Every row of the 2D convolution list is measured (rows whose instruction set the processor lacks are left
// out); the depthwise rows, planar and blocked, are in depthwise_bench.cc. Run: build/bench/zelva_bench
// --benchmark_filter=Conv
#include <benchmark/benchmark.h>

#include <time.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zelva/src/kernel/family/conv2d/members.h"
#include "zelva/src/runtime/context.h"
#include "zelva/src/runtime/weight_data.h"

namespace zelva {
namespace kernel {
namespace {

struct Shape {
  const char* label;
  uint32_t in, out, h, w, k, groups, pad;
};

// The layers of the network's convolution stages, plus a padded depthwise to show the cost of the copy.
const Shape kShapes[] = {
    {"dw1_7x80", 1, 1, 7, 80, 3, 1, 0},          {"pw1to16_5x78", 1, 16, 5, 78, 1, 1, 0},
    {"dw16_5x78", 16, 16, 5, 78, 3, 16, 0},      {"pw16to16_3x76", 16, 16, 3, 76, 1, 1, 0},
    {"dw16_3x76", 16, 16, 3, 76, 3, 16, 0},      {"pw16to1_1x74", 16, 1, 1, 74, 1, 1, 0},
    {"dw16_5x78_pad1", 16, 16, 5, 78, 3, 16, 1},
};

std::shared_ptr<runtime::Conv2dInfo> MakeInfo(const Shape& s, std::mt19937& rng) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->id = s.label;
  info->in_channels = static_cast<uint16_t>(s.in);
  info->out_channels = static_cast<uint16_t>(s.out);
  info->kernel_x = info->kernel_y = static_cast<uint16_t>(s.k);
  info->groups = static_cast<uint16_t>(s.groups);
  info->padding_l = info->padding_r = info->padding_t = info->padding_b = static_cast<uint16_t>(s.pad);
  info->if_bias = true;
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  std::vector<float> weight(static_cast<size_t>(s.out) * (s.in / s.groups) * s.k * s.k), bias(s.out);
  for (float& v : weight) v = u(rng);
  for (float& v : bias) v = u(rng);
  info->weight = runtime::EncodeWeights(weight.data(), weight.size());
  info->bias = runtime::EncodeWeights(bias.data(), bias.size());
  return info;
}

// Thread CPU time in nanoseconds: the machine is shared, so wall time would count other processes' turns.
double ThreadNanoseconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

// Nanoseconds per memcpy of `bytes` (the yardstick), over enough repetitions to be stable.
double StreamNanoseconds(size_t bytes) {
  std::vector<char> src(bytes, 1), dst(bytes);
  const int reps = 20000;
  const double t0 = ThreadNanoseconds();
  for (int r = 0; r < reps; ++r) {
    std::memcpy(dst.data(), src.data(), bytes);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  return (ThreadNanoseconds() - t0) / reps;
}

template <class Kernel>
void RunMember(benchmark::State& state, Shape shape) {
  std::mt19937 rng(1);
  auto context = runtime::CreateCPUContext(64);
  Kernel kernel;
  if (!kernel.Config(MakeInfo(shape, rng), nullptr, nullptr, context)) {
    state.SkipWithError("refused");
    return;
  }
  std::vector<float> x(static_cast<size_t>(shape.in) * shape.h * shape.w);
  for (float& v : x) v = std::uniform_real_distribution<float>(-1.0f, 1.0f)(rng);
  std::shared_ptr<runtime::Tensor> input;
  context->GetDeviceCPU()->WrapPlanar(input, {shape.in, shape.h, shape.w}, x.data());
  const size_t bytes = sizeof(float) * (x.size() + static_cast<size_t>(shape.out) *
                                                       (shape.in / shape.groups) * shape.k * shape.k);
  const double stream_ns = StreamNanoseconds(bytes);

  runtime::TensorList inputs = {input}, outputs;
  const double t0 = ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
  }
  const double member_ns = (ThreadNanoseconds() - t0) / static_cast<double>(state.iterations());
  state.counters["stream_ns"] = stream_ns;
  state.counters["x_stream"] = member_ns / stream_ns;
}

template <class Kernel>
void RegisterMember(const char* name, Isa isa) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  std::mt19937 rng(1);
  for (const Shape& s : kShapes) {
    Kernel probe;
    if (probe.CheckSupport(MakeInfo(s, rng), nullptr) != 0) continue;
    benchmark::RegisterBenchmark((std::string("Conv/") + name + "/" + s.label).c_str(), RunMember<Kernel>, s);
  }
}

const int kRegistered = [] {
#define ZV_BENCH_MEMBER(group, isa, cls, ...) RegisterMember<cls>(#cls, Isa::isa);
  ZV_CONV2D_MEMBERS(ZV_BENCH_MEMBER)
#undef ZV_BENCH_MEMBER
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
