#include "mtx/impl/exchange/RowAppender.h"

#include "mtx/impl/exchange/ResizeArray.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace orx {

void AllocateRowPointers(CompressedRows& matrix, std::int32_t rows, std::int32_t columns) {
  matrix.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{rows} + 1);
  matrix.rows = rows;
  matrix.columns = columns;
}

void SumCounts(std::int32_t* counts, std::int32_t rows) {
  counts[0] = 0;
  for (std::int32_t i = 0; i < rows; ++i)
    counts[i + 1] += counts[i];
}

void ResizeEntries(CompressedRows& matrix, std::int64_t entries) {
  ResizeArray(matrix.columnIndices, entries);
  ResizeArray(matrix.values, entries);
}

void AppendAscending(CompressedRows& matrix, std::span<std::uint32_t const> columns, double const* values) {
  std::copy(columns.begin(), columns.end(), matrix.columnIndices.get() + matrix.entries);
  std::copy_n(values, columns.size(), matrix.values.get() + matrix.entries);
  matrix.entries += static_cast<std::int32_t>(columns.size());
}

void AppendSorted(CompressedRows& matrix, std::span<std::uint32_t const> columns, double const* values,
                  std::vector<std::uint64_t>& workspace) {
  // The position of the entry in the lower half keeps equal columns in their order.
  workspace.clear();
  for (std::size_t e = 0; e < columns.size(); ++e)
    workspace.push_back(std::uint64_t{columns[e]} << 32 | e);
  std::sort(workspace.begin(), workspace.end());
  std::int32_t const start = matrix.entries;
  std::int32_t end = start;
  for (std::uint64_t const key : workspace) {
    auto const column = static_cast<std::uint32_t>(key >> 32);
    double const value = values[key & UINT32_MAX];
    if (end > start && matrix.columnIndices[end - 1] == column) {
      matrix.values[end - 1] += value;
    } else {
      matrix.columnIndices[end] = column;
      matrix.values[end++] = value;
    }
  }
  matrix.entries = end;
}

void SortRows(CompressedRows& matrix) {
  auto const ascends = [&](std::int32_t begin, std::int32_t end) {
    std::uint32_t const* const columns = matrix.columnIndices.get();
    return std::adjacent_find(columns + begin, columns + end, std::greater_equal<>()) == columns + end;
  };
  std::int32_t ordered = 0;
  while (ordered < matrix.rows && ascends(matrix.rowPointers[ordered], matrix.rowPointers[ordered + 1]))
    ++ordered;
  if (ordered == matrix.rows) return;
  CompressedRows sorted;
  AllocateRowPointers(sorted, matrix.rows, matrix.columns);
  ResizeEntries(sorted, matrix.entries);
  sorted.rowPointers[0] = 0;
  std::vector<std::uint64_t> workspace;
  for (std::int32_t i = 0; i < matrix.rows; ++i) {
    std::int32_t const begin = matrix.rowPointers[i];
    auto const length = static_cast<std::size_t>(matrix.rowPointers[i + 1] - begin);
    AppendSorted(sorted, {matrix.columnIndices.get() + begin, length}, matrix.values.get() + begin,
                 workspace);
    sorted.rowPointers[i + 1] = sorted.entries;
  }
  ResizeEntries(sorted, sorted.entries);
  sorted.diagonal = std::move(matrix.diagonal);
  matrix = std::move(sorted);
}

} // namespace orx
