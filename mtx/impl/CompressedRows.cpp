#include "mtx/impl/CompressedRows.h"

#include <algorithm>

namespace orx {

namespace {
template<class T>
void ResizeArray(mem_Array<T>& array, std::int64_t count) {
  void* const resized = mem_ReallocThrowBuiltin(array.get(), mem_ArrayBytes(count, sizeof(T)));
  static_cast<void>(array.release());
  array.reset(static_cast<T*>(resized));
}
} // namespace

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

} // namespace orx
