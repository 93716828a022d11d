#pragma once

#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/ORXSrvSparseFactor.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace orx::tool {

/// What stands on a diagonal.
struct DiagonalRange {
  int smallest = -1; ///< unknowns of the smallest magnitude but zero, and the largest; -1: all are zero
  int largest = -1;
  double smallestValue = 0.0;
  double largestValue = 0.0;
  int zeros = 0;
  std::vector<int> negative; ///< unknowns
};

DiagonalRange MeasureDiagonal(ORXSrvSparseMatrix const& matrix);

/// Unknowns, zero-based, whose row and column have no entry other than zero.
std::vector<int> FindEmptyUnknowns(ORXSrvSparseMatrix const& matrix);

/// What a factorization tells of a stiffness matrix.
struct StiffnessFacts {
  ORXSrvFactorFacts factor;
  std::vector<int> nullUnknowns; ///< hold the motions without stiffness; without unknowns that have none
  double condition = 0.0;        ///< 1-norm, estimated; infinite when K is singular
};

/// `memory`: bytes for the factorization; 0: the library's choice.
StiffnessFacts FactorizeStiffness(ORXSrvSparseMatrix const& stiffness, std::vector<int> const& empty,
                                  std::int64_t memory);

} // namespace orx::tool
