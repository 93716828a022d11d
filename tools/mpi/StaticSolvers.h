#pragma once

#include "tools/mpi/DistributedPencil.h"
#include "tools/mpi/HeldMatrix.h"
#include "tools/mpi/MumpsFactor.h"

#include "tools/numerics/RigidMotions.h"
#include "tools/numerics/StaticProblem.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orx::mpi {

/// Solves A x = b with one matrix. Vectors are the rows of this rank. Collective.
class StaticSolver {
public:
  virtual ~StaticSolver() = default;
  virtual void Solve(double const* b, double* x) = 0;
};

/// By a factorization with MUMPS, and one step of refinement.
class DirectSolver : public StaticSolver, private FactoredMatrix {
public:
  /// The matrix, which is lent, is factorized. One that is singular is a ToolError that names unknowns.
  DirectSolver(Ranks const& ranks, HeldMatrix& matrix, bool isSymmetric, DistributedPencil::Limits limits);

  void Solve(double const* b, double* x) override;
  /// Of the unknowns that are not held.
  ORXSrvFactorFacts const& Facts() const noexcept { return m_facts; }
  MumpsFactor::Estimate const& Foreseen() const noexcept { return m_factor->Foreseen(); }
  /// The largest componentwise backward error of all solutions, see ORXSrvSparseFactor::SolveRefined.
  double BackwardError() const noexcept { return m_backwardError; }

private:
  Processes const& SharedBy() const noexcept override { return m_processes; }
  int OwnRows() const noexcept override { return m_matrix.Rows().Count(); }
  int FirstRow() const noexcept override { return m_matrix.FirstRow(); }
  void Solve(double* x, int count) override { m_factor->Solve(x, count); }
  void ComputeResidual(double const* x, double const* b, double* residual, double* weights) const override;
  std::vector<double> LargestInRows() const override { return m_matrix.LargestInRows(); }

  void Factorize();
  std::vector<int> HoldLooseUnknowns();
  bool IsRegular();
  std::optional<int> FindNullUnknown();
  void FactorizeNearby();
  double MeasureError(double const* b, double const* x, std::vector<double>& residual) const;

  Ranks const& m_ranks;
  RankProcesses m_processes;
  HeldMatrix& m_matrix;
  DistributedPencil::Limits m_limits;
  std::optional<MumpsFactor> m_factor;
  ORXSrvFactorFacts m_facts;
  double m_backwardError = 0.0;
};

/// By conjugate gradients, preconditioned by algebraic multigrid (PETSc's GAMG), to a residual of 1e-10 of
/// the load.
class ConjugateGradients : public StaticSolver {
public:
  /// `nodes` are those of the rows of this rank, whole ones; none where they are not known: then multigrid
  /// does not know what rigid bodies do, and converges slowly. REQUIRES a symmetric matrix.
  ConjugateGradients(Ranks const& ranks, HeldMatrix const& matrix, tool::Nodes const* nodes);

  /// A run that does not converge, or meets a negative eigenvalue, is a ToolError.
  void Solve(double const* b, double* x) override;
  /// The most iterations that a load has taken.
  int Iterations() const noexcept { return m_iterations; }

private:
  HeldMatrix const& m_matrix;
  Handle<KSP> m_solver;
  int m_iterations = 0;
};

/// The motions of a rigid body of nodes with 3 or 6 unknowns, orthonormal over all ranks, as PETSc wants them
/// beside the matrix. Collective.
Handle<MatNullSpace> RigidBodyMotions(Mat matrix, tool::Nodes const& ownNodes);

} // namespace orx::mpi
