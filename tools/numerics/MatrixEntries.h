#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

namespace orx::tool {

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
  /// For a file that says its dimensions, which its entries need not reach.
  void Enlarge(int rows, int columns);
  /// True when the file has said its dimensions, and whether one triangle stands for both, which then are
  /// both here. Nothing may be added to such a matrix. Text without a header says neither.
  bool IsWhole() const noexcept { return m_isWhole; }
  void DeclareWhole() noexcept { m_isWhole = true; }

private:
  int m_rows;
  int m_columns;
  bool m_isWhole = false;
  std::size_t m_count = 0;
  mem_Array<Entry> m_items;
};

/// Adds zero-based entries to a matrix and compresses it. Dimensions that the memory has no room for are a
/// ToolError that begins with `name`.
class EntryAssembly {
public:
  explicit EntryAssembly(std::string name) : m_name(std::move(name)), m_matrix(0, 0) {
    m_matrix.BeginAssembly();
  }
  /// Indices below 2147483647.
  void Add(std::int64_t row, std::int64_t column, double value) {
    m_rows = std::max(m_rows, row + 1);
    m_columns = std::max(m_columns, column + 1);
    m_matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  }
  MatrixEntries Finish();

private:
  std::string m_name;
  std::int64_t m_rows = 0;
  std::int64_t m_columns = 0;
  ORXSrvSparseMatrix m_matrix;
};

} // namespace orx::tool
