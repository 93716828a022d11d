#include "sim/impl/store/BoxCopy.h"

namespace orx::store {

void TwoStridedBox::Simplify() noexcept {
  int kept = 0;
  for (int dim = 0; dim < rank; ++dim) {
    if (counts[dim] == 1) continue;
    bool const continuesLast = kept > 0 && toStrides[kept - 1] == counts[dim] * toStrides[dim] &&
                               fromStrides[kept - 1] == counts[dim] * fromStrides[dim];
    if (continuesLast) {
      counts[kept - 1] *= counts[dim];
      toStrides[kept - 1] = toStrides[dim];
      fromStrides[kept - 1] = fromStrides[dim];
    } else {
      counts[kept] = counts[dim];
      toStrides[kept] = toStrides[dim];
      fromStrides[kept] = fromStrides[dim];
      ++kept;
    }
  }
  rank = kept;
}

} // namespace orx::store
