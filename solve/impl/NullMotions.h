#pragma once

#include "solve/impl/Engine.h"
#include "solve/search/TestSolution.h"

#include <vector>

namespace orx {

/// A matrix and the engine that has its factor, both lent, all in this process.
class EngineMatrix : public FactoredMatrix {
public:
  EngineMatrix(Engine& engine, ShiftedMatrix const& a) : m_engine(engine), m_a(a) {}

  Processes const& SharedBy() const noexcept override { return m_alone; }
  int OwnRows() const noexcept override { return m_a.Order(); }
  int FirstRow() const noexcept override { return 0; }
  void Solve(double* x, int count) override { m_engine.Solve(x, count, count); }
  void ComputeResidual(double const* x, double const* b, double* residual, double* weights) const override {
    m_a.ComputeResidual(x, b, residual, weights);
  }
  std::vector<double> LargestInRows() const override { return m_a.LargestInRows(); }

private:
  Processes m_alone;
  Engine& m_engine;
  ShiftedMatrix const& m_a;
};

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
