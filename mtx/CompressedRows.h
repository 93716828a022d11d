#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>

namespace orx {

/// A view of the arrays of a sparse matrix, which others own. Indices are zero-based. Row i has the entries
/// rowPointers[i] to rowPointers[i + 1] - 1. In general form columns ascend within a row, each once. In
/// symmetric form the diagonal has an array of its own, and each pair of mirrored entries is stored once.
struct CompressedRowsView {
  std::int32_t rows = 0;
  std::int32_t columns = 0;
  std::int32_t const* rowPointers = nullptr; ///< rows + 1 elements; null for a matrix that has no arrays
  std::uint32_t const* columnIndices = nullptr;
  double const* values = nullptr;
  double const* diagonal = nullptr; ///< symmetric form only, `rows` values

  std::int32_t Entries() const noexcept { return rowPointers != nullptr ? rowPointers[rows] : 0; }
  std::int32_t Length(std::int32_t row) const noexcept { return rowPointers[row + 1] - rowPointers[row]; }
  std::uint32_t const* ColumnsOf(std::int32_t row) const noexcept { return columnIndices + rowPointers[row]; }
};

/// Calls visit(row, column, value) for each stored entry, row by row. Of the symmetric form this is one
/// triangle without the diagonal.
template<class Visit>
void ForEachStored(CompressedRowsView const& matrix, Visit visit) {
  for (std::int32_t row = 0; row < matrix.rows; ++row)
    for (std::int32_t k = matrix.rowPointers[row]; k < matrix.rowPointers[row + 1]; ++k)
      visit(row, static_cast<std::int32_t>(matrix.columnIndices[k]), matrix.values[k]);
}

/// Calls visit(row, column, value) for each entry of the matrix. In symmetric form the diagonal comes first,
/// then each stored entry followed by its mirror image.
template<class Visit>
void ForEachEntry(CompressedRowsView const& matrix, Visit visit) {
  if (matrix.diagonal == nullptr) return ForEachStored(matrix, visit);
  for (std::int32_t i = 0; i < matrix.rows; ++i)
    visit(i, i, matrix.diagonal[i]);
  ForEachStored(matrix, [&](std::int32_t row, std::int32_t column, double value) {
    visit(row, column, value);
    visit(column, row, value);
  });
}

/// The owner of the arrays of a sparse matrix. Builders append entries row by row (see
/// impl/exchange/RowAppender.h); `entries` is then the number of entries appended so far.
struct CompressedRows {
  std::int32_t rows = 0;
  std::int32_t columns = 0;
  std::int32_t entries = 0; ///< stored entries
  /// What the matrix reports. Formats differ in whether the diagonal counts.
  std::int32_t numberOfNonzeros = 0;
  mem_Array<std::int32_t> rowPointers;
  mem_Array<std::uint32_t> columnIndices;
  mem_Array<double> values;
  mem_Array<double> diagonal; ///< null in general form

  CompressedRowsView View() const noexcept {
    return {rows, columns, rowPointers.get(), columnIndices.get(), values.get(), diagonal.get()};
  }
};

} // namespace orx
