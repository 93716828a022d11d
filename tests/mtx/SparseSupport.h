#pragma once

#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <ostream>
#include <vector>

using SparsePtr = std::unique_ptr<ORXSrvSparseMatrix>;

/// Reaches the private builders, which readers of symmetric files and operations use.
struct ORXSrvSparseMatrixTestAccess {
  static SparsePtr Adopt(std::vector<int> const& rowPointers, std::vector<int> const& columns,
                         std::vector<double> const& values, std::vector<double> const* diagonal, int nonzeros,
                         int numColumns) {
    auto const copy = []<class To, class From>(mem_Array<To>& to, std::vector<From> const& from) {
      to = mem_MakeArray<To>(static_cast<std::int64_t>(from.size()));
      std::copy(from.begin(), from.end(), to.get());
    };
    orx::CompressedRows content;
    content.rows = static_cast<int>(rowPointers.size()) - 1;
    content.columns = numColumns;
    content.entries = rowPointers.back();
    content.numberOfNonzeros = nonzeros;
    copy(content.rowPointers, rowPointers);
    copy(content.columnIndices, columns);
    copy(content.values, values);
    if (diagonal != nullptr) copy(content.diagonal, *diagonal);
    return SparsePtr(new ORXSrvSparseMatrix(std::move(content)));
  }
  static int SymmetryState(ORXSrvSparseMatrix const& matrix) { return matrix.m_symmetryState; }
  static void SetSymmetryState(ORXSrvSparseMatrix& matrix, int state) {
    matrix.m_symmetryState = static_cast<ORXSrvSparseMatrix::SymmetryState>(state);
  }
  static orx::CompressedRowsView View(ORXSrvSparseMatrix const& matrix) { return matrix.View(); }
  static orx::RowPattern RowPattern(ORXSrvSparseMatrix const& matrix) { return matrix.m_rowPattern; }
  static std::vector<int> RowPointers(ORXSrvSparseMatrix const& matrix) {
    if (matrix.m_stored.rowPointers == nullptr) return {};
    return {matrix.m_stored.rowPointers.get(), matrix.m_stored.rowPointers.get() + matrix.m_stored.rows + 1};
  }
};

inline bool operator==(ORXSrvSparseMatrixEntry const& a, ORXSrvSparseMatrixEntry const& b) {
  return a.row == b.row && a.column == b.column && std::memcmp(&a.value, &b.value, sizeof a.value) == 0;
}
inline std::ostream& operator<<(std::ostream& out, ORXSrvSparseMatrixEntry const& e) {
  return out << '(' << e.row << ", " << e.column << ", " << e.value << ')';
}

using Access = ORXSrvSparseMatrixTestAccess;
using Entries = std::vector<ORXSrvSparseMatrixEntry>;

inline Entries EntriesOf(ORXSrvSparseMatrix const& matrix) {
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix.GetEntries(count));
  return {entries.get(), entries.get() + count};
}

inline void Assemble(ORXSrvSparseMatrix& matrix, Entries const& entries) {
  matrix.BeginAssembly();
  for (ORXSrvSparseMatrixEntry const& e : entries)
    matrix.AddData(e.row, e.column, e.value);
  matrix.EndAssembly();
}
inline SparsePtr NewAssembled(int rows, int columns, Entries const& entries) {
  auto matrix = std::make_unique<ORXSrvSparseMatrix>(rows, columns);
  Assemble(*matrix, entries);
  return matrix;
}
inline SparsePtr NewImported(char const* path, int format) {
  auto matrix = std::make_unique<ORXSrvSparseMatrix>(0, 0);
  matrix->Import(path, format);
  return matrix;
}
