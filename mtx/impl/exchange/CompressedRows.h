#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <span>
#include <vector>

namespace orx {

/// Compressed rows in general form: row i is [rowPointers[i], rowPointers[i + 1]), columns ascending, each
/// once. The Append functions add a row's entries behind the others, into room that Resize has made.
struct CompressedRows {
  mem_Array<std::int32_t> rowPointers; ///< rows + 1
  mem_Array<std::uint32_t> columns;    ///< null when there are no entries
  mem_Array<double> values;
  std::int32_t nonzeros = 0;

  /// Sets the room of columns and values, keeping what they hold.
  void Resize(std::int64_t entries);
  /// For columns that ascend, each once.
  void AppendAscending(std::span<std::uint32_t const> rowColumns, double const* rowValues);
  /// For columns in any order; values of equal ones are added up in their order. `scratch` is overwritten.
  void AppendSorted(std::span<std::uint32_t const> rowColumns, double const* rowValues,
                    std::vector<std::uint64_t>& scratch);
  /// Makes a general form of rows whose columns come in any order; values of equal ones are added up in their
  /// order. On failure nothing is changed.
  void SortRows(std::int32_t rows);
};

} // namespace orx
