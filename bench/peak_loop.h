// The loop behind peak.h, for one vector width: include it from a translation unit compiled for that width
// and instantiate it with a struct of the width's operations:
//   struct Ops { using V = ...; static V Set1(float); static V Mul(V, V); static V Add(V, V); static int
//   Lanes(); };
#pragma once

#include <time.h>

#include <algorithm>

namespace zvbench {

// Thread CPU time in nanoseconds (the machine is shared: wall time would count other processes' turns).
inline double ThreadNanoseconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

template <typename Ops>
double PeakMulAddGflops() {
  using V = typename Ops::V;
  // Multiplies by one and adds of zero keep every value where it is (no overflow, no subnormals); the
  // constants pass through an empty asm so that the compiler cannot fold them away.
  V one = Ops::Set1(1.0f), zero = Ops::Set1(0.0f);
  asm volatile("" : "+x"(one), "+x"(zero));
  constexpr int kChains = 8;
  constexpr long kRounds = 20000000;
  double best = 0.0;
  for (int repeat = 0; repeat < 3; ++repeat) {
    V m[kChains], a[kChains];
    for (int i = 0; i < kChains; ++i) m[i] = a[i] = Ops::Set1(static_cast<float>(i + 1));
    const double start = ThreadNanoseconds();
    for (long r = 0; r < kRounds; ++r) {
      for (int i = 0; i < kChains; ++i) {
        m[i] = Ops::Mul(m[i], one);
        a[i] = Ops::Add(a[i], zero);
      }
    }
    const double ns = ThreadNanoseconds() - start;
    for (int i = 0; i < kChains; ++i) asm volatile("" : : "x"(m[i]), "x"(a[i]));
    best = std::max(best, 2.0 * kChains * Ops::Lanes() * kRounds / ns);
  }
  return best;
}

}  // namespace zvbench
