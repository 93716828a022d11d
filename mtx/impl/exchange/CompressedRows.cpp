#include "mtx/impl/exchange/CompressedRows.h"

#include "mtx/impl/exchange/ResizeArray.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace orx {

void CompressedRows::Resize(std::int64_t entries) {
  ResizeArray(columns, entries);
  ResizeArray(values, entries);
}

void CompressedRows::AppendAscending(std::span<std::uint32_t const> rowColumns, double const* rowValues) {
  std::copy(rowColumns.begin(), rowColumns.end(), columns.get() + nonzeros);
  std::copy_n(rowValues, rowColumns.size(), values.get() + nonzeros);
  nonzeros += static_cast<std::int32_t>(rowColumns.size());
}

void CompressedRows::AppendSorted(std::span<std::uint32_t const> rowColumns, double const* rowValues,
                                  std::vector<std::uint64_t>& scratch) {
  // The number of the entry in the lower half keeps equal columns in their order.
  scratch.clear();
  for (std::size_t e = 0; e < rowColumns.size(); ++e)
    scratch.push_back(std::uint64_t{rowColumns[e]} << 32 | e);
  std::sort(scratch.begin(), scratch.end());
  std::int32_t const start = nonzeros;
  for (std::uint64_t const key : scratch) {
    auto const column = static_cast<std::uint32_t>(key >> 32);
    double const value = rowValues[key & UINT32_MAX];
    if (nonzeros > start && columns[nonzeros - 1] == column) {
      values[nonzeros - 1] += value;
    } else {
      columns[nonzeros] = column;
      values[nonzeros++] = value;
    }
  }
}

void CompressedRows::SortRows(std::int32_t rows) {
  auto const ascends = [this](std::int32_t begin, std::int32_t end) {
    return std::adjacent_find(columns.get() + begin, columns.get() + end, std::greater_equal<>()) ==
           columns.get() + end;
  };
  std::int32_t ordered = 0;
  while (ordered < rows && ascends(rowPointers[ordered], rowPointers[ordered + 1]))
    ++ordered;
  if (ordered == rows) return;
  CompressedRows sorted;
  sorted.Resize(nonzeros);
  sorted.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{rows} + 1);
  sorted.rowPointers[0] = 0;
  std::vector<std::uint64_t> scratch;
  for (std::int32_t i = 0; i < rows; ++i) {
    std::int32_t const begin = rowPointers[i];
    auto const length = static_cast<std::size_t>(rowPointers[i + 1] - begin);
    sorted.AppendSorted({columns.get() + begin, length}, values.get() + begin, scratch);
    sorted.rowPointers[i + 1] = sorted.nonzeros;
  }
  sorted.Resize(sorted.nonzeros);
  *this = std::move(sorted);
}

} // namespace orx
