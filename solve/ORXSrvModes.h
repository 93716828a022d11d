#pragma once

#include "core/orx_export.h"

#include <cstdint>
#include <memory>
#include <vector>

class ORXSrvDenseMatrix;
class ORXSrvMatrix;
class ORXSrvSparseMatrix;

/// One solution of K x = lambda M x.
struct ORXSrvMode {
  double eigenvalue;  ///< lambda: the square of the circular frequency, (rad/s)^2 in consistent units
  double frequency;   ///< sqrt(|lambda|) / (2 pi), in Hz; negative for a negative lambda
  double error;       ///< bound of |exact lambda - lambda|, K and M known to their last digit only
  double residual;    ///< ||K x - lambda M x|| / || |K| |x| + |lambda| |M| |x| ||, 2-norms
  double strainShare; ///< |x^T K x| / |x|^T |K| |x|: what is left of the terms when they cancel
  bool isRigid;       ///< lambda is zero to rounding: a motion that strains nothing
};

/// An interval of eigenvalues and what is known of the number of modes in it.
struct ORXSrvModeCount {
  double from, to;
  int found;
  int counted; ///< by the inertia of K - from M and K - to M
};

/// The modes of K x = lambda M x, K and M symmetric, M positive semidefinite: massless unknowns are welcome.
/// An indefinite M is an error where it is found: by its diagonal, by two unknowns, by 30 steps of Lanczos on
/// M, or later. K may be singular (free bodies, mechanisms) or indefinite. A motion with neither stiffness
/// nor mass makes every lambda a solution and is an error that names its unknown.
///
///     ORXSrvModes modes(k, m);
///     modes.FindLowest(20);
///     for (ORXSrvMode const& mode : modes.Modes()) std::printf("%g Hz\n", mode.frequency);
///
/// Block Lanczos on (K - shift M)^-1 M with full orthogonalization in the inner product of M (Grimes, Lewis,
/// Simon, SIAM J. Matrix Anal. Appl. 15, 1994; Ericsson, Ruhe, Math. Comp. 35, 1980), as many shifts as
/// are needed; the first one for the lowest modes is chosen from the matrices and never zero. Multiple modes
/// are found up to the width of the block at once, then again until none is missing.
///
/// Results are certified unless that is switched off: the number of modes found between two shifts is what
/// the inertia of the factorizations there says (Sylvester). Where it is not, the analysis goes on, and when
/// it comes to no end raises ORXSrvSolveError::notCertified; the modes found until then can be read, and
/// Counts says which interval is uncertain.
///
/// Progress and stop go through ORXSrvProgress:
///
///     operation                      after                        done, total
///     "ORXSrvModes, analysis"        the ordering of unknowns     1, 2
///     "ORXSrvModes, factorization"   the k-th factorization       k, k + 1: how many there will be is
///     unknown "ORXSrvModes, modes"           each block of vectors        f + 1, n + 2: f of n modes are
///     known
///
/// After an error or a stop there are no modes, unless the error is notCertified.
///
/// The matrices are lent and must live as long as this object. In each analysis both are assembled and of the
/// same order, in either form; they may change between analyses. Shapes are scaled to x^T M x = 1, the
/// largest component positive.
class ORX_EXPORT ORXSrvModes {
public:
  /// Raises ORXSrvSolveError::illegalInput for matrices that are not symmetric or not of one order.
  ORXSrvModes(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m);
  ORXSrvModes(ORXSrvModes const&) = delete;
  ORXSrvModes& operator=(ORXSrvModes const&) = delete;
  ~ORXSrvModes();

  // Settings

  /// Memory for the factorization in bytes, at first ORXSrvDenseMatrix::WorkMemory. A factor that needs more
  /// is kept on disk. The Lanczos basis takes up to a third as much beside it, 64 vectors at least; what is
  /// beyond goes to a scratch block matrix (ORXSrvScratchDenseMatrix) in the current directory.
  void SetMemory(std::int64_t bytes) noexcept;
  /// The folder for factors on disk, see ORXSrvSparseFactor.
  void SetFolder(char const* path);
  void SetCertified(bool certified) noexcept;

  // Analyses; each replaces the modes found before

  /// The `count` modes of lowest eigenvalue. Fewer when the matrices have fewer with mass.
  void FindLowest(int count);
  /// The `count` modes whose eigenvalues are nearest to that of the frequency, in Hz.
  void FindNear(double frequency, int count);
  /// All modes between two frequencies in Hz, from <= f <= to. A negative frequency is that of a negative
  /// eigenvalue.
  void FindBetween(double from, double to);

  // Results

  /// Ascending by eigenvalue.
  std::vector<ORXSrvMode> const& Modes() const noexcept;
  bool IsCertified() const noexcept;
  /// The intervals that were counted, ascending.
  std::vector<ORXSrvModeCount> const& Counts() const noexcept;
  /// The shifts that were factorized, in the order of time.
  std::vector<double> const& Shifts() const noexcept;
  /// Length of a shape: the order of the matrices in the analysis; 0 without modes.
  int NumberOfUnknowns() const noexcept;
  /// Shape of mode `index`: as many values as unknowns, lent until the next analysis.
  double const* Shape(int index) const;
  /// Copies the shapes, a column for each mode. The matrix has the right shape, else illegalInput.
  void GetShapes(ORXSrvMatrix& shapes) const;
  void GetShapes(ORXSrvDenseMatrix& shapes) const;

private:
  struct State;
  std::unique_ptr<State> m_state;
};
