#pragma once

#include "blac/sparse/SpmvKernels.h"
#include "blac/sparse/SpmvRegistersAvx2.h"

#include <algorithm>
#include <cstddef>
#include <utility>

// Row groups: neighbouring rows whose entries are multiplied together, because their columns are alike. There
// are two kinds:
//
//     shared columns, 2 or 3 rows          shifted columns, 4 rows
//     (the unknowns of one node)           (neighbours in a grid with one unknown a node)
//
//     row i       . x x . x . x            row i       x . x x . . .
//     row i + 1   . x x . x . x            row i + 1   . x . x x . .
//     row i + 2   . x x . x . x            row i + 2   . . x . x x .
//                                          row i + 3   . . . x . x x
//
// Looking for groups costs comparisons and branches that cannot be predicted. In an unstructured mesh, which
// has no groups, this would cost more than the products: GroupSearch stops looking where nothing is found.

namespace orx::blac {

constexpr int mostRowsWithSharedColumns = 3;

/// The entries of `rows` neighbouring rows of equal length, whose columns are alike.
///
///     values:   first row ... | second row ... | third row ...      each `length` long, without gaps
template<int rows>
struct RowGroup {
  double const* values;
  int const* columns; ///< of the first row
  std::ptrdiff_t length;
};

/// The row at a position of the row list, or row `position` without a list.
BLAC_AVX2_INLINE RowGroup<1> RowAt(SpmvOperands const& s, std::ptrdiff_t position) {
  std::ptrdiff_t const row = s.rowList != nullptr ? s.rowList[position] : position;
  return {s.matrix.values + s.matrix.rowPointers[row], s.matrix.columnIndices + s.matrix.rowPointers[row],
          s.matrix.rowPointers[row + 1] - s.matrix.rowPointers[row]};
}

/// Prefetches entries ahead of entry k of each row of a group. Prefetches go through the arrays in the order
/// of their addresses although the rows are read side by side: in the order of the reads, the processor's own
/// prefetching stops, and a kernel takes up to twice as long.
template<int vectors, int entries, int rows>
BLAC_AVX2_INLINE void PrefetchEntries(RowGroup<rows> const& group, std::ptrdiff_t k) {
  PrefetchEntries<vectors, entries * rows>(group.values + k * rows, group.columns + k * rows);
}

/// Prefetches ahead of the entries k ... last - 1 of the matrix. No cache line is left out: a gap stops the
/// processor's own prefetching.
template<int vectors>
BLAC_AVX2_INLINE void PrefetchRow(SpmvOperands const& s, std::ptrdiff_t k, std::ptrdiff_t last) {
  constexpr int step = 8;
  for (; k < last; k += step)
    PrefetchEntries<vectors, step>(s.matrix.values + k, s.matrix.columnIndices + k);
}

// Comparing columns

/// Zero in all bits if b[0 ... 3] equals a[0 ... 3] + shift.
BLAC_AVX2_INLINE __m128i Difference(int const* a, int const* b, __m128i shift) {
  __m128i const fromA = _mm_loadu_si128(reinterpret_cast<__m128i const*>(a));
  __m128i const fromB = _mm_loadu_si128(reinterpret_cast<__m128i const*>(b));
  return _mm_xor_si128(_mm_add_epi32(fromA, shift), fromB);
}
/// Zero in all bits if b[0 ... 7] equals a[0 ... 7] + shift.
BLAC_AVX2_INLINE __m256i Difference(int const* a, int const* b, __m256i shift) {
  __m256i const fromA = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(a));
  __m256i const fromB = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(b));
  return _mm256_xor_si256(_mm256_add_epi32(fromA, shift), fromB);
}

/// True when b[k] = a[k] + shift for all k < length. REQUIRES: length >= 4. The last register overlaps with
/// the one before it, which is faster than comparing the remaining columns one by one.
BLAC_AVX2_INLINE bool HasShift(int const* a, int const* b, std::ptrdiff_t length, int shift) {
  if (length < 8) {
    __m128i const shifts = _mm_set1_epi32(shift);
    __m128i const different =
        _mm_or_si128(Difference(a, b, shifts), Difference(a + length - 4, b + length - 4, shifts));
    return _mm_testz_si128(different, different) != 0;
  }
  __m256i const shifts = _mm256_set1_epi32(shift);
  __m256i different = Difference(a + length - 8, b + length - 8, shifts);
  for (std::ptrdiff_t k = 0; k + 8 < length; k += 8)
    different = _mm256_or_si256(different, Difference(a + k, b + k, shifts));
  return _mm256_testz_si256(different, different) != 0;
}

BLAC_AVX2_INLINE bool IsAscending(int const* columns, std::ptrdiff_t length) {
  std::ptrdiff_t k = 0;
  for (; k + 8 < length; k += 8) {
    __m256i const here = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(columns + k));
    __m256i const next = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(columns + k + 1));
    if (_mm256_movemask_epi8(_mm256_cmpgt_epi32(next, here)) != -1) return false;
  }
  for (; k + 1 < length; ++k)
    if (columns[k] >= columns[k + 1]) return false;
  return true;
}

/// Number of rows from `position` (row `first`) with the same columns, at most mostRowsWithSharedColumns.
/// Rows of a list count only if their entries follow each other in memory. REQUIRES: first.length >= 4.
BLAC_AVX2_INLINE int CountRowsWithSharedColumns(SpmvOperands const& s, std::ptrdiff_t position,
                                                RowGroup<1> const& first) {
  int rows = 1;
  for (; rows < mostRowsWithSharedColumns && position + rows < s.rows; ++rows) {
    RowGroup<1> const next = RowAt(s, position + rows);
    if (next.length != first.length || next.values != first.values + rows * first.length ||
        !HasShift(first.columns, next.columns, first.length, 0))
      break;
  }
  return rows;
}

/// True when each of the four rows from row i (row `first`) has the columns of the row before plus one.
/// `rows` is the number of rows of the matrix.
BLAC_AVX2_INLINE bool IsShiftedGroup(SpmvOperands const& s, std::ptrdiff_t i, std::ptrdiff_t rows,
                                     RowGroup<1> const& first) {
  std::ptrdiff_t const length = first.length;
  if (length < leastShiftedColumns || i + lanes > rows) return false;
  for (int r = 1; r < lanes; ++r)
    if (s.matrix.rowPointers[i + r + 1] - s.matrix.rowPointers[i + r] != length) return false;
  if (first.columns[length] != first.columns[0] + 1) return false;
  for (int r = 1; r < lanes; ++r)
    if (!HasShift(first.columns, first.columns + r * length, length, r)) return false;
  return true;
}

// The pass over the rows

/// Decides where row groups are looked for. After many rows outside of groups it recommends a pause, twice as
/// long as the pause before up to a limit; rows in groups delay the next pause.
class GroupSearch {
public:
  /// Takes note of a group with `groupRows` rows, or with 0 of a row that begins no group. Returns the number
  /// of rows behind it in which to look for no group.
  std::ptrdiff_t RowsToSkipAfter(std::ptrdiff_t groupRows) {
    m_singleRows = groupRows > 0 ? std::max<std::ptrdiff_t>(m_singleRows - groupRows, 0) : m_singleRows + 1;
    if (m_singleRows < mostSingleRows) [[likely]]
      return 0;
    m_singleRows = mostSingleRows / 2;
    return std::exchange(m_pause, std::min(2 * m_pause, longestPause));
  }

private:
  static constexpr std::ptrdiff_t mostSingleRows = 16;
  static constexpr std::ptrdiff_t longestPause = 4096;
  std::ptrdiff_t m_singleRows = 0; ///< rows outside of groups minus rows in groups, not negative
  std::ptrdiff_t m_pause = 32;
};

/// Multiplies all rows. product.MultiplyGroup(i) multiplies a row group that begins with row i and returns
/// the number of its rows, or multiplies nothing and returns 0; product.MultiplySingleRows(begin, end)
/// multiplies the rows begin ... end - 1 one by one.
template<class Product>
BLAC_AVX2_INLINE void MultiplyAllRows(std::ptrdiff_t rows, Product& product) {
  GroupSearch search;
  for (std::ptrdiff_t i = 0; i < rows;) {
    std::ptrdiff_t const groupRows = product.MultiplyGroup(i);
    std::ptrdiff_t const singleRows = (groupRows == 0 ? 1 : 0) + search.RowsToSkipAfter(groupRows);
    i += groupRows;
    if (singleRows == 0) continue;
    std::ptrdiff_t const end = std::min(rows, i + singleRows);
    product.MultiplySingleRows(i, end);
    i = end;
  }
}

} // namespace orx::blac
