#pragma once

#include "mtx/CompressedRows.h"

#include <cstdint>
#include <vector>

namespace orx {

/// A = K, or A = K - shift * M, as the engine takes it: triplets with one-based indices, rows ascending,
/// columns ascending within a row, each position once. Of a symmetric matrix only the lower triangle. The
/// pattern is the union of both patterns and the diagonal, whatever the values are.
class ShiftedMatrix {
public:
  ShiftedMatrix() = default;
  /// `m` may be null; both have the same order.
  ShiftedMatrix(CompressedRowsView const& k, double shift, CompressedRowsView const* m, bool isSymmetric);

  int Order() const noexcept { return m_order; }
  bool IsSymmetric() const noexcept { return m_isSymmetric; }
  std::int64_t Entries() const noexcept { return static_cast<std::int64_t>(m_values.size()); }
  /// One-based.
  std::vector<int> const& Rows() const noexcept { return m_rows; }
  std::vector<int> const& Columns() const noexcept { return m_columns; }
  std::vector<double> const& Values() const noexcept { return m_values; }

  /// Replaces rows and columns of these unknowns, zero-based, by those of a multiple of the identity.
  void Hold(std::vector<int> const& unknowns);

  bool HasPatternOf(ShiftedMatrix const& other) const noexcept;
  /// True when some diagonal value is zero.
  bool HasZeroOnDiagonal() const;
  /// Position of an entry that is not finite; -1 if there is none.
  std::int64_t FindNotFinite() const noexcept;

  /// residual = b - A x, and weights = |b| + |A| |x|.
  void ComputeResidual(double const* x, double const* b, double* residual, double* weights) const;
  /// The largest sum of magnitudes of a column.
  double OneNorm() const;
  /// Largest magnitude in each row.
  std::vector<double> LargestInRows() const;

private:
  int m_order = 0;
  bool m_isSymmetric = false;
  std::vector<int> m_rows;
  std::vector<int> m_columns;
  std::vector<double> m_values;
};

/// Groups of unknowns that are ordered together, such as those of one node of a mesh.
struct RowGroups {
  std::vector<int> pointers; ///< groups + 1, one-based; empty when there are no groups
  std::vector<int> unknowns; ///< of each group, one-based
};

/// Finds unknowns whose rows have the same pattern; patterns are compared by a 64-bit hash. Where zeros that
/// were left out make them differ, takes 6, 3 or 2 consecutive unknowns for a node, if blocks of that size
/// are full for the most part. Groups that are none cost the ordering some quality and nothing else. None are
/// returned when they would gain nothing.
RowGroups FindRowGroups(ShiftedMatrix const& matrix);

} // namespace orx
