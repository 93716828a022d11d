#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <string>

// Binary types that the library reads and does not write. A matrix in symmetric form gives the diagonal and
// one triangle.

namespace orx::tool {

/// Fortran unformatted: a record with the order, then one a row with the diagonal first. Symmetric.
void WriteFortran(std::string const& path, CompressedRowsView const& matrix);

/// Block binary of blocks of 1024 elements. `mirrored` are the values of the mirror images of the stored
/// entries; null for a symmetric matrix, which has a variant of its own.
void WriteBlocks(std::string const& path, CompressedRowsView const& matrix, double const* mirrored);

} // namespace orx::tool
