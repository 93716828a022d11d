#include "blac/BLAC.h"
#include "blac/sparse/RowPatterns.h"
#include "blac/sparse/SparseSweeps.h"

namespace orx::blac {

SparseSweepSet const& SparseSweepsOfThisProcessor() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return avx2SparseSweeps;
#endif
  return plainSparseSweeps;
}

void SweepOverGroups(SparseSweepSet::Sweep const* sweeps, SparseSweep sweep, std::ptrdiff_t lengthX,
                     std::ptrdiff_t lengthY, int vectors, int group) {
  for (; vectors >= group; vectors -= group) {
    sweeps[group - 1](sweep);
    sweep.x += group * lengthX;
    sweep.y += group * lengthY;
  }
  if (vectors > 0) sweeps[vectors - 1](sweep);
}

namespace {

/// How many vectors a sweep takes at once. Where an entry misses the cache for each vector of a group, but
/// one vector alone may stay there, they are taken one after the other.
int VectorsAtOnce(SparseSweep const& sweep, int vectors) {
  if (vectors <= 1 || sweep.list != nullptr || !AreBeyondCache(sweep.columns, vectors)) return vectorsInGroup;
  auto const* const columns = reinterpret_cast<std::uint32_t const*>(sweep.ja);
  auto const rows = static_cast<std::int32_t>(sweep.rows);
  bool const isScattered =
      HasScatteredColumns(sweep.ia, columns, rows) && !HasRowsAlike(sweep.ia, columns, rows);
  return isScattered ? 1 : vectorsInGroup;
}

void Multiply(SparseSweep const& sweep, int vectors) {
  SweepOverGroups(SparseSweepsOfThisProcessor().product, sweep, sweep.columns, sweep.rows, vectors,
                  VectorsAtOnce(sweep, vectors));
}

void MultiplyTransposed(SparseSweep const& sweep, int vectors) {
  SweepOverGroups(SparseSweepsOfThisProcessor().transposedProduct, sweep, sweep.rows, sweep.columns, vectors,
                  VectorsAtOnce(sweep, vectors));
}

} // namespace

} // namespace orx::blac

void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                     int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::Multiply({a, ia, ja, nullptr, *nrows, *ncols, x, y}, *nvec);
}

void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                      int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::MultiplyTransposed({a, ia, ja, nullptr, *nrows, *ncols, x, y}, *nvec);
}

void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                             int const* nrows, int const* ncols, int const* nvec, int const* idx) {
  orx::blac::MultiplyTransposed({a, ia, ja, idx, *nrows, *ncols, x, y}, *nvec);
}
