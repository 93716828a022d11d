#ifdef __x86_64__

#define BLAC_INTERLEAVED [[gnu::target("avx2")]]
#define BLAC_INTERLEAVED_LANES 4
#define BLAC_INTERLEAVED_NAMESPACE interleaved_avx2
#include "blac/sparse/InterleavedKernelsBody.h"

constexpr orx::blac::InterleavedKernels orx::blac::avx2InterleavedKernels =
    orx::blac::interleaved_avx2::kernels;

#endif
