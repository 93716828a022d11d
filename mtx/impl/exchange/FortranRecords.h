#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

/// Reads a symmetric matrix from a Fortran sequential unformatted file: a record with the order n, then a
/// record for each row with a count k, k one-based columns and k values, the diagonal first. Uses Fortran
/// unit 81 during the call. Errors name the path and the record, counted from 1. numberOfNonzeros does not
/// count the diagonal.
CompressedRows ReadFortranRecords(char const* path);

} // namespace orx
