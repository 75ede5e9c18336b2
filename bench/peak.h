// The arithmetic peak of this machine for separate vector multiplies and adds, measured on the calling thread
// in thread CPU time: a tight loop of independent multiply chains beside independent add chains, as many of
// each as the port count and latency need to keep both busy. GFLOP/s counts every lane of every multiply and
// every add as one operation, which is how a convolution's 2 * (multiplies) operations are counted too.
#pragma once

namespace zvbench {

double PeakMulAddSseGflops();  // 128-bit _mm_mul_ps and _mm_add_ps (peak_sse.cc)
double PeakMulAddAvxGflops();  // 256-bit _mm256_mul_ps and _mm256_add_ps (peak_avx.cc, its own flags)
double PeakMulAddAvx512Gflops();  // 512-bit (peak_avx512.cc, its own flags; only where AVX-512F runs)

}  // namespace zvbench
