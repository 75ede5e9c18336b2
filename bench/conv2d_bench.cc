// Planar convolution members at the shapes of the fused denoise network (1 x 7 x 80 in; 3x3 valid depthwise
// stages shrinking to 5 x 78, 3 x 76, 1 x 74; pointwise 1 -> 16, 16 -> 16, 16 -> 1), each against the time
// to stream its input and weights once with memcpy, measured in the same run: counter x_stream is the
// member's thread CPU time per call over that yardstick's.
//
// Every planar row of the 2D convolution list is measured (rows whose instruction set the processor lacks
// are left out); the depthwise rows, planar and blocked, are in depthwise_bench.cc. Run:
// build/bench/zelva_bench --benchmark_filter=Conv/
//
// Second part, ConvLayer/: image-sized layers (3x3 stride 1 padded at 32 and 64 channels on 56x56 and 112x112
// maps, a 1x1 from 64 to 128 channels on 56x56), every row of the 2D convolution list that accepts the
// layer, blocked or planar, in GFLOP/s (2 * out * in * kernel taps * output pixels per call) beside this
// machine's peak for separate vector multiplies and adds of the row's width, measured in the same run
// (peak.h): counters GFLOPs, peak_GFLOPs and of_peak. PyTorch on one thread on the same layers:
// /usr/bin/python3 tools/bench_conv_torch.py. Run: build/bench/zelva_bench --benchmark_filter=ConvLayer
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "bench/peak.h"
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

using zvbench::ThreadNanoseconds;

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
  const double stream_ns = zvbench::MemcpyNanoseconds(bytes);

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
void RegisterMember(const char* name, Isa isa, ConvLayout layout) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  if (layout != ConvLayout::kCHW) return;
  std::mt19937 rng(1);
  for (const Shape& s : kShapes) {
    Kernel probe;
    if (probe.CheckSupport(MakeInfo(s, rng), nullptr) != 0) continue;
    benchmark::RegisterBenchmark((std::string("Conv/") + name + "/" + s.label).c_str(), RunMember<Kernel>, s);
  }
}

// ---- Image-sized layers against the multiply-and-add peak.

const Shape kLayers[] = {
    {"3x3_32_56x56", 32, 32, 56, 56, 3, 1, 1},       {"3x3_32_112x112", 32, 32, 112, 112, 3, 1, 1},
    {"3x3_64_56x56", 64, 64, 56, 56, 3, 1, 1},       {"3x3_64_112x112", 64, 64, 112, 112, 3, 1, 1},
    {"1x1_64to128_56x56", 64, 128, 56, 56, 1, 1, 0},
};

double Peak(Isa isa) {
  static const double sse = zvbench::PeakMulAddSseGflops();
  static const double avx = __builtin_cpu_supports("avx") ? zvbench::PeakMulAddAvxGflops() : 0.0;
  return isa == Isa::kAVX ? avx : sse;
}

template <class Kernel>
void RunLayer(benchmark::State& state, Shape shape, Isa isa, uint32_t block) {
  std::mt19937 rng(1);
  auto context = runtime::CreateCPUContext(64);
  Kernel kernel;
  if (!kernel.Config(MakeInfo(shape, rng), nullptr, nullptr, context)) {
    state.SkipWithError("refused");
    return;
  }
  const std::vector<float> x = zvbench::RandomFloats(size_t(shape.in) * shape.h * shape.w, 2);
  std::shared_ptr<runtime::Tensor> input;
  if (block == 0) {
    context->GetDeviceCPU()->CreateTensor(
        input,
        runtime::TensorShape({shape.in, shape.h, shape.w}, runtime::DataType::FLOAT32, runtime::Layout::CHW),
        x.data());
  } else {
    context->GetDeviceCPU()->CreateTensor(
        input,
        runtime::TensorShape({shape.in / block, shape.h, shape.w, block}, runtime::DataType::FLOAT32,
                             block == 4 ? runtime::Layout::C4HW4 : runtime::Layout::C8HW8),
        x.data());
  }
  runtime::TensorList inputs = {input}, outputs;
  kernel.Forward(inputs, outputs, context);  // the scratch is made on the first call
  const double t0 = zvbench::ThreadNanoseconds();
  for (auto _ : state) {
    kernel.Forward(inputs, outputs, context);
    benchmark::DoNotOptimize(outputs[0]->data);
  }
  const double ns = (zvbench::ThreadNanoseconds() - t0) / static_cast<double>(state.iterations());
  const uint32_t out_h = outputs[0]->shape.dims[1], out_w = outputs[0]->shape.dims[2];
  const double flops = 2.0 * shape.out * shape.in * shape.k * shape.k * out_h * out_w;
  state.counters["GFLOPs"] = flops / ns;
  state.counters["peak_GFLOPs"] = Peak(isa);
  state.counters["of_peak"] = flops / ns / Peak(isa);
}

template <class Kernel>
void RegisterLayers(const char* name, Isa isa, ConvLayout layout) {
  if (isa == Isa::kAVX && !__builtin_cpu_supports("avx")) return;
  const uint32_t block = layout == ConvLayout::kC4HW4 ? 4 : layout == ConvLayout::kC8HW8 ? 8 : 0;
  std::mt19937 rng(1);
  for (const Shape& s : kLayers) {
    Kernel probe;
    if (probe.CheckSupport(MakeInfo(s, rng), nullptr) != 0) continue;
    benchmark::RegisterBenchmark((std::string("ConvLayer/") + s.label + "/" + name).c_str(), RunLayer<Kernel>,
                                 s, isa, block)
        ->MinTime(0.3)
        ->Unit(benchmark::kMillisecond);
  }
}

const int kRegistered = [] {
#define ZV_BENCH_MEMBER(group, isa, cls, accuracy, layout, ...) \
  RegisterMember<cls>(#cls, Isa::isa, ConvLayout::k##layout);
  ZV_CONV2D_MEMBERS(ZV_BENCH_MEMBER)
#undef ZV_BENCH_MEMBER
#define ZV_BENCH_LAYER(group, isa, cls, accuracy, layout, ...) \
  RegisterLayers<cls>(#cls, Isa::isa, ConvLayout::k##layout);
  ZV_CONV2D_MEMBERS(ZV_BENCH_LAYER)
#undef ZV_BENCH_LAYER
  return 0;
}();

}  // namespace
}  // namespace kernel
}  // namespace zelva
