#pragma once

#include "solve/search/Processes.h"

#include <vector>

namespace orx {

/// A symmetric matrix A and its factorization, whose rows one or several processes have. Vectors are the
/// components of this process's rows.
class FactoredMatrix {
public:
  FactoredMatrix() = default;
  FactoredMatrix(FactoredMatrix const&) = delete;
  FactoredMatrix& operator=(FactoredMatrix const&) = delete;
  virtual ~FactoredMatrix() = default;

  virtual Processes const& SharedBy() const noexcept = 0;
  /// Number of this process's rows, and of those of the processes before.
  virtual int OwnRows() const noexcept = 0;
  virtual int FirstRow() const noexcept = 0;
  /// Replaces `count` vectors x without gaps by A^-1 x.
  virtual void Solve(double* x, int count) = 0;
  /// residual = b - A x, and weights = |b| + |A| |x|.
  virtual void ComputeResidual(double const* x, double const* b, double* residual, double* weights) const = 0;
  /// Largest magnitude in each row.
  virtual std::vector<double> LargestInRows() const = 0;
};

/// Scales of unknowns and rows that make the largest entry of each row about 1.
std::vector<double> UnitsOf(FactoredMatrix const& a);

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

TestSolution SolveForRandomLoad(FactoredMatrix& a);

} // namespace orx
