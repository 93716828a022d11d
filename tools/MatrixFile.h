#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <cstddef>
#include <span>
#include <string>

namespace tool {

using Entry = ORXSrvSparseMatrixEntry;

/// The entries of a sparse matrix, zero-based, in row order with ascending columns, each position once.
/// Owns its copy; it is moved, not copied.
class MatrixEntries {
public:
  /// The matrix is in general form.
  explicit MatrixEntries(ORXSrvSparseMatrix const& matrix);

  int Rows() const noexcept { return m_rows; }
  int Columns() const noexcept { return m_columns; }
  std::span<Entry const> Items() const noexcept { return {m_items.get(), m_count}; }

private:
  int m_rows;
  int m_columns;
  std::size_t m_count = 0;
  mem_Array<Entry> m_items;
};

/// Reads a text file of one-based "row column value" items; values at one position are summed.
/// The dimensions are the largest indices in the file: what follows the last entry is not known to it.
/// What cannot be opened is a ToolError, what is malformed the library's own exception with path and line.
MatrixEntries LoadMatrix(std::string const& path);

} // namespace tool
