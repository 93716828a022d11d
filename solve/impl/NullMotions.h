#pragma once

#include "solve/impl/Engine.h"

#include <vector>

namespace orx {

/// The solution of A x = b for a random b, whose components are scaled by the rows of A: every unknown has
/// its say whatever its unit.
struct TestSolution {
  std::vector<double> x;
  bool isFinite;
  double form;  ///< x^T A x
  double terms; ///< |x|^T (|A| |x| + |b|)
  double error; ///< backward error ||b - A x|| / || |A| |x| + |b| ||, rows scaled to a largest entry of 1
};

/// Solves with the factor of A that the engine has.
TestSolution SolveForRandomLoad(Engine& engine, ShiftedMatrix const& a);

/// Looks for motions with A x = 0 to rounding. Returns zero-based unknowns, not sorted, which hold as many of
/// them when they are fixed; none for a regular matrix. There may be more motions than one call finds. The
/// engine has a factor of A.
///
/// Pivots do not tell such motions: in long slender models the last ones are small anyway, and rounding
/// errors hide zeros. Where a test solution strains next to nothing, inverse iteration with a block finds the
/// motions themselves (Golub, Van Loan, Matrix Computations, 8.2), and each is measured against A.
std::vector<int> FindNullMotions(Engine& engine, ShiftedMatrix const& a);

} // namespace orx
