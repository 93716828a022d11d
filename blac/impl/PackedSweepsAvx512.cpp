#ifdef __x86_64__

#define BLAC_PACKED_SWEEP [[gnu::target("avx2,avx512f,avx512vl")]]
#define BLAC_PACKED_NAMESPACE packed_avx512
#include "blac/impl/PackedSweepsBody.h"

constexpr blac::PackedSweepSet blac::avx512PackedSweeps = blac::packed_avx512::sweepSet;

#endif
