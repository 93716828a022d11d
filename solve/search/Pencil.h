#pragma once

#include "solve/search/Processes.h"
#include "solve/search/TestSolution.h"

#include <optional>
#include <vector>

namespace orx {

/// A shift and what the factorization of K - shift * M there says.
struct ShiftFacts {
  double shift = 0;
  int below = 0; ///< eigenvalues below the shift
  /// Rayleigh quotient of (K - shift M)^-1 times a random vector: about the eigenvalue nearest to the shift.
  double nearest = 0;
  /// Distance from an eigenvalue at which rounding errors no longer hide it, as the same vector tells.
  double leastDistance = 0;
};

/// How well a mode fulfils K x = lambda M x.
struct ModeQuality {
  double residual;    ///< ||K x - lambda M x|| / || |K| |x| + |lambda| |M| |x| ||
  double strainShare; ///< |x^T K x| / |x|^T |K| |x|: what is left of the terms when they cancel
  double defect;      ///< x^T (K x - lambda M x): what the Rayleigh quotient differs by, times x^T M x
  double defectTerms; ///< |x|^T (|K| |x| + |lambda| |M| |x|), what the defect is summed from
};

/// The pair K, M of an eigenproblem K x = lambda M x, whose rows one or several processes have, and the
/// factorization of K - shift * M at one shift at a time. Vectors are the components of this process's rows.
class Pencil : public FactoredMatrix {
public:
  /// Of all processes.
  virtual int Order() const noexcept = 0;
  /// y = M x for `count` vectors without gaps.
  virtual void MultiplyByMass(double const* x, int count, double* y) const = 0;
  virtual std::vector<double> StiffnessDiagonal() const = 0;
  virtual std::vector<double> MassDiagonal() const = 0;
  /// Measures as many eigenvalues and vectors, without gaps, against the matrices themselves.
  virtual std::vector<ModeQuality> Measure(std::vector<double> const& lambdas, double const* x) const = 0;

  /// A shift below all eigenvalues of a positive semidefinite K, small beside those that a mesh resolves:
  /// -1e-10 of the least quotient of diagonal values.
  double StartShift() const;
  /// Raises ORXSrvSolveError::indefiniteMass when x^T M x < 0 for some x that is easily found: for an
  /// unknown, for two of them, or in the Krylov space of a random vector. That space shows negative
  /// eigenvalues that are not close to zero, as those of an element with a wrong sign; it is no proof that
  /// there is none.
  void RequireMass() const;

  enum class Side { Below, Above };
  /// Factorizes K - shift * M. Where that is singular, moves the shift a little to that side; returns where
  /// it is in the end. A motion with neither stiffness nor mass raises ORXSrvSolveError::singular.
  ShiftFacts Factorize(double shift, Side side);

protected:
  /// Factorizes K - shift * M, which is FactoredMatrix's from then on. Returns the number of its negative
  /// eigenvalues, or nothing when a pivot is exactly zero.
  virtual std::optional<int> TryFactorize(double shift) = 0;
  /// Raises the error for a motion with neither stiffness nor mass if there is one.
  virtual void RefuseNullMotions() = 0;
  /// |x|^T |M| |x|
  virtual double AbsoluteMass(double const* x) const = 0;
  virtual double LargestMass() const = 0; ///< largest magnitude in M
  /// The first entry (i, j) of M off its diagonal that is larger than the diagonal allows: row and column,
  /// zero-based, value, and limit. `diagonal` has no negative values.
  virtual std::optional<Processes::Values> FindLargeMassPair(std::vector<double> const& diagonal,
                                                             double noise) const = 0;
  virtual bool IsMassDiagonal() const = 0;

  /// For a motion with neither stiffness nor mass that moves this unknown, zero-based.
  [[noreturn]] static void RaiseNullMotion(int unknown);
  /// Raises the same error for the largest component of a motion.
  [[noreturn]] void RaiseNullMotionOf(std::vector<double> const& x) const;
  /// What a solve with a random right-hand side says of a factorization.
  enum class Soundness { Sound, OnEigenvalue, Inaccurate };
  /// Completes the facts of the present factorization. A motion that both matrices take for nothing raises
  /// ORXSrvSolveError::singular.
  Soundness TestShift(ShiftFacts& facts);

private:
  bool HasNegativeRitzValue(std::vector<double> scale) const;
};

/// True when an entry of M off its diagonal is larger than the diagonal allows; `limit` is then what it
/// allows.
bool IsLargeMassPair(double value, double diagonalI, double diagonalJ, double noise, double& limit);

} // namespace orx
