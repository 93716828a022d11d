#pragma once

#include "tools/formats/MatrixFile.h"

#include <string>
#include <vector>

// Binary types that the library reads and does not write, out of a matrix by a diagonal and one triangle.

namespace orx::tool {

enum class Triangle { Lower, Upper };

/// A square matrix by the rows of one triangle: position k stands for its mirror image too. The triangle has
/// every position of which this or the mirror image is stored.
struct TriangleRows {
  int order = 0;
  std::vector<double> diagonal;
  std::vector<std::int32_t> starts; ///< order + 1
  std::vector<std::int32_t> columns;
  std::vector<double> values;   ///< of the positions
  std::vector<double> mirrored; ///< of their mirror images
};

/// REQUIRES a square matrix.
TriangleRows RowsOfTriangle(MatrixEntries const& matrix, Triangle triangle);

/// Fortran unformatted: a record with the order, then one a row with the diagonal first. Symmetric.
void WriteFortran(std::string const& path, TriangleRows const& matrix);

/// Block binary of blocks of 1024 elements, in the symmetric variant or the one that holds both values.
void WriteBlocks(std::string const& path, TriangleRows const& matrix, bool isSymmetric);

} // namespace orx::tool
