#pragma once

#include <cstddef>

namespace orx::blac {

/// The arrays of a sparse matrix in compressed rows, which lie elsewhere. Row i has the entries
/// k = rowPointers[i] ... rowPointers[i + 1] - 1: values[k] in column columnIndices[k]. Indices are
/// zero-based. The numbers of rows and columns are not part of it: a kernel may use some of the rows only.
///
///     .  2  .  -1      rowPointers      0      2   2      4
///     .  .  .   .      columnIndices    1   3      0   2
///     3  .  5   .      values           2  -1      3   5
struct RowArrays {
  double const* values;
  int const* rowPointers; ///< one element more than there are rows
  int const* columnIndices;

  int const* ColumnsOf(std::ptrdiff_t i) const { return columnIndices + rowPointers[i]; }
};

/// Neighbouring rows with the same columns are multiplied together when they have at least this number of
/// entries; in shorter rows, comparing the columns costs more than it saves. The same for rows that have the
/// columns of the row before plus one.
constexpr int leastSharedColumns = 12;
constexpr int leastShiftedColumns = 4;

} // namespace orx::blac
