#pragma once

#include "core/orx_export.h"

#include <cstdint>
#include <memory>
#include <vector>

class ORXSrvDenseMatrix;
class ORXSrvMatrix;
class ORXSrvSparseMatrix;

/// What a factorization takes, as foreseen from the pattern alone. Pivots that are delayed for stability may
/// add to it.
struct ORXSrvFactorEstimate {
  std::int64_t entries = 0;     ///< of the factor: one triangle of a symmetric matrix, both of another
  std::int64_t bytes = 0;       ///< of memory, with the factor in memory
  std::int64_t bytesOnDisk = 0; ///< of memory, with the factor on disk
  double operations = 0;        ///< floating-point additions and multiplications
};

/// What a factorization has found.
struct ORXSrvFactorFacts {
  int order = 0;
  bool isSymmetric = false;
  std::int64_t entries = 0; ///< of the factor
  std::int64_t bytes = 0;   ///< of memory that was used
  bool isOnDisk = false;    ///< the factor is in files
  int negative = 0;         ///< eigenvalues below zero; symmetric matrices only
  int zero = 0;             ///< independent motions x with A x = 0 to rounding
  int positive = 0;         ///< eigenvalues above zero; symmetric matrices only
  int delayedPivots = 0;    ///< eliminated later than planned, for stability
  /// ||b - A x|| / || |A| |x| + |b| || of a solution for random loads, 2-norms, rows scaled to a largest
  /// entry of 1: about 1e-16, or as many times that as elements have grown in the elimination.
  double backwardError = 0;
  std::vector<int> nullUnknowns; ///< zero-based, ascending: as many unknowns, which hold these motions
};

/// A sparse factorization: A = L D L^T with pivoting of a symmetric matrix, which need not be definite, or
/// A = L U of another one. A is K, or K - shift * M.
///
///     ORXSrvSparseFactor factor;
///     factor.Factorize(k);
///     factor.Solve(x, 1);                    // x holds the loads before and the displacements after
///
/// The engine is MUMPS (Amestoy, Duff, L'Excellent, Koster, SIAM J. Matrix Anal. Appl. 23, 2001),
/// multifrontal, with nested dissection by SCOTCH; equal rows, as those of the unknowns of one node, are
/// ordered together. For a given matrix the results are the same bits in every run on one machine.
///
/// Matrices are square, assembled, in general or in symmetric form. A matrix in general form is symmetric
/// when ORXSrvSparseMatrix::IsSymmetric says so. They are read during the call and not kept. Vectors are
/// stored one after the other without gaps. Indices are zero-based.
///
/// Progress and stop go through ORXSrvProgress: one block for the analysis, one for the factorization, one
/// for each group of vectors of a solve. After an error or a stop the object has no factor, but a solve
/// leaves it as it was; what an unsuccessful solve leaves in its vectors is of no use.
class ORX_EXPORT ORXSrvSparseFactor {
public:
  ORXSrvSparseFactor();
  ORXSrvSparseFactor(ORXSrvSparseFactor const&) = delete;
  ORXSrvSparseFactor& operator=(ORXSrvSparseFactor const&) = delete;
  /// Frees the factor and deletes its files.
  ~ORXSrvSparseFactor();

  // Settings for the next factorization

  /// Memory for the factorization in bytes, at first half of what the process may have
  /// (ORXSrvDenseMatrix::WorkMemory). A factor that needs more is kept on disk.
  void SetMemory(std::int64_t bytes) noexcept;
  /// The folder for factors on disk; copied. At first $TMPDIR, else /tmp. The files lie in a folder of their
  /// own there, which is deleted with the factor.
  void SetFolder(char const* path);

  // Factorization

  /// Orders the unknowns of K, or of K - shift * M, for the factorizations of this pattern to come.
  ORXSrvFactorEstimate const& Analyse(ORXSrvSparseMatrix const& k);
  ORXSrvFactorEstimate const& Analyse(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m);
  /// Factorizes K. Analyses it before, unless the last analysis was of the same pattern. A singular matrix is
  /// factorized too: see ORXSrvFactorFacts::nullUnknowns and Solve.
  void Factorize(ORXSrvSparseMatrix const& k);
  /// Factorizes K - shift * M. The two may have different patterns and forms; unknowns are the same.
  void Factorize(ORXSrvSparseMatrix const& k, double shift, ORXSrvSparseMatrix const& m);

  bool HasFactor() const noexcept;
  /// Of the last analysis.
  ORXSrvFactorEstimate const& Estimate() const noexcept;
  /// Of the factor.
  ORXSrvFactorFacts const& Facts() const noexcept;

  // Solution of A x = b; b is replaced by x

  /// For `count` vectors. Raises ORXSrvSolveError::singular for a singular matrix, unless
  /// its unknowns are held.
  void Solve(double* x, int count);
  void Solve(ORXSrvMatrix& x);
  /// Column block by column block, at most 128 columns at a time in memory.
  void Solve(ORXSrvDenseMatrix& x);
  /// Solves, then takes one step of iterative refinement. Returns the largest componentwise backward error
  /// |b - A x| / (|A| |x| + |b|) of all vectors: x solves exactly a system whose data differ from these by
  /// that share (Oettli, Prager 1964). Rows whose terms are next to nothing are measured by the solution as a
  /// whole (Arioli, Demmel, Duff 1989). REQUIRES: b and x do not overlap, else illegalInput.
  double SolveRefined(double const* b, double* x, int count);
  /// The condition number |A| |A^-1| in the 1-norm, estimated by at most 11 solves: a lower bound, mostly the
  /// number itself and seldom less than a third of it (Hager 1984; Higham, ACM Trans. Math. Softw. 14, 1988).
  /// Relative errors of the data count in a solution up to so many times. Infinite for a singular
  /// matrix.
  double EstimateCondition();
  /// With `held`, solves with a singular matrix as if ORXSrvFactorFacts::nullUnknowns were held at zero. The
  /// right-hand side is not checked for consistency; SolveRefined tells the residual.
  void HoldNullUnknowns(bool held) noexcept;

private:
  struct State;
  std::unique_ptr<State> m_state;
};
