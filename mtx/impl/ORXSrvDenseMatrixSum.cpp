#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/impl/BlockRanges.h"
#include "mtx/impl/ORXSrvMtxErrors.h"

#include <algorithm>
#include <vector>

using namespace orx;

// The sum of a matrix in memory and a block matrix: a member of the former that stands above the latter.

namespace {

constexpr char sourceFile[] = "mtx/impl/ORXSrvDenseMatrixSum.cpp";

/// Copies the upper triangle of the leading square onto the lower one.
void MirrorUpperTriangle(ORXSrvMatrix& matrix) {
  std::int64_t const rows = matrix.NumberOfRows();
  std::int64_t const n = std::min(matrix.NumberOfRows(), matrix.NumberOfColumns());
  for (std::int64_t j = 0; j < n; ++j)
    for (std::int64_t i = j + 1; i < n; ++i)
      matrix.Values()[j * rows + i] = matrix.Values()[i * rows + j];
}

} // namespace

void ORXSrvMatrix::Add(double factor, ORXSrvDenseMatrix const& source) {
  if (factor == 0.0) return;
  if (source.NumberOfRows() > m_dim1 || source.NumberOfColumns() > m_dim2)
    ORXSrvMtxIllegalInput("Add").Throw(sourceFile, __LINE__);
  std::vector<BlockRange> const rowBlocks = RowGroups(source);
  std::vector<BlockRange> const columnBlocks = ColumnGroups(source);
  WorkArea const work(LargestSize(rowBlocks), LargestSize(columnBlocks));
  for (BlockRange const& columns : columnBlocks)
    for (BlockRange const& rows : rowBlocks) {
      // Below the diagonal the mirror image comes.
      if (m_symmetric && rows.first > columns.last) break;
      ORXSrvMatrix block = work.As(rows.Size(), columns.Size());
      source.GetValues(rows.first, rows.last, columns.first, columns.last, block);
      AddSlice(factor, block, rows.first, columns.first);
    }
  if (m_symmetric && !m_diagonal) MirrorUpperTriangle(*this);
}
