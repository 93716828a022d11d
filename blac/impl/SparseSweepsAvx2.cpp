#ifdef __x86_64__

#define BLAC_SWEEP_TARGET "avx2"
#define BLAC_SWEEP_NAMESPACE avx2
#include "blac/impl/SparseSweepsX86.h"

constexpr orx::blac::SparseSweepSet orx::blac::avx2SparseSweeps = orx::blac::avx2::sweepSet;

#endif
