#pragma once

#include "solve/search/Pencil.h"
#include "tools/mpi/LocalRows.h"
#include "tools/mpi/MumpsFactor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orx::mpi {

/// The ranks as the search for modes sees them.
class RankProcesses : public Processes {
public:
  explicit RankProcesses(Ranks const& ranks) : m_ranks(ranks) {}

  using Processes::Sum;
  int Rank() const noexcept override { return m_ranks.Rank(); }
  void Sum(std::span<double> values) const override;
  double Largest(double value) const override;
  std::optional<Values> First(std::optional<Values> const& values) const override;
  void Agree(std::span<double> values) const override;

private:
  Ranks const& m_ranks;
};

/// The pencil of two symmetric matrices of type MPIAIJ, of one order and with the same rows on each rank, by
/// MUMPS.
class DistributedPencil : public Pencil {
public:
  struct Limits {
    std::int64_t memory; ///< bytes of a rank for the factor
    std::string folder;  ///< for factors on disk
  };

  /// The matrices are lent. Unknowns that are `held`, zero-based and of this rank, have no entry in either
  /// matrix; they stay 0.
  DistributedPencil(Ranks const& ranks, Mat k, Mat m, std::vector<int> held, Limits limits);

  /// What a factorization takes.
  MumpsFactor::Estimate Foresee();

  Processes const& SharedBy() const noexcept override { return m_processes; }
  int Order() const noexcept override { return m_order; }
  int OwnRows() const noexcept override { return m_rowsOfK.Count(); }
  int FirstRow() const noexcept override { return m_firstRow; }
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
  bool IsMassDiagonal() const override;

private:
  void MakeShifted(double shift);
  Handle<Mat> DiagonalMatrix(std::vector<double> const& own) const;
  /// True when the forces of the present K - shift M are zero to rounding.
  bool IsNullMotion(std::vector<double> const& x) const;

  Ranks const& m_ranks;
  RankProcesses m_processes;
  Mat m_k, m_m;
  LocalRows m_rowsOfK, m_rowsOfM;
  int m_order = 0, m_firstRow = 0;
  std::vector<int> m_held;
  Limits m_limits;
  Handle<Mat> m_holds;             ///< diagonal entries for the held unknowns, if any
  Handle<Mat> m_shifted;           ///< K - shift M
  std::optional<LocalRows> m_rows; ///< of m_shifted
  std::optional<MumpsFactor> m_factor;
};

} // namespace orx::mpi
