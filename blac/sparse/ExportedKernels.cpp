#include "blac/BLAC.h"
#include "blac/sparse/RowPatterns.h"
#include "blac/sparse/SpmvKernels.h"

// The exported kernels. They may not allocate, and so never interleave vectors.

namespace orx::blac {
namespace {

/// The number of vectors that a kernel multiplies together. Where an entry would miss the cache for each
/// vector of a group, but one vector alone may stay in the cache, they are multiplied one after the other.
int ChooseGroupSize(SpmvOperands const& s, int vectors) {
  if (vectors <= 1 || s.rowList != nullptr || !IsBeyondCache(s.columns, vectors)) return vectorsInGroup;
  auto const rows = static_cast<std::int32_t>(s.rows);
  return HasScatteredColumns(s.matrix, rows) && !HasSharedColumns(s.matrix, rows) ? 1 : vectorsInGroup;
}

void Multiply(SpmvOperands const& s, int vectors) {
  MultiplyGroups(ChooseSpmvKernels().product, s, s.columns, s.rows, vectors, ChooseGroupSize(s, vectors));
}

void MultiplyTransposed(SpmvOperands const& s, int vectors) {
  MultiplyGroups(ChooseSpmvKernels().transposedProduct, s, s.rows, s.columns, vectors,
                 ChooseGroupSize(s, vectors));
}

} // namespace
} // namespace orx::blac

void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                     int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::Multiply({{a, ia, ja}, nullptr, *nrows, *ncols, x, y}, *nvec);
}

void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                      int const* nrows, int const* ncols, int const* nvec) {
  orx::blac::MultiplyTransposed({{a, ia, ja}, nullptr, *nrows, *ncols, x, y}, *nvec);
}

void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                             int const* nrows, int const* ncols, int const* nvec, int const* idx) {
  orx::blac::MultiplyTransposed({{a, ia, ja}, idx, *nrows, *ncols, x, y}, *nvec);
}
