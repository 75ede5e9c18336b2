// The AVX cores of the upsampling family (declared in family/upsampling/cores.h): the loop nests of
// upsample_tile.h over eight-lane vectors, separate multiply and add (no fused multiply-add).
#include <immintrin.h>

#include "zelva/src/kernel/family/upsampling/upsample_tile.h"
#include "zelva/src/kernel/functional/vector8.h"

namespace zelva {
namespace kernel {

namespace {

struct Avx : V8 {
  static T Gather(const float* row, const uint32_t* i) {
    return _mm256_setr_ps(row[i[0]], row[i[1]], row[i[2]], row[i[3]], row[i[4]], row[i[5]], row[i[6]],
                          row[i[7]]);
  }
};

}  // namespace

void UpsampleBilinearPlanarDirectAvx(const UpsampleArgs& args) {
  upsample_tile::PlanarDirect<Avx>(args);
}
void UpsampleBilinearPlanarRowsAvx(const UpsampleArgs& args) {
  upsample_tile::PlanarRows<Avx>(args);
}
void UpsampleBilinearPlanarPlaneAvx(const UpsampleArgs& args) {
  upsample_tile::PlanarPlane<Avx>(args);
}
void UpsampleBilinearC8DirectAvx(const UpsampleArgs& args) {
  upsample_tile::BlockedDirect<Avx>(args);
}
void UpsampleBilinearC8RowsAvx(const UpsampleArgs& args) {
  upsample_tile::BlockedRows<Avx>(args);
}
void UpsampleBilinearC8PlaneAvx(const UpsampleArgs& args) {
  upsample_tile::BlockedPlane<Avx>(args);
}
void UpsampleNearestC8Avx(const UpsampleArgs& args) {
  upsample_tile::BlockedNearest<Avx>(args);
}

}  // namespace kernel
}  // namespace zelva
