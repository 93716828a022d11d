// cholmod_peer operations FOLDER
// cholmod_peer products [symmetric] FOLDER COUNT...
//
// Times CHOLMOD: the transposition and permutation of the matrix in FOLDER, or its products with COUNT
// vectors each, with "symmetric" of one triangle and not transposed. Prints "TASK SECONDS" and a checksum. A
// program of its own: what CHOLMOD loads must not be in ours.

#include "bench/RowsOfFolder.h"

#include <cholmod.h>

#include <string>
#include <vector>

namespace {

using bench::ChecksumOfRows;
using bench::MedianSecondsOfNew;
using bench::RowsOfFolder;

/// CHOLMOD has columns where we have rows: what it holds is the transpose of what we mean.
cholmod_sparse CholmodMatrixOver(RowsOfFolder& rows) {
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

// Operations

/// Of the transpose of what CHOLMOD holds.
double ChecksumOf(cholmod_sparse const* matrix) {
  return ChecksumOfRows(static_cast<int>(matrix->ncol), static_cast<int const*>(matrix->p),
                        static_cast<int const*>(matrix->i), static_cast<double const*>(matrix->x));
}

void TimeOperations(char const* folder) {
  RowsOfFolder rows(folder);
  cholmod_common common;
  cholmod_start(&common);
  cholmod_sparse matrix = CholmodMatrixOver(rows);
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
}

// Products

cholmod_dense Over(bench::BlockOfVectors& vectors, int count) {
  cholmod_dense dense{};
  dense.nzmax = vectors.Size();
  dense.nrow = dense.d = vectors.Size() / static_cast<std::size_t>(count);
  dense.ncol = static_cast<std::size_t>(count);
  dense.x = vectors.Data();
  dense.xtype = CHOLMOD_REAL;
  dense.dtype = CHOLMOD_DOUBLE;
  return dense;
}

void TimeProducts(bench::ProductsTask const& task) {
  bench::RowsOfFolder rows(task.folder);
  cholmod_common common;
  cholmod_start(&common);
  cholmod_sparse matrix = CholmodMatrixOver(rows);
  constexpr int upper = 1, withValues = 1;
  cholmod_sparse* triangle = task.isSymmetric ? cholmod_copy(&matrix, upper, withValues, &common) : nullptr;
  for (int const count : task.counts) {
    auto x = bench::BlockOfVectors::Factors(rows.rows, count);
    bench::BlockOfVectors y(rows.rows, count);
    cholmod_dense denseX = Over(x, count);
    cholmod_dense denseY = Over(y, count);
    auto const report = [&](char const* name, bool transposeHeld) {
      double one[] = {1, 0}, zero[] = {0, 0};
      double const seconds = bench::MedianSeconds([&] {
        cholmod_sdmult(task.isSymmetric ? triangle : &matrix, transposeHeld ? 1 : 0, one, zero, &denseX,
                       &denseY, &common);
      });
      bench::PrintTiming((name + std::to_string(count)).c_str(), seconds, y.Checksum());
    };
    report("product_", true);
    if (!task.isSymmetric) report("transposed_", false);
  }
  cholmod_free_sparse(&triangle, &common);
  cholmod_finish(&common);
}

} // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const words(argv + 1, argv + argc);
  if (words.size() < 2) return 2;
  if (words[0] == "operations") {
    TimeOperations(words[1].c_str());
    return 0;
  }
  TimeProducts(bench::ProductsTask(words));
  return 0;
}
