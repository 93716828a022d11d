#include "tools/numerics/MatrixEntries.h"

#include "tools/terminal/Memory.h"

namespace orx::tool {

MatrixEntries::MatrixEntries(ORXSrvSparseMatrix const& matrix)
    : m_rows(matrix.NumberOfRows()), m_columns(matrix.NumberOfColumns()) {
  int count = 0;
  m_items.reset(matrix.GetEntries(count));
  m_count = static_cast<std::size_t>(count);
}

void MatrixEntries::Enlarge(int rows, int columns) {
  m_rows = std::max(m_rows, rows);
  m_columns = std::max(m_columns, columns);
}

MatrixEntries EntryAssembly::Finish() {
  RequireRoomForTables(m_name, m_rows, m_columns, AvailableMemory());
  m_matrix.EndAssembly();
  return MatrixEntries(m_matrix);
}

} // namespace orx::tool
