#pragma once

#include "mtx/ORXSrvSparseMatrix.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orx::tool {

/// One finite solution of K x = lambda M x.
struct Mode {
  double eigenvalue;
  double error;          ///< of the eigenvalue, relative, as estimated; from about 0.5 on no digit is known
  double shift;          ///< the sigma that it was found with
  double residual;       ///< ||K x - lambda M x|| by the terms that it is summed from, see SolveModes
  double stiffnessShare; ///< |x^T K x| / |x|^T |K| |x|: what is left of the terms when they cancel
  bool isRigid;          ///< eigenvalue 0 to rounding: the motion strains nothing
  std::vector<double> shape; ///< |x^T M x| = 1, its largest component positive
};

/// Which modes are wanted.
struct ModeChoice {
  ModeChoice(int wanted = 10) : count(wanted) {}

  int count;                                         ///< the lowest, or those nearest to `near`
  std::optional<double> near;                        ///< Hz
  std::optional<std::pair<double, double>> interval; ///< Hz; all modes in it, whatever their count
  std::int64_t memory = 0;                           ///< bytes for the sparse solver; 0: its own choice
};

/// Eigenvalues between two shifts, counted by inertia.
struct ModeCount {
  double from, to;
  int count;
};

/// What was found about a pair of matrices, and its lowest modes.
struct ModalSolution {
  bool isSparse = false; ///< found by the sparse solver, and certified; what follows is not looked for then
  std::string method;    ///< of the sparse solver, for the report
  std::vector<ModeCount> counts; ///< of the sparse solver
  bool isStiffnessDefinite = false;
  bool isMassDefinite = false;
  std::vector<double> shifts;     ///< every sigma that a mode was found with, ascending
  int infiniteEigenvalues = 0;    ///< motions without mass, to rounding; none when M is positive definite
  int negativeMasses = 0;         ///< nu is negative: M is indefinite
  std::vector<int> emptyUnknowns; ///< neither stiffness nor mass; left out, 0 in the shapes
  std::vector<int> heldUnknowns;  ///< one of each motion that K and M take for nothing; held, 0 in the shapes
  int finiteEigenvalues = 0;
  std::vector<Mode> modes; ///< the lowest, at most as many as asked for
};

/// Orders from which on the sparse solver is the faster one.
constexpr int sparseOrder = 500;

/// A ToolError for an M without a value other than 0.
void RequireMassValue(bool hasValue);

/// Hertz: sqrt(lambda) / (2 pi). A negative eigenvalue has an imaginary frequency, given as minus its
/// magnitude; a rigid mode has 0.
double Frequency(Mode const& mode);

/// The modes of K x = lambda M x that are chosen, both of one order, in symmetric form of the lower triangle.
/// From sparseOrder on, and for other modes than the lowest, by the sparse solver, see SolveSparse; else, and
/// where M is indefinite, by the library's dense eigensolver. Always solved inside out,
///
///     M x = nu (K + sigma M) x,    lambda = 1 / nu - sigma,
///
/// at first with sigma = 0 when K is positive definite, else with a positive sigma that makes the combination
/// so. The eigensolver is accurate to rounding of its largest eigenvalue. That is the wrong end of
/// K x = lambda M x, whose eigenvalues span six to twelve decades in structures: solved as it stands, with M
/// factored, the lowest lost 2 to 4 of the digits that the data support. It also needs no mass on every
/// unknown: those without have nu = 0, an infinite lambda.
///
/// Inside out, lambda has the relative error
///
///     ( eps (lambda + sigma)^2 nu_max  +  delta |x|^T |K| |x|  +  eps (|lambda| + sigma) |x|^T |M| |x| ) /
///     |lambda|
///
/// where |x^T M x| = 1, eps is the spacing of doubles at 1 and delta the relative error of K's entries, at
/// least eps: rounding in the eigensolver, in the entries of K, and in those of sigma M. With
/// nu_max = 1 / (lambda_1 + sigma) one sigma serves some nine decades of lambda around it. Where the lambda
/// that are asked for span more, as those of a body do that is held by next to nothing, the pair is solved
/// again with a sigma among them, and each mode is taken from the solution that knows it best; modes of close
/// eigenvalues from one solution together, so that their shapes are orthogonal.
///
/// The residual is relative to || |K||x| + |lambda||M||x| ||; for a rigid mode lambda is 0, with sigma in its
/// place in the terms, which vanish where a body is free and alone.
///
/// Modes are in ascending order of lambda; when M is indefinite, in ascending order of magnitude, because
/// then eigenvalues near the infinite ones have both signs. Motions that both matrices take for nothing are
/// held, see FindNullMotions.
/// `stiffnessError` is the relative error that the entries of K are known to have; it widens what counts as
/// an eigenvalue of 0. What has no solution is a ToolError: M without a value other than 0, no definite
/// combination, an order that does not fit into memory.
ModalSolution SolveModes(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                         ModeChoice const& choice, double stiffnessError = 0.0);

} // namespace orx::tool
