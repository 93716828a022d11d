// symmetric_products FOLDER COUNT...: times our products of a matrix in symmetric form with COUNT vectors
// each. FOLDER holds the compressed rows of the whole matrix in ia.bin, ja.bin and a.bin. Prints what
// kernel_peers.py prints. A program over the object libraries: only the readers of symmetric files, which are
// as fast as the disk, and the library itself make this form.

#include "bench/RowsOfFolder.h"
#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <cstdlib>
#include <memory>
#include <string>

/// Reaches the private builder.
struct ORXSrvSparseMatrixTestAccess {
  static std::unique_ptr<ORXSrvSparseMatrix> NewSymmetric(bench::RowsOfFolder const& whole) {
    int const rows = whole.rows;
    int const* const ia = whole.ia.Data();
    int const* const ja = whole.ja.Data();
    double const* const a = whole.a.Data();
    int const stored = (ia[rows] - rows) / 2;
    auto* const rowPointers = mem_NewArray<unsigned>(std::int64_t{rows} + 1);
    int* const columns = mem_NewArray<int>(stored);
    double* const values = mem_NewArray<double>(stored);
    double* const diagonal = mem_NewArray<double>(rows);
    unsigned next = 0;
    for (int i = 0; i < rows; ++i) {
      rowPointers[i] = next;
      for (int k = ia[i]; k < ia[i + 1]; ++k) {
        if (ja[k] == i) diagonal[i] = a[k];
        if (ja[k] >= i) continue;
        columns[next] = ja[k];
        values[next++] = a[k];
      }
    }
    rowPointers[rows] = next;
    return std::unique_ptr<ORXSrvSparseMatrix>(
        new ORXSrvSparseMatrix(rowPointers, columns, values, diagonal, rows + stored, rows, rows));
  }
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::unique_ptr<ORXSrvSparseMatrix> const matrix =
      ORXSrvSparseMatrixTestAccess::NewSymmetric(bench::RowsOfFolder(argv[1]));
  for (int k = 2; k < argc; ++k) {
    int const count = std::atoi(argv[k]);
    auto const x = bench::BlockOfVectors::Factors(matrix->NumberOfRows(), count);
    bench::BlockOfVectors y(matrix->NumberOfRows(), count);
    double const seconds = bench::MedianSeconds([&] { matrix->Multiply(x.Data(), count, y.Data(), false); });
    bench::PrintTiming(("product_" + std::to_string(count)).c_str(), seconds, y.Checksum());
  }
  return 0;
}
