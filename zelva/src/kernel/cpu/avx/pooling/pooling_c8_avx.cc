// The C8HW8 pooling cores in AVX (declared in family/pooling/cores.h): the blocked loop nest over
// eight-lane vectors.
#include <immintrin.h>

#include "zelva/src/kernel/family/pooling/blocked_tile.h"
#include "zelva/src/kernel/family/pooling/cores.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

using Avx = V8;

}  // namespace

template <int KY, int KX, int SY, int SX>
void AvgPoolC8Avx(const PoolArgs& args) {
  pool_tile::Blocked<Avx, KY, KX, SY, SX, false>(args);
}

template <int KY, int KX, int SY, int SX>
void MaxPoolC8Avx(const PoolArgs& args) {
  pool_tile::Blocked<Avx, KY, KX, SY, SX, true>(args);
}

template <int KY, int KX>
void AvgPoolC8AvxSeparable(const PoolArgs& args) {
  pool_tile::BlockedSeparable<Avx, KY, KX>(args);
}

template void AvgPoolC8Avx<2, 2, 2, 2>(const PoolArgs&);
template void AvgPoolC8Avx<3, 3, 2, 2>(const PoolArgs&);
template void AvgPoolC8Avx<4, 4, 4, 4>(const PoolArgs&);
template void AvgPoolC8Avx<3, 2, 3, 2>(const PoolArgs&);
template void AvgPoolC8AvxSeparable<4, 4>(const PoolArgs&);
template void AvgPoolC8AvxSeparable<7, 7>(const PoolArgs&);
template void AvgPoolC8AvxSeparable<8, 8>(const PoolArgs&);
template void AvgPoolC8AvxSeparable<5, 4>(const PoolArgs&);
template void AvgPoolC8AvxSeparable<10, 8>(const PoolArgs&);
template void MaxPoolC8Avx<2, 2, 2, 2>(const PoolArgs&);
template void MaxPoolC8Avx<3, 3, 2, 2>(const PoolArgs&);

}  // namespace kernel
}  // namespace zelva
