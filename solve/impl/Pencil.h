#pragma once

#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/impl/Engine.h"

#include <cstdint>
#include <optional>
#include <string>
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

/// The pair K, M of an eigenproblem K x = lambda M x, and the factorization of K - shift * M at one shift at
/// a time.
class Pencil {
public:
  /// Both matrices are lent. Raises ORXSrvSolveError::illegalInput unless they are symmetric and of one
  /// order.
  Pencil(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m);

  /// Checks the matrices, which may have changed since the last analysis: raises the errors of the
  /// constructor, and ORXSrvSolveError::indefiniteMass when x^T M x < 0 for some x that is easily found: for
  /// an unknown, for two of them, or in the Krylov space of a random vector. That space shows negative
  /// eigenvalues that are not close to zero, as those of an element with a wrong sign; it is no proof that
  /// there is none. The ordering of the unknowns is kept when the pattern is the same.
  void BeginAnalysis();

  int Order() const noexcept { return m_k.NumberOfRows(); }
  /// y = M x for `count` vectors without gaps.
  void MultiplyByMass(double const* x, int count, double* y) const;
  std::vector<double> MassDiagonal() const;
  /// Measures as many eigenvalues and vectors, without gaps, against the matrices themselves.
  std::vector<ModeQuality> Measure(std::vector<double> const& lambdas, double const* x) const;
  /// A shift below all eigenvalues of a positive semidefinite K, small beside those that a mesh resolves:
  /// -1e-10 of the least quotient of diagonal values.
  double StartShift() const;

  enum class Side { Below, Above };
  /// Factorizes K - shift * M. Where that is singular, moves the shift a little to that side; returns where
  /// it is in the end. A motion with neither stiffness nor mass raises ORXSrvSolveError::singular.
  ShiftFacts Factorize(double shift, Side side, EngineLimits const& limits);
  /// Replaces `count` vectors x by (K - shift M)^-1 x.
  void Solve(double* x, int count);

private:
  void RequireMatrices() const;
  void RequireMass() const;
  /// What a solve with a random right-hand side says of a factorization.
  enum class Soundness { Sound, OnEigenvalue, Inaccurate };
  Soundness TestShift(ShiftFacts& facts);
  static constexpr std::size_t groupWidth = 8;
  void MeasureGroup(double const* lambdas, double const* x, std::size_t count,
                    std::vector<ModeQuality>& all) const;
  /// Raises the error for a matrix that has no factorization at any shift.
  [[noreturn]] void RaiseSingular(double shift, EngineLimits const& limits) const;

  ORXSrvSparseMatrix const& m_k;
  ORXSrvSparseMatrix const& m_m;
  ShiftedMatrix m_shifted;
  std::optional<Engine> m_engine;
};

} // namespace orx
