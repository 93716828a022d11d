#ifdef __x86_64__

#define BLAC_PACKED_SWEEP [[gnu::target("avx2")]]
#define BLAC_PACKED_WIDTH 4
#define BLAC_PACKED_NAMESPACE packed_avx2
#include "blac/sparse/PackedSweepsBody.h"

constexpr orx::blac::PackedSweepSet orx::blac::avx2PackedSweeps = orx::blac::packed_avx2::sweepSet;

#endif
