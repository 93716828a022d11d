// cholmod_operations FOLDER: times CHOLMOD's transposition and permutation of the matrix in FOLDER and prints
// "transpose SECONDS" and "permute SECONDS", each with a checksum. A program of its own, so that what CHOLMOD
// loads is not in ours.

#include "bench/RowsOfFolder.h"

#include <cholmod.h>

#include <algorithm>

namespace {

using bench::ChecksumOfRows;
using bench::MedianSecondsOfNew;
using bench::RowsOfFolder;

/// CHOLMOD has columns where we have rows: what it holds is the transpose of what we mean.
double ChecksumOf(cholmod_sparse const* matrix) {
  return ChecksumOfRows(static_cast<int>(matrix->ncol), static_cast<int const*>(matrix->p),
                        static_cast<int const*>(matrix->i), static_cast<double const*>(matrix->x));
}

cholmod_sparse Over(RowsOfFolder& rows) {
  cholmod_sparse matrix{};
  matrix.nrow = matrix.ncol = static_cast<std::size_t>(rows.rows);
  matrix.nzmax = rows.a.Size();
  matrix.p = rows.ia.Data();
  matrix.i = rows.ja.Data();
  matrix.x = rows.a.Data();
  matrix.itype = CHOLMOD_INT;
  matrix.xtype = CHOLMOD_REAL;
  matrix.dtype = CHOLMOD_DOUBLE;
  matrix.sorted = matrix.packed = 1;
  return matrix;
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  RowsOfFolder rows(argv[1]);
  cholmod_common common;
  cholmod_start(&common);
  cholmod_sparse matrix = Over(rows);
  auto const destroy = [&](cholmod_sparse* result) { cholmod_free_sparse(&result, &common); };
  auto const report = [&](char const* task, auto const& operation) {
    cholmod_sparse* const result = operation();
    double const checksum = ChecksumOf(result);
    destroy(result);
    bench::PrintTiming(task, MedianSecondsOfNew(operation, destroy), checksum);
  };
  report("transpose", [&] { return cholmod_transpose(&matrix, 1, &common); });
  std::vector<int> perm = bench::ScrambledRows(rows.rows);
  // Each of two transpositions permutes the rows. That is faster than cholmod_submatrix, which has to sort.
  auto const permuteAndTranspose = [&](cholmod_sparse* from) {
    return cholmod_ptranspose(from, 1, perm.data(), nullptr, 0, &common);
  };
  report("permute", [&] {
    cholmod_sparse* transposed = permuteAndTranspose(&matrix);
    cholmod_sparse* const result = permuteAndTranspose(transposed);
    cholmod_free_sparse(&transposed, &common);
    return result;
  });
  cholmod_finish(&common);
  return 0;
}
