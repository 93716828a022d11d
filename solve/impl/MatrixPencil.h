#pragma once

#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/impl/Engine.h"
#include "solve/search/Pencil.h"

#include <optional>
#include <vector>

namespace orx {

/// The pencil of two matrices in memory, by the engine.
class MatrixPencil : public Pencil {
public:
  /// Both matrices are lent. Raises ORXSrvSolveError::illegalInput unless they are symmetric and of one
  /// order.
  MatrixPencil(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m);

  /// Checks the matrices, which may have changed since the last analysis: raises the errors of the
  /// constructor and of RequireMass. The ordering of the unknowns is kept when the pattern is the same.
  void BeginAnalysis(EngineLimits const& limits);

  Processes const& SharedBy() const noexcept override { return m_alone; }
  int Order() const noexcept override { return m_k.NumberOfRows(); }
  int OwnRows() const noexcept override { return Order(); }
  int FirstRow() const noexcept override { return 0; }
  void MultiplyByMass(double const* x, int count, double* y) const override;
  std::vector<double> StiffnessDiagonal() const override;
  std::vector<double> MassDiagonal() const override;
  std::vector<ModeQuality> Measure(std::vector<double> const& lambdas, double const* x) const override;
  void Solve(double* x, int count) override;
  void ComputeResidual(double const* x, double const* b, double* residual, double* weights) const override;
  std::vector<double> LargestInRows() const override;

protected:
  std::optional<int> TryFactorize(double shift) override;
  void RefuseNullMotions() override;
  double AbsoluteMass(double const* x) const override;
  double LargestMass() const override;
  std::optional<Processes::Values> FindLargeMassPair(std::vector<double> const& diagonal,
                                                     double noise) const override;
  bool IsMassDiagonal() const override { return m_m.NumberOfNonzeros() == 0; }

private:
  void RequireMatrices() const;

  Processes m_alone;
  ORXSrvSparseMatrix const& m_k;
  ORXSrvSparseMatrix const& m_m;
  EngineLimits m_limits{};
  ShiftedMatrix m_shifted;
  std::optional<Engine> m_engine;
};

} // namespace orx
