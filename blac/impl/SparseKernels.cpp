#include "blac/BLAC.h"
#include "blac/impl/SparseSweeps.h"

using orx::blac::SparseSweepSet;

SparseSweepSet const& orx::blac::SparseSweepsOfThisProcessor() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return orx::blac::avx2SparseSweeps;
#endif
  return orx::blac::plainSparseSweeps;
}

void orx::blac::SweepOverGroups(SparseSweepSet::Sweep const* sweeps, SparseSweep sweep,
                                std::ptrdiff_t lengthX, std::ptrdiff_t lengthY, int vectors) {
  for (; vectors >= vectorsInGroup; vectors -= vectorsInGroup) {
    sweeps[vectorsInGroup - 1](sweep);
    sweep.x += vectorsInGroup * lengthX;
    sweep.y += vectorsInGroup * lengthY;
  }
  if (vectors > 0) sweeps[vectors - 1](sweep);
}

void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                     int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::SweepOverGroups(orx::blac::SparseSweepsOfThisProcessor().product,
                             {a, ia, ja, nullptr, *nrows, *ncols, x, y}, *ncols, *nrows, *nvec);
}

void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                      int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::SweepOverGroups(orx::blac::SparseSweepsOfThisProcessor().transposedProduct,
                             {a, ia, ja, nullptr, *nrows, *ncols, x, y}, *nrows, *ncols, *nvec);
}

void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                             int const* nrows, int const* ncols, int const* nvec, int const* idx) {
  orx::blac::SweepOverGroups(orx::blac::SparseSweepsOfThisProcessor().transposedProduct,
                             {a, ia, ja, idx, *nrows, *ncols, x, y}, *nrows, *ncols, *nvec);
}
