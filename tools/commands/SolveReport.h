#pragma once

#include "tools/formats/MatrixSource.h"
#include "tools/numerics/StaticProblem.h"

#include <cstdint>
#include <span>
#include <string>

// The texts of `solve`: lines starting with '#' that say what was found and done, and tables of results.

namespace orx::tool {

struct LoadCase {
  std::string loadsPath;
  int columns;
  std::string heldPath; ///< empty: nothing is held
  std::int64_t held;    ///< number of unknowns
};

std::string ProblemText(SourceFacts const& k, LoadCase const& loads);
/// The factorization and the errors of the solution. Displacements and reactions are not looked at.
std::string FactsText(StaticSolution const& solution);
/// The part of a line that says how well the equations hold.
std::string ResidualText(double residual, double backwardError);

/// The first line of a table of `count` columns.
std::string HeadText(char const* what, int count);
/// A line of that table; `unknown` is zero-based.
std::string RowText(int unknown, std::span<double const> values);

} // namespace orx::tool
