#pragma once

#include "tools/formats/MatrixFile.h"
#include "tools/numerics/Symmetry.h"

#include <string>

namespace orx::tool {

/// Reads a Matrix Market file: coordinate or array; real, integer or pattern (values 1); general, symmetric
/// or skew-symmetric, whose other triangle is added. Zeros of an array are not stored. What breaks the format
/// is a ToolError with path and line.
ORXSrvSparseMatrix ReadMatrixMarket(std::string const& path);

enum class MarketLayout { Coordinate, Array };

/// Writes a file of real values, each in as few digits as give the same double back. `mirror` other than None
/// says that the other triangle mirrors the lower one, of which alone is written.
void WriteMatrixMarket(std::string const& path, ORXSrvSparseMatrix const& matrix, MarketLayout layout,
                       Mirror mirror);

} // namespace orx::tool
