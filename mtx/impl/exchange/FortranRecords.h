#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

/// Reads a Fortran sequential unformatted file of a symmetric matrix: a record with the order n, then one
/// record per row with a count k, k one-based columns and k values, the diagonal first. Unit 81 is connected
/// while it reads. Errors name the path and the record, counted from 1.
/// The diagonal does not count in the number of entries that the matrix reports.
CompressedRows ReadFortranRecords(char const* path);

} // namespace orx
