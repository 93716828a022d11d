#pragma once

#include "blac/sparse/RowArrays.h"
#include "mtx/CompressedRows.h"

namespace orx {

/// The arrays of a matrix as the kernels take them: with signed column indices, as in Fortran.
inline blac::RowArrays KernelArrays(CompressedRowsView const& rows) {
  return {rows.values, rows.rowPointers, reinterpret_cast<int const*>(rows.columnIndices)};
}

} // namespace orx
