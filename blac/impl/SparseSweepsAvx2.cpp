#ifdef __x86_64__

#define BLAC_SWEEP_TARGET "avx2"
#define BLAC_SWEEP_NAMESPACE avx2
#include "blac/impl/SparseSweepsX86.h"

constexpr blac::SparseSweepSet blac::avx2SparseSweeps = blac::avx2::sweepSet;

#endif
