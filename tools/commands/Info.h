#pragma once

#include "tools/formats/MatrixSource.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orx::tool {

/// Figures of a matrix as it is stored: a file of one triangle is measured as that triangle.
struct Measures {
  int lowerBandwidth = 0; ///< largest row - column of a stored entry
  int upperBandwidth = 0; ///< largest column - row
  double norm1 = 0.0;     ///< largest sum of magnitudes of a column
  double normInfinity = 0.0;
  double normFrobenius = 0.0;
  ORXSrvSparseMatrixEntry largest{0, 0, 0.0}; ///< the first entry of the largest magnitude
  std::vector<int> zeroRows;                  ///< rows without a value other than 0
  std::vector<int> zeroColumns;
  std::int64_t storedZeros = 0;
  std::int64_t notFinite = 0; ///< left out of the norms and of the largest magnitude
  ORXSrvSparseMatrixEntry firstNotFinite{0, 0, 0.0};
};

Measures Measure(ORXSrvSparseMatrix const& matrix);

/// The report of a matrix, of whose facts the name is not looked at.
std::string InfoText(SourceFacts const& matrix, Measures const& measures);

/// What `orxmtx info` prints.
std::string InfoText(std::string const& path);

} // namespace orx::tool
