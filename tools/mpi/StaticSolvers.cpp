#include "tools/mpi/StaticSolvers.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ToolError;

/// As in the library: a test solution that strains less than this share of its terms needs a closer look, and
/// a motion whose forces are less than this share of their terms has no stiffness.
constexpr double suspiciousShare = 1e-10;
constexpr double nullShare = 2e-15;
/// Motions that are named one by one.
constexpr int mostMotions = 24;
/// Terms of a row beside those of the largest one, below which the row counts by the solution as a whole.
constexpr double wholeRow = 1e-10;

/// A vector over an array of the caller, of the layout of a matrix.
Handle<Vec> VectorOver(Mat matrix, double const* values, int rows) {
  Handle<Vec> vector;
  Check(VecCreateMPIWithArray(PetscObjectComm(reinterpret_cast<PetscObject>(matrix)), 1, rows,
                              PETSC_DETERMINE, values, vector.Receive()));
  return vector;
}

/// The numbers that all ranks have, ascending.
std::vector<int> OfAllRanks(std::vector<int> const& own, Ranks const& ranks) {
  std::vector<int> const counts = ranks.Gathered(static_cast<int>(own.size()));
  std::vector<int> first(counts.size(), 0);
  for (std::size_t rank = 1; rank < counts.size(); ++rank)
    first[rank] = first[rank - 1] + counts[rank - 1];
  std::vector<int> all(static_cast<std::size_t>(first.back() + counts.back()));
  MPI_Allgatherv(own.data(), static_cast<int>(own.size()), MPI_INT, all.data(), counts.data(), first.data(),
                 MPI_INT, ranks.Communicator());
  return all;
}

} // namespace

// By a factorization

DirectSolver::DirectSolver(Ranks const& ranks, HeldMatrix& matrix, bool isSymmetric,
                           DistributedPencil::Limits limits)
    : m_ranks(ranks), m_processes(ranks), m_matrix(matrix), m_limits(std::move(limits)) {
  m_facts.order = matrix.Order() - matrix.Held();
  m_facts.isSymmetric = isSymmetric;
  m_factor.emplace(ranks, matrix.Rows(), matrix.Order(), isSymmetric);
  Factorize();
  m_facts.positive = m_facts.order - m_facts.negative;
  m_facts.entries = m_factor->Foreseen().entries;
  m_facts.bytes = m_factor->Foreseen().bytes;
  m_facts.isOnDisk = m_factor->Foreseen().bytes > m_limits.memory;
}

void DirectSolver::Factorize() {
  int const heldBefore = m_matrix.Held();
  std::vector<int> const loose = HoldLooseUnknowns();
  std::vector<int> motions;
  while (static_cast<int>(motions.size()) < mostMotions) {
    std::optional<int> const negative =
        m_factor->TryFactorize(m_matrix.Rows(), m_limits.memory, m_limits.folder);
    if (negative) m_facts.negative = *negative;
    if (negative && IsRegular()) break;
    if (!negative) FactorizeNearby();
    std::optional<int> const unknown = FindNullUnknown();
    if (!unknown && negative) break; // badly conditioned, and no more than that
    if (!unknown)
      throw ToolError(ExitCode::Failure, "K is singular: a pivot is zero; orxmtx check looks for the cause");
    motions.push_back(*unknown);
    Range const own{FirstRow(), OwnRows()};
    m_matrix.Hold(own.Has(*unknown) ? std::vector{*unknown} : std::vector<int>());
  }
  std::ranges::sort(motions);
  if (m_matrix.Held() > heldBefore) tool::RefuseSingular(loose, motions);
}

/// Unknowns without any stiffness, of all ranks.
std::vector<int> DirectSolver::HoldLooseUnknowns() {
  std::vector<double> const largest = LargestInRows();
  std::vector<int> own;
  for (int i = 0; i < OwnRows(); ++i)
    if (largest[static_cast<std::size_t>(i)] == 0.0) own.push_back(FirstRow() + i);
  std::vector<int> all = OfAllRanks(own, m_ranks);
  if (!all.empty()) m_matrix.Hold(own);
  return all;
}

bool DirectSolver::IsRegular() {
  TestSolution const test = SolveForRandomLoad(*this);
  return test.isFinite && std::fabs(test.form) > suspiciousShare * test.terms;
}

/// Factorizes a matrix that differs by rounding errors, for inverse iteration where the matrix itself has a
/// pivot of zero.
void DirectSolver::FactorizeNearby() {
  Handle<Mat> nearby;
  Check(MatDuplicate(m_matrix.Get(), MAT_COPY_VALUES, nearby.Receive()));
  Check(MatShift(nearby.Get(), 1e-13 * m_matrix.Scale()));
  if (!m_factor->TryFactorize(LocalRows(nearby.Get()), m_limits.memory, m_limits.folder))
    throw ToolError(ExitCode::Failure, "K is singular: orxmtx check looks for the cause");
}

/// The unknown that moves most in a motion without stiffness, the same on all ranks; none when there is no
/// such motion. Inverse iteration, in scaled coordinates.
std::optional<int> DirectSolver::FindNullUnknown() {
  auto const rows = static_cast<std::size_t>(OwnRows());
  std::vector<double> const units = UnitsOf(*this);
  std::vector<double> x(rows), forces(rows), terms(rows);
  std::mt19937_64 generator(static_cast<unsigned>(m_ranks.Rank()) + 2u);
  std::uniform_real_distribution<double> distribution(-1.0, 1.0);
  std::ranges::generate(x, [&] { return distribution(generator); });
  for (int step = 0; step < 3; ++step) {
    for (std::size_t i = 0; i < rows; ++i)
      x[i] /= units[i];
    Solve(x.data(), 1);
    double largest = 0.0;
    for (std::size_t i = 0; i < rows; ++i)
      largest = std::max(largest, std::fabs(x[i] /= units[i]));
    largest = m_ranks.Largest(largest);
    for (double& value : x)
      value /= largest;
  }
  auto const at = std::ranges::max_element(x, {}, [](double value) { return std::fabs(value); });
  double const own = at == x.end() ? -1.0 : std::fabs(*at);
  std::int64_t const candidate = own == m_ranks.Largest(own) ? FirstRow() + (at - x.begin()) : -1;

  for (std::size_t i = 0; i < rows; ++i)
    x[i] *= units[i];
  ComputeResidual(x.data(), std::vector<double>(rows, 0.0).data(), forces.data(), terms.data());
  std::array<double, 2> sums{};
  for (std::size_t i = 0; i < rows; ++i) {
    sums[0] += std::pow(forces[i] * units[i], 2);
    sums[1] += std::pow(terms[i] * units[i], 2);
  }
  m_processes.Sum(sums);
  bool const isNull = std::sqrt(sums[0]) <= nullShare * std::sqrt(sums[1]);
  std::int64_t const unknown = m_ranks.Largest(candidate);
  return isNull ? std::optional(static_cast<int>(unknown)) : std::nullopt;
}

void DirectSolver::ComputeResidual(double const* x, double const* b, double* residual,
                                   double* weights) const {
  std::vector<double> const all = m_matrix.Rows().Gather(x);
  for (int i = 0; i < OwnRows(); ++i) {
    residual[i] = b[i];
    weights[i] = std::fabs(b[i]);
  }
  m_matrix.Rows().ForEachEntry([&](int row, int column, double value) {
    double const product = value * all[static_cast<std::size_t>(column)];
    residual[row] -= product;
    weights[row] += std::fabs(product);
  });
}

double DirectSolver::MeasureError(double const* b, double const* x, std::vector<double>& residual) const {
  std::vector<double> weights(residual.size());
  ComputeResidual(x, b, residual.data(), weights.data());
  std::vector<double> const largest = LargestInRows();
  double longest = 0.0, worst = 0.0;
  for (int i = 0; i < OwnRows(); ++i)
    longest = std::max(longest, std::fabs(x[i]));
  longest = m_ranks.Largest(longest);
  for (std::size_t i = 0; i < residual.size(); ++i) {
    double const whole = largest[i] * longest;
    double const weight = weights[i] > wholeRow * whole ? weights[i] : weights[i] + whole;
    if (weight > 0.0) worst = std::max(worst, std::fabs(residual[i]) / weight);
  }
  return m_ranks.Largest(worst);
}

void DirectSolver::Solve(double const* b, double* x) {
  std::vector<double> residual(static_cast<std::size_t>(OwnRows()));
  std::copy_n(b, OwnRows(), x);
  m_factor->Solve(x, 1);
  MeasureError(b, x, residual);
  m_factor->Solve(residual.data(), 1);
  for (int i = 0; i < OwnRows(); ++i)
    x[i] += residual[static_cast<std::size_t>(i)];
  m_backwardError = std::max(m_backwardError, MeasureError(b, x, residual));
}

// By conjugate gradients

ConjugateGradients::ConjugateGradients(Ranks const& ranks, HeldMatrix const& matrix, tool::Nodes const* nodes)
    : m_matrix(matrix) {
  Mat a = matrix.Get();
  if (nodes != nullptr) {
    Check(MatSetBlockSize(a, nodes->unknownsOfNode));
    Check(MatSetNearNullSpace(a, RigidBodyMotions(a, *nodes).Get()));
  }
  Check(MatSetOption(a, MAT_SPD, PETSC_TRUE));
  Check(KSPCreate(ranks.Communicator(), m_solver.Receive()));
  KSP solver = m_solver.Get();
  Check(KSPSetOperators(solver, a, a));
  Check(KSPSetType(solver, KSPCG));
  Check(KSPSetNormType(solver, KSP_NORM_UNPRECONDITIONED));
  Check(KSPSetTolerances(solver, 1e-10, PETSC_DEFAULT, PETSC_DEFAULT, 5000));
  PC preconditioner = nullptr;
  Check(KSPGetPC(solver, &preconditioner));
  Check(PCSetType(preconditioner, PCGAMG));
  Check(KSPSetFromOptions(solver));
  Check(KSPSetUp(solver));
}

void ConjugateGradients::Solve(double const* b, double* x) {
  int const rows = m_matrix.Rows().Count();
  Handle<Vec> const load = VectorOver(m_matrix.Get(), b, rows),
                    solution = VectorOver(m_matrix.Get(), x, rows);
  Check(KSPSolve(m_solver.Get(), load.Get(), solution.Get()));
  KSPConvergedReason reason{};
  PetscInt iterations = 0;
  PetscReal residual = 0.0, size = 0.0;
  Check(KSPGetConvergedReason(m_solver.Get(), &reason));
  Check(KSPGetIterationNumber(m_solver.Get(), &iterations));
  Check(KSPGetResidualNorm(m_solver.Get(), &residual));
  Check(VecNorm(load.Get(), NORM_2, &size));
  m_iterations = std::max(m_iterations, static_cast<int>(iterations));
  if (reason > 0) return;
  char const* words = nullptr;
  Check(KSPGetConvergedReasonString(m_solver.Get(), &words));
  throw ToolError(
      ExitCode::Failure,
      Format("the conjugate gradients did not converge: %s after %d iterations, residual %.1e of the "
             "load; K may be singular or indefinite: orxmtx check looks for the cause, --solver direct "
             "names it",
             words, static_cast<int>(iterations), residual / size));
}

namespace {

/// Component of a motion, of six, at an unknown of a node: translations along x, y, z, then rotations about
/// them.
double MotionAt(int motion, int unknown, tool::Point const& at) {
  if (motion < 3) return unknown == motion ? 1.0 : 0.0;
  int const axis = motion - 3;
  if (unknown >= 3) return unknown - 3 == axis ? 1.0 : 0.0;
  // e(axis) x at
  if (unknown == (axis + 1) % 3) return -at[static_cast<std::size_t>((axis + 2) % 3)];
  return unknown == (axis + 2) % 3 ? at[static_cast<std::size_t>((axis + 1) % 3)] : 0.0;
}

Handle<Vec> MotionVector(Mat matrix, tool::Nodes const& nodes, int motion) {
  Handle<Vec> vector;
  Check(MatCreateVecs(matrix, vector.Receive(), nullptr));
  PetscScalar* values = nullptr;
  Check(VecGetArray(vector.Get(), &values));
  for (std::size_t node = 0; node < nodes.points.size(); ++node)
    for (int unknown = 0; unknown < nodes.unknownsOfNode; ++unknown)
      values[node * static_cast<std::size_t>(nodes.unknownsOfNode) + static_cast<std::size_t>(unknown)] =
          MotionAt(motion, unknown, nodes.points[node]);
  Check(VecRestoreArray(vector.Get(), &values));
  return vector;
}

/// Makes a vector orthogonal to others, which have the length 1, and to length 1. Returns false when nothing
/// is left of it: the nodes lie on a line, or there is but one.
bool Orthonormalize(Vec vector, std::vector<Vec> const& others) {
  PetscReal before = 0.0, after = 0.0;
  Check(VecNorm(vector, NORM_2, &before));
  for (int pass = 0; pass < 2; ++pass)
    for (Vec other : others) {
      PetscScalar share = 0.0;
      Check(VecDot(vector, other, &share));
      Check(VecAXPY(vector, -share, other));
    }
  Check(VecNorm(vector, NORM_2, &after));
  if (after <= 1e-10 * before) return false;
  Check(VecScale(vector, 1.0 / after));
  return true;
}

} // namespace

Handle<MatNullSpace> RigidBodyMotions(Mat matrix, tool::Nodes const& ownNodes) {
  std::vector<Handle<Vec>> motions;
  std::vector<Vec> vectors;
  for (int motion = 0; motion < 6; ++motion) {
    Handle<Vec> vector = MotionVector(matrix, ownNodes, motion);
    if (!Orthonormalize(vector.Get(), vectors)) continue;
    vectors.push_back(vector.Get());
    motions.push_back(std::move(vector));
  }
  Handle<MatNullSpace> space;
  Check(MatNullSpaceCreate(PetscObjectComm(reinterpret_cast<PetscObject>(matrix)), PETSC_FALSE,
                           static_cast<PetscInt>(vectors.size()), vectors.data(), space.Receive()));
  return space;
}

} // namespace orx::mpi
