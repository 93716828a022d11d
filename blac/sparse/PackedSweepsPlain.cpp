#define BLAC_PACKED_SWEEP
#define BLAC_PACKED_WIDTH 2
#define BLAC_PACKED_NAMESPACE packed_plain
#include "blac/sparse/PackedSweepsBody.h"

constexpr orx::blac::PackedSweepSet orx::blac::plainPackedSweeps = orx::blac::packed_plain::sweepSet;

orx::blac::PackedSweepSet const& orx::blac::PackedSweepsOfThisProcessor() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return avx2PackedSweeps;
#endif
  return plainPackedSweeps;
}
