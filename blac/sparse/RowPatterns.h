#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

namespace orx {

/// Visits some of the rows, but not the first one; returns how many. They are spread evenly but lie in no
/// step that could be that of the matrix, as the length of a grid's lines.
template<class Visit>
std::int64_t ForSomeRows(std::int32_t rows, Visit visit) {
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

/// Whether rows have more than one entry, on average over some of them, that lies far from the entries beside
/// it and from those of the row before: which uses a line of the cache that nothing has announced. Then it
/// pays to make a pass over the columns more, so that an entry misses the cache once rather than several
/// times.
inline bool HasScatteredColumns(std::int32_t const* rowPointers, std::uint32_t const* columns,
                                std::int32_t rows) {
  constexpr std::int64_t near = 16; // one line of the cache of doubles, or the next one
  std::int64_t far = 0;
  std::int64_t const visited = ForSomeRows(rows, [&](std::int64_t i) {
    std::int32_t before = rowPointers[i - 1];
    for (std::int32_t k = rowPointers[i]; k < rowPointers[i + 1]; ++k) {
      std::int64_t const column = columns[k];
      while (before < rowPointers[i] && columns[before] < column - near)
        ++before;
      bool const isNearRowBefore = before < rowPointers[i] && columns[before] <= column + near;
      bool const isNearEntryBefore = k > rowPointers[i] && column - columns[k - 1] <= near;
      far += static_cast<std::int64_t>(!isNearRowBefore && !isNearEntryBefore);
    }
  });
  return far > visited;
}

/// Whether vectors of this length, as many as a group of products takes at once, leave the cache no room, so
/// that an entry anywhere misses it for each of them.
inline bool AreBeyondCache(std::int64_t length, int vectors) {
  constexpr std::int64_t doublesInCache = std::int64_t{1} << 18;
  constexpr int vectorsInGroup = 8;
  return length * static_cast<std::int64_t>(
                      std::bit_ceil(static_cast<unsigned>(std::min(vectors, vectorsInGroup)))) >=
         doublesInCache;
}

/// Whether most rows have, first, the columns of the row before: several unknowns a node.
inline bool HasRowsAlike(std::int32_t const* rowPointers, std::uint32_t const* columns, std::int32_t rows) {
  constexpr std::int64_t leastAlike = 12; // shorter rows are not worth comparing
  std::int64_t alike = 0;
  std::int64_t const visited = ForSomeRows(rows, [&](std::int64_t i) {
    std::uint32_t const* const before = columns + rowPointers[i - 1];
    std::uint32_t const* const row = columns + rowPointers[i];
    std::uint32_t const* const end = columns + rowPointers[i + 1];
    alike += static_cast<std::int64_t>(row - before >= leastAlike && end - row >= row - before &&
                                       std::equal(before, row, row));
  });
  return alike * 2 > visited;
}

/// Whether most rows have the columns of the row before plus one: grids with one unknown a node. In symmetric
/// form, rows count where they lie before the diagonal.
inline bool HasShiftedRows(std::int32_t const* rowPointers, std::uint32_t const* columns, std::int32_t rows,
                           bool isSymmetricForm) {
  constexpr std::int64_t leastShifted = 4;
  std::int64_t shifted = 0;
  std::int64_t const visited = ForSomeRows(rows, [&](std::int64_t i) {
    std::uint32_t const* const before = columns + rowPointers[i - 1];
    std::uint32_t const* const row = columns + rowPointers[i];
    std::uint32_t const* const end = columns + rowPointers[i + 1];
    auto const isNext = [](std::uint32_t columnBefore, std::uint32_t column) {
      return column == columnBefore + 1;
    };
    shifted +=
        static_cast<std::int64_t>(end - row >= leastShifted && end - row == row - before &&
                                  (!isSymmetricForm || end[-1] < i) && std::equal(before, row, row, isNext));
  });
  return shifted * 4 > visited * 3;
}

/// What the rows of a matrix have in common, as far as products make use of it. A matrix keeps it with its
/// pattern.
enum class RowPattern : std::uint8_t {
  Unknown,   ///< nobody has looked
  Alike,     ///< HasRowsAlike
  Shifted,   ///< HasShiftedRows
  Scattered, ///< HasScatteredColumns
  Irregular  ///< none of these: other meshes
};

/// Looks at some of the rows, which takes a small part of a product's time.
inline RowPattern FindRowPattern(std::int32_t const* rowPointers, std::uint32_t const* columns,
                                 std::int32_t rows, bool isSymmetricForm) {
  if (HasScatteredColumns(rowPointers, columns, rows)) return RowPattern::Scattered;
  if (HasRowsAlike(rowPointers, columns, rows)) return RowPattern::Alike;
  return HasShiftedRows(rowPointers, columns, rows, isSymmetricForm) ? RowPattern::Shifted
                                                                     : RowPattern::Irregular;
}

} // namespace orx
