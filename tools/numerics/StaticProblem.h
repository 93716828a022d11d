#pragma once

#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/ORXSrvSparseFactor.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace orx::tool {

/// Columns of doubles, stored one after the other.
struct Columns {
  int rows = 0;
  int count = 0;
  std::vector<double> values;

  Columns() = default;
  Columns(int rowCount, int columnCount)
      : rows(rowCount), count(columnCount),
        values(static_cast<std::size_t>(rowCount) * static_cast<std::size_t>(columnCount), 0.0) {}
  double* Column(int j) { return values.data() + static_cast<std::int64_t>(j) * rows; }
  double const* Column(int j) const { return values.data() + static_cast<std::int64_t>(j) * rows; }
};

/// An unknown that does not move, or is moved to a value.
struct HeldUnknown {
  int unknown; ///< zero-based
  double value;
};

/// K u = f with some unknowns held, for each column of loads.
struct StaticProblem {
  ORXSrvSparseMatrix const& stiffness;  ///< square, in symmetric form, or in general form and not symmetric
  Columns const& loads;                 ///< as many rows as the stiffness has
  std::vector<HeldUnknown> const& held; ///< each once, ascending
  std::int64_t memory = 0;              ///< bytes for the factorization; 0: the library's choice
};

struct StaticSolution {
  Columns displacements;
  Columns reactions;       ///< K u - f, a row for each held unknown: what holds it
  ORXSrvFactorFacts facts; ///< of the free unknowns; of order 0 when all are held
  double condition = 1.0;  ///< in the 1-norm, estimated; not a number when it is not
  double residual = 0.0; ///< the largest ||K u - f|| / ||f|| of all columns, f with the load by held unknowns
  double backwardError = 0.0; ///< see ORXSrvSparseFactor::SolveRefined
};

/// The ToolError for a singular K: unknowns without any stiffness, and unknowns each of which would hold one
/// of the motions without stiffness. Zero-based, ascending.
[[noreturn]] void RefuseSingular(std::vector<int> const& loose, std::vector<int> const& motions);

/// Solves with one step of iterative refinement. `explain` gets the estimate before the factorization. A
/// singular matrix is a ToolError that names unknowns.
StaticSolution SolveStatic(StaticProblem const& problem,
                           std::function<void(int order, ORXSrvFactorEstimate const&)> const& explain);

} // namespace orx::tool
