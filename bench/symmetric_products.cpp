// symmetric_products FOLDER COUNT...: times our products of a matrix in symmetric form with COUNT vectors
// each, and those of the loop that everybody writes first, one vector after the other. FOLDER holds the
// compressed rows of the whole matrix in ia.bin, ja.bin and a.bin. Prints what kernel_peers.py prints, and
// the same with "plain" for "product". A program over the object libraries: only the readers of symmetric
// files, which are as fast as the disk, and the library itself make this form.

#include "bench/RowsOfFolder.h"
#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

/// Reaches the private builder and what it has built.
struct ORXSrvSparseMatrixTestAccess {
  static void MultiplyPlainly(ORXSrvSparseMatrix const& m, double const* x, double* y) {
    std::int32_t const* const ia = m.m_stored.rowPointers.get();
    std::uint32_t const* const ja = m.m_stored.columnIndices.get();
    double const* const a = m.m_stored.values.get();
    std::fill_n(y, m.m_rows, 0.0);
    for (int i = 0; i < m.m_rows; ++i) {
      double sum = 0.0;
      for (int k = ia[i]; k < ia[i + 1]; ++k) {
        sum += a[k] * x[ja[k]];
        y[ja[k]] += a[k] * x[i];
      }
      y[i] += m.m_stored.diagonal[i] * x[i] + sum;
    }
  }
  static std::unique_ptr<ORXSrvSparseMatrix> NewSymmetric(bench::RowsOfFolder const& whole) {
    int const rows = whole.rows;
    int const* const ia = whole.ia.Data();
    int const* const ja = whole.ja.Data();
    double const* const a = whole.a.Data();
    orx::CompressedRows half;
    half.rows = half.columns = rows;
    half.entries = (ia[rows] - rows) / 2;
    half.numberOfNonzeros = rows + half.entries;
    half.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{rows} + 1);
    half.columnIndices = mem_MakeArray<std::uint32_t>(half.entries);
    half.values = mem_MakeArray<double>(half.entries);
    half.diagonal = mem_MakeArray<double>(rows);
    std::int32_t next = 0;
    for (int i = 0; i < rows; ++i) {
      half.rowPointers[i] = next;
      for (int k = ia[i]; k < ia[i + 1]; ++k) {
        if (ja[k] == i) half.diagonal[i] = a[k];
        if (ja[k] >= i) continue;
        half.columnIndices[next] = static_cast<std::uint32_t>(ja[k]);
        half.values[next++] = a[k];
      }
    }
    half.rowPointers[rows] = next;
    return std::unique_ptr<ORXSrvSparseMatrix>(new ORXSrvSparseMatrix(std::move(half)));
  }
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::unique_ptr<ORXSrvSparseMatrix> const matrix =
      ORXSrvSparseMatrixTestAccess::NewSymmetric(bench::RowsOfFolder(argv[1]));
  std::ptrdiff_t const rows = matrix->NumberOfRows();
  for (int k = 2; k < argc; ++k) {
    int const count = std::atoi(argv[k]);
    auto const x = bench::BlockOfVectors::Factors(matrix->NumberOfRows(), count);
    bench::BlockOfVectors y(matrix->NumberOfRows(), count);
    double seconds = bench::MedianSeconds([&] { matrix->Multiply(x.Data(), count, y.Data(), false); });
    bench::PrintTiming(("product_" + std::to_string(count)).c_str(), seconds, y.Checksum());
    seconds = bench::MedianSeconds([&] {
      for (std::ptrdiff_t v = 0; v < count; ++v)
        ORXSrvSparseMatrixTestAccess::MultiplyPlainly(*matrix, x.Data() + v * rows, y.Data() + v * rows);
    });
    bench::PrintTiming(("plain_" + std::to_string(count)).c_str(), seconds, y.Checksum());
  }
  return 0;
}
