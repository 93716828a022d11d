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
  double error; ///< infinite, or backward error ||b - A x|| / || |A| |x| + |b| ||, rows scaled to a largest
                ///< entry of 1
};

/// Solves with the factor of A that the engine has.
TestSolution SolveForRandomLoad(Engine& engine, ShiftedMatrix const& a);

/// Motions without stiffness that one test finds.
constexpr int mostNullMotions = 32;

/// What a test of a factor has found.
struct FactorTest {
  double error; ///< backward error of a solution, see TestSolution
  /// Zero-based, not sorted: where they are held, as many motions with A x = 0 to rounding are. None for a
  /// regular matrix; if they are mostNullMotions there may be more.
  std::vector<int> nullUnknowns;
};

/// Tests the factor of A that the engine has.
///
/// Pivots do not tell motions without stiffness: in long slender models the last ones are small anyway, and
/// rounding errors hide zeros. Where a test solution strains next to nothing, inverse iteration with a block
/// finds the motions themselves (Golub, Van Loan, Matrix Computations, 8.2), and each is measured against A.
FactorTest TestFactor(Engine& engine, ShiftedMatrix const& a);

} // namespace orx
