#pragma once

#include "blac/sparse/CacheSizes.h"
#include "blac/sparse/RowArrays.h"
#include "blac/sparse/SpmvKernels.h"

#include <algorithm>
#include <bit>
#include <cstdint>

// Properties that the rows of a matrix have in common, found by looking at a sample of the rows.

namespace orx::blac {

/// Calls visit(i) for a sample of the rows, which never includes row 0: visit may look at row i - 1. Returns
/// the number of calls. The sample is spread evenly, but not in equal steps, which could be those of the
/// matrix, as the length of a grid's lines.
template<class Visit>
std::int64_t VisitSampleRows(std::int32_t rows, Visit visit) {
  constexpr std::int32_t samples = 1000;
  if (rows <= samples) {
    for (std::int64_t i = 1; i < rows; ++i)
      visit(i);
    return std::max(rows - 1, 0);
  }
  constexpr std::uint64_t goldenSection = 0x9E3779B97F4A7C15; // of 2^64
  for (std::uint64_t k = 1; k <= samples; ++k)
    visit(1 +
          static_cast<std::int64_t>((k * goldenSection >> 32) * static_cast<std::uint64_t>(rows - 1) >> 32));
  return samples;
}

/// True when the sampled rows have, on average, more than one entry that is far from the entry before it and
/// from all entries of the row before. Such an entry uses a cache line that nothing has announced. When it is
/// met for several vectors, one more pass that brings their elements together costs less than to miss the
/// cache for each vector. REQUIRES: the columns of a row ascend; otherwise the answer may be wrong.
inline bool HasScatteredColumns(RowArrays const& matrix, std::int32_t rows) {
  constexpr std::int64_t near = 2 * doublesInCacheLine; // the same cache line or the next one
  int const* const columns = matrix.columnIndices;
  std::int64_t far = 0;
  std::int64_t const visited = VisitSampleRows(rows, [&](std::int64_t i) {
    int const begin = matrix.rowPointers[i];
    int before = matrix.rowPointers[i - 1];
    for (int k = begin; k < matrix.rowPointers[i + 1]; ++k) {
      std::int64_t const column = columns[k];
      while (before < begin && columns[before] < column - near)
        ++before;
      bool const isNearRowBefore = before < begin && columns[before] <= column + near;
      bool const isNearEntryBefore = k > begin && column - columns[k - 1] <= near;
      far += static_cast<std::int64_t>(!isNearRowBefore && !isNearEntryBefore);
    }
  });
  return far > visited;
}

/// True when a vector group of this length is larger than the cache, so that an access to an arbitrary
/// element misses it for each vector. REQUIRES: vectors > 0.
inline bool IsBeyondCache(std::int64_t length, int vectors) {
  auto const lanes =
      static_cast<std::int64_t>(std::bit_ceil(static_cast<unsigned>(std::min(vectors, vectorsInGroup))));
  return length * lanes >= scatteredAccessBytes / std::int64_t{sizeof(double)};
}

/// True when most sampled rows begin with the columns of the row before: several unknowns a node.
inline bool HasSharedColumns(RowArrays const& matrix, std::int32_t rows) {
  std::int64_t sharing = 0;
  std::int64_t const visited = VisitSampleRows(rows, [&](std::int64_t i) {
    int const* const before = matrix.ColumnsOf(i - 1);
    int const* const row = matrix.ColumnsOf(i);
    int const* const end = matrix.ColumnsOf(i + 1);
    sharing += static_cast<std::int64_t>(row - before >= leastSharedColumns && end - row >= row - before &&
                                         std::equal(before, row, row));
  });
  return sharing * 2 > visited;
}

/// True when most sampled rows have the columns of the row before plus one: a grid with one unknown a node.
/// In symmetric form only rows count whose last column lies before the diagonal.
inline bool HasShiftedColumns(RowArrays const& matrix, std::int32_t rows, bool isSymmetricForm) {
  std::int64_t shifted = 0;
  std::int64_t const visited = VisitSampleRows(rows, [&](std::int64_t i) {
    int const* const before = matrix.ColumnsOf(i - 1);
    int const* const row = matrix.ColumnsOf(i);
    int const* const end = matrix.ColumnsOf(i + 1);
    auto const isNext = [](int columnBefore, int column) { return column == columnBefore + 1; };
    shifted +=
        static_cast<std::int64_t>(end - row >= leastShiftedColumns && end - row == row - before &&
                                  (!isSymmetricForm || end[-1] < i) && std::equal(before, row, row, isNext));
  });
  return shifted * 4 > visited * 3;
}

} // namespace orx::blac

namespace orx {

/// The property of the rows that products make use of. A matrix keeps it beside its arrays.
enum class RowPattern : std::uint8_t {
  Unknown,        ///< nobody has looked yet
  SharedColumns,  ///< HasSharedColumns
  ShiftedColumns, ///< HasShiftedColumns
  Scattered,      ///< HasScatteredColumns
  Irregular       ///< none of these, as in unstructured meshes
};

/// Looks at a sample of the rows, which takes a small part of the time of a product.
inline RowPattern FindRowPattern(blac::RowArrays const& matrix, std::int32_t rows, bool isSymmetricForm) {
  if (blac::HasScatteredColumns(matrix, rows)) return RowPattern::Scattered;
  if (blac::HasSharedColumns(matrix, rows)) return RowPattern::SharedColumns;
  return blac::HasShiftedColumns(matrix, rows, isSymmetricForm) ? RowPattern::ShiftedColumns
                                                                : RowPattern::Irregular;
}

} // namespace orx
