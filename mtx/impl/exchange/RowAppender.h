#pragma once

#include "mtx/CompressedRows.h"

#include <cstdint>
#include <span>
#include <vector>

namespace orx {

/// Allocates the row pointers for `rows` rows, and sets the dimensions.
void AllocateRowPointers(CompressedRows& matrix, std::int32_t rows, std::int32_t columns);
/// Turns counts[i + 1], the number of entries of row i, into the row pointers.
void SumCounts(std::int32_t* counts, std::int32_t rows);
/// Changes the length of the column indices and of the values; the leading ones stay.
void ResizeEntries(CompressedRows& matrix, std::int64_t entries);

// The Append functions write after the last entry, into memory that ResizeEntries has allocated before.

/// Appends a row whose columns ascend, each once.
void AppendAscending(CompressedRows& matrix, std::span<std::uint32_t const> columns, double const* values);
/// Appends a row with columns in any order; values of equal columns are added up in their order. `workspace`
/// is overwritten.
void AppendSorted(CompressedRows& matrix, std::span<std::uint32_t const> columns, double const* values,
                  std::vector<std::uint64_t>& workspace);

/// Sorts the columns of each row; values of equal columns are added up in their order. On failure nothing is
/// changed.
void SortRows(CompressedRows& matrix);

} // namespace orx
