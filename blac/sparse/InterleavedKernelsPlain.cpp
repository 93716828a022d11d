#define BLAC_INTERLEAVED
#define BLAC_INTERLEAVED_LANES 2
#define BLAC_INTERLEAVED_NAMESPACE interleaved_plain
#include "blac/sparse/InterleavedKernelsBody.h"

constexpr orx::blac::InterleavedKernels orx::blac::plainInterleavedKernels =
    orx::blac::interleaved_plain::kernels;

orx::blac::InterleavedKernels const& orx::blac::ChooseInterleavedKernels() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return avx2InterleavedKernels;
#endif
  return plainInterleavedKernels;
}
