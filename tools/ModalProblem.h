#pragma once

#include "tools/Symmetry.h"

#include <vector>

namespace orx::tool {

/// One finite solution of K x = lambda M x.
struct Mode {
  double eigenvalue;
  double residual;           ///< ||K x - lambda M x|| / || |K||x| + |lambda||M||x| ||; lambda = 0 if rigid
  double stiffnessShare;     ///< |x^T K x| / |x|^T |K| |x|: what is left of the terms when they cancel
  bool isRigid;              ///< eigenvalue 0 to rounding: the motion strains nothing
  std::vector<double> shape; ///< |x^T M x| = 1, its largest component positive
};

/// What was found about a pair of matrices, and its lowest modes.
struct ModalSolution {
  bool isStiffnessDefinite = false;
  bool isMassDefinite = false;
  double shift = 0.0;             ///< sigma below; 0 when K is positive definite
  int infiniteEigenvalues = 0;    ///< nu is 0 to rounding
  int negativeMasses = 0;         ///< nu is negative: M is indefinite
  std::vector<int> emptyUnknowns; ///< neither stiffness nor mass; left out, 0 in the shapes
  int finiteEigenvalues = 0;
  std::vector<Mode> modes; ///< the lowest, at most as many as asked for
};

/// Hertz: sqrt(lambda) / (2 pi). A negative eigenvalue has an imaginary frequency, given as minus its
/// magnitude; a rigid mode has 0.
double Frequency(Mode const& mode);

/// The lowest `count` modes of K x = lambda M x, both of one order and given in sparse form, by the library's
/// dense eigensolver. Always solved inside out,
///
///     M x = nu (K + sigma M) x,    lambda = 1 / nu - sigma,
///
/// with sigma = 0 when K is positive definite, else a positive sigma that makes the combination so. The
/// eigensolver is accurate to rounding of its largest eigenvalue. That is the wrong end of K x = lambda M x,
/// whose eigenvalues span six to twelve decades in structures: solved as it stands, with M factored, the
/// lowest lost 2 to 4 of the digits that the data support. It also needs no mass on every unknown: those
/// without have nu = 0, an infinite lambda.
///
/// Modes are in ascending order of lambda; when M is indefinite, in ascending order of magnitude, because
/// then eigenvalues near the infinite ones have both signs.
/// `stiffnessError` is the relative error that the entries of K are known to have; it widens what counts as
/// an eigenvalue of 0. What has no solution is a ToolError: M without a value other than 0, no definite
/// combination, an order that does not fit into memory.
ModalSolution SolveModes(SymmetricMatrix const& stiffness, SymmetricMatrix const& mass, int count,
                         double stiffnessError = 0.0);

} // namespace orx::tool
