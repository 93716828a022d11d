#include "mtx/impl/matrix/ProductMemory.h"

#include "blac/BLAC.h"
#include "core/mem_Allocator.h"

namespace orx {

namespace {

/// 128 MB for OpenBLAS and a reserve for the system, in address space: only pages that are used take memory.
constexpr std::int64_t packingBytes = std::int64_t{136} << 20;

/// Makes OpenBLAS take its memory. This is the smallest problem that needs it: small products do without.
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
  mem_MakeArray<char>(packingBytes).reset(); // raises mem_OutOfMemory if it is not available
  FactorizeOneByOne();
  isTaken = true;
}

void TryTakeProductMemory() noexcept {
  try {
    RequireProductMemory();
  } catch (mem_OutOfMemory const&) {
    return; // the first product raises the error
  }
}

} // namespace orx
