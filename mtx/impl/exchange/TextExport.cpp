#include "mtx/impl/exchange/TextExport.h"

#include "mtx/impl/exchange/DecimalText.h"
#include "mtx/impl/exchange/FileOutput.h"
#include "sim/ORXSrvSystemDofDefinition.h"

#include <algorithm>
#include <vector>

namespace orx {

namespace {

/// Writes a text file line by line.
class LineWriter {
public:
  explicit LineWriter(char const* path) : m_file(path, FileOutput::Existing::Truncate) {}

  LineWriter& BeginLine() {
    m_next = m_file.ReserveBuffer(longestLine);
    return *this;
  }
  LineWriter& Append(std::int64_t number) {
    if (number < 0) *m_next++ = '-';
    m_next = WriteUnsigned(m_next, static_cast<std::uint64_t>(number < 0 ? -number : number));
    return *this;
  }
  LineWriter& Append(char separator) {
    *m_next++ = separator;
    return *this;
  }
  void EndLine(double value) {
    m_next = WriteScientific15(m_next, value);
    *m_next++ = '\n';
    m_file.CommitBuffer(m_next);
  }
  void Close() { m_file.Close(); }

private:
  /// Four numbers of 32 bits, a value, the separators, and the bytes that WriteUnsigned may overwrite after a
  /// number.
  static constexpr std::size_t longestLine = 4 * 12 + maxUnsignedLength + maxScientific15Length + 8;

  FileOutput m_file;
  char* m_next = nullptr;
};

/// Returns the equations 0 to the last one that a line names. Asks for each once, before the file is opened.
std::vector<ORXSrvNodeDof> NodeDofs(CompressedRowsView const& matrix, ORXSrvSystemDofDefinition const& dofs) {
  std::int32_t const defined = dofs.NumberOfDofs();
  std::int32_t last = -1;
  ForEachStored(matrix, [&](std::int32_t row, std::int32_t column, double) {
    last = std::max(last, matrix.rows == matrix.columns ? std::max(row, column) : row);
  });
  if (last >= defined) dofs.NodeDofFromSolverDof(last); // raises the error
  std::vector<ORXSrvNodeDof> equations;
  for (std::int32_t k = 0; k <= last; ++k)
    equations.push_back(dofs.NodeDofFromSolverDof(k));
  return equations;
}

} // namespace

void WriteOneBasedText(char const* path, CompressedRowsView const& matrix) {
  LineWriter lines(path);
  ForEachEntry(matrix, [&](std::int32_t row, std::int32_t column, double value) {
    lines.BeginLine()
        .Append(std::int64_t{row} + 1)
        .Append(' ')
        .Append(std::int64_t{column} + 1)
        .Append(' ')
        .EndLine(value);
  });
  lines.Close();
}

void WriteZeroBasedText(char const* path, CompressedRowsView const& matrix) {
  LineWriter lines(path);
  auto const write = [&](std::int32_t row, std::int32_t column, double value) {
    lines.BeginLine()
        .Append(std::int64_t{row})
        .Append(',')
        .Append(std::int64_t{column})
        .Append(',')
        .Append(' ')
        .EndLine(value);
  };
  for (std::int32_t i = 0; i < matrix.rows; ++i) {
    if (matrix.diagonal != nullptr) write(i, i, matrix.diagonal[i]);
    for (std::int32_t k = matrix.rowPointers[i]; k < matrix.rowPointers[i + 1]; ++k)
      write(i, static_cast<std::int32_t>(matrix.columnIndices[k]), matrix.values[k]);
  }
  lines.Close();
}

void WriteNodeDofText(char const* path, CompressedRowsView const& matrix,
                      ORXSrvSystemDofDefinition const& dofs) {
  std::vector<ORXSrvNodeDof> const equations = NodeDofs(matrix, dofs);
  bool const isSquare = matrix.rows == matrix.columns;
  LineWriter lines(path);
  ForEachStored(matrix, [&](std::int32_t row, std::int32_t column, double value) {
    ORXSrvNodeDof const ofRow = equations[static_cast<std::size_t>(row)];
    ORXSrvNodeDof const ofColumn =
        isSquare ? equations[static_cast<std::size_t>(column)] : ORXSrvNodeDof{column, 0};
    lines.BeginLine()
        .Append(std::int64_t{ofRow.node})
        .Append(',')
        .Append(std::int64_t{ofRow.dof})
        .Append(',');
    lines.Append(std::int64_t{ofColumn.node})
        .Append(',')
        .Append(std::int64_t{ofColumn.dof})
        .Append(',')
        .EndLine(value);
  });
  lines.Close();
}

} // namespace orx
