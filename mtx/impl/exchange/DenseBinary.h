#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

// The file holds a matrix with all its zeros: four integers (rows, columns, rows, columns), then the values
// by columns; see docs/formats/.

/// Reads a matrix in general form; keeps the values whose magnitude exceeds 1e-16.
CompressedRows ReadDenseBinary(char const* path);

/// Writes the entries of the arrays, without the diagonal of the symmetric form. Takes memory for the
/// entries, not for all values.
void WriteDenseBinary(char const* path, CompressedRowsView const& matrix);

} // namespace orx
