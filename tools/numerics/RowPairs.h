#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace orx::tool {

/// The entries of one row left of a column, one after the other. A row that the matrix lacks has none.
class RowCursor {
public:
  RowCursor(CompressedRowsView const& matrix, std::int32_t row, std::uint32_t endColumn)
      : m_matrix(matrix), m_next(row < matrix.rows ? matrix.rowPointers[row] : 0),
        m_end(row < matrix.rows ? matrix.rowPointers[row + 1] : 0), m_endColumn(endColumn) {}

  /// Column of the next entry; endColumn when there is none.
  std::uint32_t Column() const noexcept {
    return m_next < m_end ? std::min(m_matrix.columnIndices[m_next], m_endColumn) : m_endColumn;
  }
  /// Returns the next value and moves on if it is in this column, else null.
  double const* ValueIn(std::uint32_t column) noexcept {
    return Column() == column ? &m_matrix.values[m_next++] : nullptr;
  }

private:
  CompressedRowsView const& m_matrix;
  std::int32_t m_next;
  std::int32_t m_end;
  std::uint32_t m_endColumn;
};

/// Calls visit(column, a, b) for each column left of endColumn that row `row` of either matrix has,
/// ascending; the pointer to a value that is not stored is null. REQUIRES general form.
template<class Visit>
void MergeRows(CompressedRowsView const& a, CompressedRowsView const& b, std::int32_t row,
               std::uint32_t endColumn, Visit visit) {
  RowCursor ofA(a, row, endColumn);
  RowCursor ofB(b, row, endColumn);
  while (true) {
    std::uint32_t const column = std::min(ofA.Column(), ofB.Column());
    if (column == endColumn) return;
    visit(column, ofA.ValueIn(column), ofB.ValueIn(column));
  }
}

/// Calls visit(row, column, lower, upper) for each pair of mirrored positions, row > column, of which at
/// least one is stored, rows ascending, then columns; the pointer to a value that is not stored is null.
/// REQUIRES general form.
template<class Visit>
void ForEachPair(ORXSrvSparseMatrix const& matrix, Visit visit) {
  std::unique_ptr<ORXSrvSparseMatrix const> const transpose(matrix.Transpose());
  CompressedRowsView const rows = matrix.View();
  CompressedRowsView const columns = transpose->View();
  for (std::int32_t i = 0; i < std::max(rows.rows, rows.columns); ++i) {
    auto const row = static_cast<std::uint32_t>(i);
    MergeRows(rows, columns, i, row, [&](std::uint32_t column, double const* lower, double const* upper) {
      visit(row, column, lower, upper);
    });
  }
}

} // namespace orx::tool
