#include "mtx/ORXSrvSparseMatrix.h"

#include "blac/BLAC.h"
#include "blac/sparse/KernelChoice.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvUtilities.h"
#include "mtx/impl/blocks/BlockRanges.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/sparse/KernelArrays.h"

#include <algorithm>
#include <climits>

using namespace orx;

namespace {

constexpr auto& sourceFile = orx::sparseMatrixSource;

/// Reads listed rows of a block matrix, in ascending order, one below the other.
class ListedRows {
public:
  ListedRows(ORXSrvDenseMatrix const& matrix, unsigned const* list, int count)
      : m_matrix(matrix), m_list(list), m_count(count),
        m_runStarts(ORXSrvFindContiguousRanges(reinterpret_cast<int const*>(list), count, INT_MAX, m_runs)) {}

  /// Reads the listed rows of `columns`.
  void Read(BlockRange const& columns, ORXSrvMatrix& target) const {
    if (m_runs < fewestRunsReadAtOnce) {
      for (int run = 0; run < m_runs; ++run)
        ReadRows(m_runStarts[run], m_runStarts[run + 1], columns, target);
    } else {
      ReadAllAndPick(columns, target);
    }
  }

private:
  /// From this number of runs on, one read of all rows costs less than a read for each run.
  static constexpr int fewestRunsReadAtOnce = 1000;

  /// Reads the rows list[first] ... list[end - 1], which are consecutive.
  void ReadRows(int first, int end, BlockRange const& columns, ORXSrvMatrix& target) const {
    ORXSrvMatrix rows(end - first, columns.Size());
    auto const firstRow = static_cast<int>(m_list[first]);
    m_matrix.GetValues(firstRow, firstRow + end - first - 1, columns.first, columns.last, rows);
    target.SetValues(first, end - 1, 0, columns.Size() - 1, rows);
  }
  void ReadAllAndPick(BlockRange const& columns, ORXSrvMatrix& target) const {
    std::int64_t const rowCount = std::int64_t{m_list[m_count - 1]} + 1;
    ORXSrvMatrix rows(static_cast<int>(rowCount), columns.Size());
    m_matrix.GetValues(0, static_cast<int>(rowCount) - 1, columns.first, columns.last, rows);
    double* to = target.Values();
    for (int j = 0; j < columns.Size(); ++j)
      for (int p = 0; p < m_count; ++p)
        *to++ = rows.Values()[j * rowCount + m_list[p]];
  }

  ORXSrvDenseMatrix const& m_matrix;
  unsigned const* m_list;
  int m_count;
  int m_runs = 0;
  mem_Array<int> m_runStarts; ///< start of each run in the list, then the end of the list
};

} // namespace

void ORXSrvSparseMatrix::Multiply(double const* x, int nvec, double* y, bool transpose) const {
  if (m_stored.numberOfNonzeros == 0) return;
  RequireAssembled("Multiply");
  blac::RowArrays const arrays = KernelArrays(View());
  if (m_rowPattern == RowPattern::Unknown) m_rowPattern = FindRowPattern(arrays, m_rows, IsSymmetricForm());
  if (IsSymmetricForm()) RequireNoMoreColumnsThanRows("Multiply");
  using Kind = blac::SparseProduct::Kind;
  Kind const kind = IsSymmetricForm() ? Kind::Symmetric : transpose ? Kind::Transposed : Kind::General;
  blac::SparseProduct const product(kind, arrays, m_rows, m_columns, m_rowPattern, nvec);
  std::int64_t const size = product.WorkspaceSize();
  auto const workspace = size > 0 ? mem_MakeArray<double>(size) : mem_Array<double>();
  product.Multiply(m_stored.diagonal.get(), x, y, workspace.get());
}

void ORXSrvSparseMatrix::MultiplyIndexed(double const* x, int nvec, double* y, bool transpose, int count,
                                         unsigned const* indices) const {
  if (!transpose) ORXSrvMtxNoTranspose().Throw(sourceFile, __LINE__);
  if (m_stored.numberOfNonzeros == 0) return;
  BLAC_SPARSE_SPARSE_UMTV(m_stored.values.get(), x, m_stored.rowPointers.get(),
                          reinterpret_cast<int const*>(m_stored.columnIndices.get()), y, &count, &m_columns,
                          &nvec, reinterpret_cast<int const*>(indices));
}

void ORXSrvSparseMatrix::MultiplyDense(ORXSrvDenseMatrix const& d, double* out, bool transpose) const {
  if (m_stored.numberOfNonzeros == 0) return;
  RequireGeneralForm("MultiplyDense");
  RequireAssembled("MultiplyDense");
  int count = 0;
  mem_Array<unsigned> const list(transpose ? FindNontrivialRows(count) : FindNontrivialColumns(count));
  ListedRows const rows(d, list.get(), count);
  std::vector<BlockRange> const blocks = GroupColumnBlocks(d);
  WorkArea const area(count, LargestSize(blocks));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix gathered = area.As(count, columns.Size());
    rows.Read(columns, gathered);
    MultiplyIndexed(gathered.Values(), columns.Size(), out, transpose, count, list.get());
    out += std::int64_t{columns.Size()} * m_columns;
  }
}

void ORXSrvSparseMatrix::MultiplyDense(ORXSrvDenseMatrix const& d, ORXSrvDenseMatrix& r,
                                       bool transpose) const {
  if (m_stored.numberOfNonzeros == 0) return;
  RequireAssembled("MultiplyDense");
  if (IsSymmetricForm()) RequireNoMoreColumnsThanRows("MultiplyDense");
  int const rowsIn = transpose || IsSymmetricForm() ? m_rows : m_columns;
  int const rowsOut = transpose && !IsSymmetricForm() ? m_columns : m_rows;
  int const rowsBelow = r.NumberOfRows() - rowsOut;
  if (rowsIn > d.NumberOfRows()) ORXSrvMtxInvalidGetRange().Throw(sourceFile, __LINE__);
  if (rowsBelow < 0 || d.NumberOfColumns() > r.NumberOfColumns())
    ORXSrvMtxInvalidSetRange().Throw(sourceFile, __LINE__);
  d.RequireNotShifted(d.Whole(), r, "MultiplyDense");
  r.RequireNoMirrors("MultiplyDense");
  std::vector<BlockRange> const blocks = GroupColumnBlocks(d);
  WorkArea const areaIn(rowsIn, LargestSize(blocks));
  WorkArea const areaOut(rowsOut, LargestSize(blocks));
  WorkArea const areaBelow(rowsBelow, LargestSize(blocks));
  for (BlockRange const& columns : blocks) {
    ORXSrvMatrix in = areaIn.As(rowsIn, columns.Size());
    ORXSrvMatrix out = areaOut.As(rowsOut, columns.Size());
    d.GetValues(0, rowsIn - 1, columns.first, columns.last, in);
    Multiply(in.Values(), columns.Size(), out.Values(), transpose);
    r.SetValues(0, rowsOut - 1, columns.first, columns.last, out);
    if (rowsBelow == 0) continue;
    ORXSrvMatrix below = areaBelow.As(rowsBelow, columns.Size());
    below = 0.0;
    r.SetValues(rowsOut, r.NumberOfRows() - 1, columns.first, columns.last, below);
  }
}
