#pragma once

#include "core/mem_Allocator.h"
#include "mtx/impl/exchange/CompressedRows.h"

#include <cstdint>

namespace orx {

/// What a reader has put together from a file. It becomes the content of a matrix as a whole, and only when
/// all of it was found to be right.
struct SparseContent {
  std::int32_t rows = 0;
  std::int32_t columns = 0;
  CompressedRows entries;     ///< symmetric form: the off-diagonal ones, each pair once, in the file's order
  mem_Array<double> diagonal; ///< symmetric form only, `rows` values
  std::int32_t nonzeros = 0;  ///< what the matrix reports; formats differ in whether the diagonal counts
};

/// The arrays of a matrix, lent to a writer.
struct SparseView {
  std::int32_t rows;
  std::int32_t columns;
  std::int32_t storedRows; ///< rows of the arrays, at most `rows`: the others have no entries
  std::int32_t const* starts;
  std::uint32_t const* columnIndices;
  double const* values;
  double const* diagonal; ///< symmetric form only, storedRows values

  std::int32_t Entries() const noexcept { return storedRows > 0 ? starts[storedRows] : 0; }
};

} // namespace orx
