// The SSE cores of the upsampling family (declared in family/upsampling/cores.h): the loop nests of
// upsample_tile.h over four-lane vectors, separate multiply and add.
#include <xmmintrin.h>

#include "zelva/src/kernel/family/upsampling/upsample_tile.h"
#include "zelva/src/kernel/functional/vector4.h"

namespace zelva {
namespace kernel {

namespace {

struct Sse : V4 {
  static T Gather(const float* row, const uint32_t* i) {
    return _mm_setr_ps(row[i[0]], row[i[1]], row[i[2]], row[i[3]]);
  }
};

}  // namespace

void UpsampleBilinearPlanarDirectSse(const UpsampleArgs& args) {
  upsample_tile::PlanarDirect<Sse>(args);
}
void UpsampleBilinearPlanarRowsSse(const UpsampleArgs& args) {
  upsample_tile::PlanarRows<Sse>(args);
}
void UpsampleBilinearPlanarPlaneSse(const UpsampleArgs& args) {
  upsample_tile::PlanarPlane<Sse>(args);
}
void UpsampleBilinearC4DirectSse(const UpsampleArgs& args) {
  upsample_tile::BlockedDirect<Sse>(args);
}
void UpsampleBilinearC4RowsSse(const UpsampleArgs& args) {
  upsample_tile::BlockedRows<Sse>(args);
}
void UpsampleNearestC4Sse(const UpsampleArgs& args) {
  upsample_tile::BlockedNearest<Sse>(args);
}

}  // namespace kernel
}  // namespace zelva
