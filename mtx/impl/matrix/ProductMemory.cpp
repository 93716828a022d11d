#include "mtx/impl/matrix/ProductMemory.h"

#include "blac/BLAC.h"
#include "core/mem_Allocator.h"

namespace orx {

namespace {

/// 128 MB of address space, of which the pages that are used get memory; and some for the system's own.
constexpr std::int64_t packingBytes = std::int64_t{136} << 20;

/// The smallest problem for which OpenBLAS takes the memory; products of small matrices do without.
void FactorizeOneByOne() {
  int const n = 1;
  double a = 1.0;
  int pivot = 0;
  int info = 0;
  BLAC_DGETRF(&n, &n, &a, &n, &pivot, &info);
}

} // namespace

void RequireProductMemory() {
  static bool isTaken = false;
  if (isTaken) return;
  mem_MakeArray<char>(packingBytes).reset(); // raises when it is not there
  FactorizeOneByOne();
  isTaken = true;
}

void TakeProductMemoryIfThere() noexcept {
  try {
    RequireProductMemory();
  } catch (mem_OutOfMemory const&) {
    return; // the first product raises it
  }
}

} // namespace orx
