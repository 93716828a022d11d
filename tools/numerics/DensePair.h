#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include "mtx/ORXSrvMatrix.h"

#include <span>
#include <vector>

namespace orx::tool {

/// The lower triangle of a matrix factored by Cholesky, as far as it goes.
class CholeskyFactor {
public:
  /// Factors `matrix` in place; what is above the diagonal is not read. The matrix has to outlive the factor.
  explicit CholeskyFactor(ORXSrvMatrix& matrix);

  /// Leading rows whose pivots are positive; the order when the matrix is positive definite in floating
  /// point.
  int Rank() const noexcept { return m_rank; }
  /// A pivot relative to the diagonal value it was made from: what the elimination of the unknowns before
  /// left of it. 0 for the pivot that failed. REQUIRES i <= Rank() and i below the order.
  double PivotShare(int i) const { return m_shares[i]; }
  /// True when no pivot is lost in the rounding errors of its diagonal value.
  bool IsDefinite() const noexcept;
  /// Overwrites b, the leading `rows` values of a column, by the solution of L L^T x = b with the leading
  /// factor of that size. REQUIRES rows <= Rank().
  void Solve(int rows, double* b) const;

private:
  ORXSrvMatrix const& m_matrix;
  int m_rank;
  std::vector<double> m_shares;
};

/// Two matrices in symmetric form of one order, K and M, as dense matrices, and what the eigensolver makes of
/// them.
class DensePair {
public:
  /// Both matrices have to outlive the pair.
  DensePair(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass);

  int Order() const noexcept { return m_order; }
  /// Factors kFactor K + mFactor M. The factor is valid until the next call.
  CholeskyFactor Factor(double kFactor, double mFactor);
  bool IsDefinite(double kFactor, double mFactor) { return Factor(kFactor, mFactor).IsDefinite(); }

  /// M x = nu (K + shift M) x. REQUIRES a definite combination.
  void Solve(double shift);
  /// nu, ascending.
  std::span<double const> Values() const;
  /// The eigenvector of Values()[k].
  std::span<double const> Vector(int k) const;

private:
  void Fill(ORXSrvMatrix& target, double kFactor, double mFactor) const;

  ORXSrvSparseMatrix const& m_k;
  ORXSrvSparseMatrix const& m_m;
  int const m_order;
  ORXSrvMatrix m_mass;
  ORXSrvMatrix m_combination; ///< also where it is factored on trial
  ORXSrvMatrix m_values;
  ORXSrvMatrix m_vectors;
};

} // namespace orx::tool
