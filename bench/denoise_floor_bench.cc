// The floors of one block of the denoise network on this machine, as yardsticks for the engine's two paths
// (bench/compare.py sets them side by side):
//   DenoiseFloor_Stream        streaming the fused network's 4,364,960-byte block once (memcpy, from cache
//                              as far as the caches hold it);
//   DenoiseFloor_MatVec/<r>    the fixed-order matrix-vector arithmetic of the GRUs and the dense layer
//                              (rows of 256, four 4-lane accumulators per row, separate multiply and add) on
//                              weights resident in L1, scaled to the network's 1,238,934 multiply-adds; r
//                              rows walked side by side (each row keeps its own accumulators, so the bits do
//                              not depend on r).
//   DenoiseFused/<variant>     one block of the fused network in each variant this processor runs, over the
//                              bundled stream (models/denoise_blocks.f32, bundled model); the counter
//                              x_stream is its time over the time of streaming the 4,364,960-byte block
//                              once, the two measured interleaved in the same run (thread CPU time).
// Run: build/bench/zelva_bench --benchmark_filter='DenoiseFloor|DenoiseFused'
#include <benchmark/benchmark.h>
#include <xmmintrin.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "tests/support/files.h"
#include "zelva-kit/src/audiodenoise/revolver.h"
#include "zelva/src/runtime/zvmodel2/model_info.h"

namespace {

using hyperspecific::audiodenoise_v4_final_cpu_sse::HyperspecificTensor;
using hyperspecific::audiodenoise_v4_final_cpu_sse::HyperspecificTensorMap;
using hyperspecific::audiodenoise_v4_final_cpu_sse::Revolver;
using hyperspecific::audiodenoise_v4_final_cpu_sse::RevolverVariant;

constexpr size_t kBlockBytes = 4364960;
constexpr size_t kMultiplyAdds = 1238934;
constexpr size_t kRowLength = 256;
constexpr size_t kResidentRows = 16;  // 16 KiB of weights and 1 KiB of input: inside any L1 data cache

void BM_DenoiseFloor_Stream(benchmark::State& state) {
  std::vector<unsigned char> src(kBlockBytes), dst(kBlockBytes);
  for (size_t i = 0; i < kBlockBytes; ++i) src[i] = static_cast<unsigned char>(i * 131u);
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), kBlockBytes);
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBlockBytes));
}
BENCHMARK(BM_DenoiseFloor_Stream)->Unit(benchmark::kMicrosecond);

// R rows of 256 at once, each in the fused operators' order: a0..a3 over 16 rounds of 16 floats, then
// (a3 + a2) + (a1 + a0) and the horizontal sum, bias last.
template <int R>
void RowsInOrder(const float* w, const float* x, const float* bias, float* y) {
  __m128 a[R][4];
  for (int r = 0; r < R; ++r)
    for (int k = 0; k < 4; ++k) a[r][k] = _mm_setzero_ps();
  for (size_t i = 0; i < kRowLength; i += 16) {
    const __m128 x0 = _mm_loadu_ps(x + i), x1 = _mm_loadu_ps(x + i + 4), x2 = _mm_loadu_ps(x + i + 8),
                 x3 = _mm_loadu_ps(x + i + 12);
    for (int r = 0; r < R; ++r) {
      const float* row = w + r * kRowLength + i;
      a[r][0] = _mm_add_ps(a[r][0], _mm_mul_ps(_mm_loadu_ps(row), x0));
      a[r][1] = _mm_add_ps(a[r][1], _mm_mul_ps(_mm_loadu_ps(row + 4), x1));
      a[r][2] = _mm_add_ps(a[r][2], _mm_mul_ps(_mm_loadu_ps(row + 8), x2));
      a[r][3] = _mm_add_ps(a[r][3], _mm_mul_ps(_mm_loadu_ps(row + 12), x3));
    }
  }
  for (int r = 0; r < R; ++r) {
    float s[4];
    _mm_storeu_ps(s, _mm_add_ps(_mm_add_ps(a[r][3], a[r][2]), _mm_add_ps(a[r][1], a[r][0])));
    y[r] = ((s[0] + s[1]) + s[2]) + s[3] + bias[r];
  }
}

template <int R>
void BM_DenoiseFloor_MatVec(benchmark::State& state) {
  std::vector<float> w(kResidentRows * kRowLength), x(kRowLength), bias(kResidentRows), y(kResidentRows);
  for (size_t i = 0; i < w.size(); ++i) w[i] = static_cast<float>(static_cast<int>(i % 97) - 48) * 0.01f;
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(static_cast<int>(i % 13) - 6) * 0.1f;
  // Rows of 256 that make up the network's multiply-adds, rounded up to whole groups of R.
  const size_t rows = (kMultiplyAdds / kRowLength + R) / R * R;
  for (auto _ : state) {
    for (size_t done = 0; done < rows; done += R) {
      const size_t first = done % kResidentRows;
      RowsInOrder<R>(w.data() + first * kRowLength, x.data(), bias.data() + first, y.data() + first);
    }
    benchmark::DoNotOptimize(y.data());
    benchmark::ClobberMemory();
  }
  // Scaled to the exact count of multiply-adds.
  state.counters["rows"] = static_cast<double>(rows);
  state.counters["scale"] = static_cast<double>(kMultiplyAdds) / static_cast<double>(rows * kRowLength);
}
BENCHMARK_TEMPLATE(BM_DenoiseFloor_MatVec, 1)->Unit(benchmark::kMicrosecond);
BENCHMARK_TEMPLATE(BM_DenoiseFloor_MatVec, 4)->Unit(benchmark::kMicrosecond);

void BM_DenoiseFused(benchmark::State& state, RevolverVariant variant) {
  std::string why;
  if (!Revolver::ProcessorRuns(variant, &why)) {
    state.SkipWithError(why.c_str());
    return;
  }
  auto model = std::make_shared<zelva::runtime::ZVModelInfo>();
  model->FromFile(std::string(ZELVA_SOURCE_DIR) + "/models/denoise.zvmod", "bin");
  Revolver net(model, variant);
  const std::vector<float> stream =
      zvtest::ReadFloats(std::string(ZELVA_SOURCE_DIR) + "/models/denoise_blocks.f32");
  const size_t blocks = stream.size() / 560;
  if (blocks == 0) {
    state.SkipWithError("models/denoise_blocks.f32 is missing");
    return;
  }
  HyperspecificTensorMap outputs;
  std::vector<HyperspecificTensor> inputs(1);
  size_t b = 0;
  auto one_block = [&] {
    inputs[0].data = stream.data() + b * 560;
    net.Forward(outputs, inputs, false);
    benchmark::DoNotOptimize(outputs["25"].data);
    b = b + 1 == blocks ? 0 : b + 1;
  };
  for (auto _ : state) one_block();
  state.counters["x_stream"] = zvbench::RatioToMemcpy(one_block, kBlockBytes);
}

const bool kFusedRegistered = [] {
  for (const RevolverVariant& v : Revolver::AllVariants()) {
    std::string name = std::string("BM_DenoiseFused/") + v.Name();
    for (char& c : name) {
      if (c == ' ' || c == '+') c = '_';
    }
    benchmark::RegisterBenchmark(name.c_str(), BM_DenoiseFused, v)->Unit(benchmark::kMicrosecond);
  }
  return true;
}();

}  // namespace
