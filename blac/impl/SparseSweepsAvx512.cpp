#ifdef __x86_64__

#define BLAC_SWEEP_TARGET "avx2,avx512f,avx512vl"
#define BLAC_SWEEP_NAMESPACE avx512
#include "blac/impl/SparseSweepsX86.h"

constexpr orx::blac::SparseSweepSet orx::blac::avx512SparseSweeps = orx::blac::avx512::sweepSet;

#endif
