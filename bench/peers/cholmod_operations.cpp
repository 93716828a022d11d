// cholmod_operations FOLDER: times CHOLMOD's transposition and permutation of the matrix in FOLDER and prints
// "transpose SECONDS" and "permute SECONDS", each with a checksum.

#include "bench/peers/CholmodMatrix.h"

namespace {

using bench::ChecksumOfRows;
using bench::MedianSecondsOfNew;
using bench::RowsOfFolder;

/// Of the transpose of what CHOLMOD holds.
double ChecksumOf(cholmod_sparse const* matrix) {
  return ChecksumOfRows(static_cast<int>(matrix->ncol), static_cast<int const*>(matrix->p),
                        static_cast<int const*>(matrix->i), static_cast<double const*>(matrix->x));
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  RowsOfFolder rows(argv[1]);
  cholmod_common common;
  cholmod_start(&common);
  cholmod_sparse matrix = bench::CholmodMatrixOver(rows);
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
