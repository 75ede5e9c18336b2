// The 320-point real FFT of the audio host, forward and inverse, on the packaged kissfft (what the host uses)
// and on FFTW (measured for comparison only; built when FFTW is found). Run: build/bench/fft_bench
#include <benchmark/benchmark.h>
#include <fftw3.h>
#include <kiss_fftr.h>

#include <cmath>
#include <vector>

namespace {

constexpr int kSize = 320;

std::vector<float> Signal() {
  std::vector<float> x(kSize);
  for (int n = 0; n < kSize; ++n) x[n] = std::sin(0.1f * n) + 0.3f * std::cos(1.7f * n);
  return x;
}

void BM_KissFftRoundTrip(benchmark::State& state) {
  kiss_fftr_cfg forward = kiss_fftr_alloc(kSize, 0, nullptr, nullptr);
  kiss_fftr_cfg inverse = kiss_fftr_alloc(kSize, 1, nullptr, nullptr);
  std::vector<float> x = Signal(), y(kSize);
  std::vector<kiss_fft_cpx> bins(kSize / 2 + 1);
  for (auto _ : state) {
    kiss_fftr(forward, x.data(), bins.data());
    kiss_fftri(inverse, bins.data(), y.data());
    benchmark::DoNotOptimize(y.data());
  }
  state.SetItemsProcessed(2 * state.iterations());  // transforms
  kiss_fftr_free(forward);
  kiss_fftr_free(inverse);
}
BENCHMARK(BM_KissFftRoundTrip);

void BM_FftwRoundTrip(benchmark::State& state) {
  std::vector<float> x = Signal();
  float* time = fftwf_alloc_real(kSize);
  fftwf_complex* bins = fftwf_alloc_complex(kSize / 2 + 1);
  fftwf_plan forward = fftwf_plan_dft_r2c_1d(kSize, time, bins, FFTW_MEASURE);
  fftwf_plan inverse = fftwf_plan_dft_c2r_1d(kSize, bins, time, FFTW_MEASURE);
  for (auto _ : state) {
    std::copy(x.begin(), x.end(), time);
    fftwf_execute(forward);
    fftwf_execute(inverse);
    benchmark::DoNotOptimize(time);
  }
  state.SetItemsProcessed(2 * state.iterations());
  fftwf_destroy_plan(forward);
  fftwf_destroy_plan(inverse);
  fftwf_free(bins);
  fftwf_free(time);
}
BENCHMARK(BM_FftwRoundTrip);

}  // namespace
