// The scalar cores of the elementwise family: the broadcast of any rank and its shape rule.
#include <algorithm>
#include <cstddef>

#include "zelva/src/kernel/family/elementwise/cores.h"
#include "zelva/src/utility/logging.h"

namespace zelva {
namespace kernel {

bool BroadcastShapesFit(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t k = 1; k <= common; ++k) {
    const uint32_t x = a[a.size() - k], y = b[b.size() - k];
    if (x != y && x != 1 && y != 1) return false;
  }
  return true;
}

namespace {

constexpr size_t kMaxBroadcastRank = 8;

// `dims` with ones in front up to `rank`, and the element strides of that shape (the product of all later
// dims), into fixed arrays.
void PadAndStride(const std::vector<uint32_t>& dims, size_t rank, uint32_t* padded, size_t* strides) {
  const size_t lead = rank - dims.size();
  for (size_t d = 0; d < rank; ++d) padded[d] = d < lead ? 1u : dims[d - lead];
  strides[rank - 1] = 1;
  for (size_t d = rank - 1; d > 0; --d) strides[d - 1] = strides[d] * padded[d];
}

}  // namespace

void BroadcastFallback(const std::function<float(const float&, const float&)>& op, const float* a,
                       const std::vector<uint32_t>& ad, const float* b, const std::vector<uint32_t>& bd,
                       float* out, const std::vector<uint32_t>& od) {
  const size_t rank = od.size();
  ZV_ASSERT(rank <= kMaxBroadcastRank && ad.size() <= rank && bd.size() <= rank,
            "[BroadcastOperator_Fallback_Float_M1] ranks %zu, %zu into %zu (at most %zu).", ad.size(),
            bd.size(), rank, kMaxBroadcastRank);
  if (rank == 0) {
    out[0] = op(a[0], b[0]);
    return;
  }
  uint32_t pa[kMaxBroadcastRank], pb[kMaxBroadcastRank], po[kMaxBroadcastRank];
  size_t sa[kMaxBroadcastRank], sb[kMaxBroadcastRank], so[kMaxBroadcastRank];
  PadAndStride(ad, rank, pa, sa);
  PadAndStride(bd, rank, pb, sb);
  PadAndStride(od, rank, po, so);
  const size_t total = so[0] * po[0];
  for (size_t i = 0; i < total; ++i) {
    size_t rest = i, oa = 0, ob = 0;
    for (size_t d = 0; d < rank; ++d) {
      const size_t coord = rest / so[d];
      rest -= coord * so[d];
      if (pa[d] != 1) oa += coord * sa[d];
      if (pb[d] != 1) ob += coord * sb[d];
    }
    out[i] = op(a[oa], b[ob]);
  }
}

}  // namespace kernel
}  // namespace zelva
