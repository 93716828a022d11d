#pragma once

#include <algorithm>
#include <cstdint>

/// Visits some of the rows, evenly spread, but not the first one; returns how many.
template<class Visit>
std::int64_t ForSomeRows(std::int32_t rows, Visit visit) {
  constexpr std::int32_t samples = 1000;
  std::int32_t const step = std::max(1, rows / samples);
  std::int64_t visited = 0;
  for (std::int64_t i = step; i < rows; i += step, ++visited)
    visit(i);
  return visited;
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
