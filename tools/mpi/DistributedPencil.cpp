#include "tools/mpi/DistributedPencil.h"

#include "mtx/ORXSrvProgress.h"
#include "solve/search/Vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <utility>

namespace orx::mpi {
namespace {

std::vector<double> DiagonalOf(LocalRows const& rows) {
  std::vector<double> diagonal(static_cast<std::size_t>(rows.Count()), 0.0);
  rows.ForEachEntry([&](int row, int column, double value) {
    if (row == column) diagonal[static_cast<std::size_t>(row)] += value;
  });
  return diagonal;
}

double LargestOf(LocalRows const& rows) {
  double largest = 0.0;
  rows.ForEachEntry([&](int, int, double value) { largest = std::max(largest, std::abs(value)); });
  return largest;
}

/// A motion whose forces are less than this share of their terms has no stiffness.
constexpr double nullShare = 1e-14;

} // namespace

void RankProcesses::Sum(std::span<double> values) const {
  MPI_Allreduce(MPI_IN_PLACE, values.data(), static_cast<int>(values.size()), MPI_DOUBLE, MPI_SUM,
                m_ranks.Communicator());
}

double RankProcesses::Largest(double value) const { return m_ranks.Largest(value); }

std::optional<Processes::Values> RankProcesses::First(std::optional<Values> const& values) const {
  int const mine = values ? Rank() : std::numeric_limits<int>::max();
  int first = mine;
  MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, m_ranks.Communicator());
  if (first == std::numeric_limits<int>::max()) return {};
  Values shared = values.value_or(Values{});
  MPI_Bcast(shared.data(), static_cast<int>(shared.size()), MPI_DOUBLE, first, m_ranks.Communicator());
  return shared;
}

void RankProcesses::Agree(std::span<double> values) const {
  MPI_Bcast(values.data(), static_cast<int>(values.size()), MPI_DOUBLE, 0, m_ranks.Communicator());
}

DistributedPencil::DistributedPencil(Ranks const& ranks, Mat k, Mat m, std::vector<int> held, Limits limits)
    : m_ranks(ranks), m_processes(ranks), m_k(k), m_m(m), m_rowsOfK(k), m_rowsOfM(m), m_held(std::move(held)),
      m_limits(std::move(limits)) {
  Check(MatGetSize(k, &m_order, nullptr));
  Check(MatGetOwnershipRange(k, &m_firstRow, nullptr));
}

// The matrices

void DistributedPencil::MultiplyByMass(double const* x, int count, double* y) const {
  m_rowsOfM.Multiply(x, count, y);
}

std::vector<double> DistributedPencil::StiffnessDiagonal() const { return DiagonalOf(m_rowsOfK); }

std::vector<double> DistributedPencil::MassDiagonal() const { return DiagonalOf(m_rowsOfM); }

double DistributedPencil::LargestMass() const { return m_processes.Largest(LargestOf(m_rowsOfM)); }

bool DistributedPencil::IsMassDiagonal() const {
  bool isDiagonal = true;
  m_rowsOfM.ForEachEntry(
      [&](int row, int column, double value) { isDiagonal = isDiagonal && (row == column || value == 0.0); });
  return m_ranks.AreAll(isDiagonal);
}

double DistributedPencil::AbsoluteMass(double const* x) const {
  std::vector<double> const components = m_rowsOfM.Gather(x);
  double sum = 0.0;
  m_rowsOfM.ForEachEntry([&](int row, int column, double value) {
    sum += std::abs(value * x[row] * components[static_cast<std::size_t>(column)]);
  });
  return sum;
}

std::optional<Processes::Values> DistributedPencil::FindLargeMassPair(std::vector<double> const& diagonal,
                                                                      double noise) const {
  std::vector<double> const masses = m_rowsOfM.Gather(diagonal.data());
  std::optional<Processes::Values> found;
  m_rowsOfM.ForEachEntry([&](int row, int column, double value) {
    double limit = 0.0;
    double const massOfColumn = masses[static_cast<std::size_t>(column)];
    if (row != column && !found &&
        IsLargeMassPair(value, diagonal[static_cast<std::size_t>(row)], massOfColumn, noise, limit))
      found = {static_cast<double>(m_firstRow + row), static_cast<double>(m_rowsOfM.UnknownOf(column)), value,
               limit};
  });
  return found;
}

std::vector<ModeQuality> DistributedPencil::Measure(std::vector<double> const& lambdas,
                                                    double const* x) const {
  auto const rows = static_cast<std::size_t>(OwnRows());
  std::vector<ModeQuality> all;
  for (std::size_t first = 0; first < lambdas.size(); first += measuredTogether) {
    std::size_t const count = std::min(measuredTogether, lambdas.size() - first);
    // K and M have components of other ranks each; those of this one come first in both.
    std::vector<VectorGroup> const vectors = m_rowsOfK.Gather(x + first * rows, static_cast<int>(count));
    std::vector<VectorGroup> const forM = m_rowsOfM.Gather(x + first * rows, static_cast<int>(count));
    std::ranges::copy(MeasureGroup(
                          m_processes, std::span(lambdas).subspan(first, count), rows, vectors, forM,
                          [&](auto const& add) { m_rowsOfK.ForEachEntry(add); },
                          [&](auto const& add) { m_rowsOfM.ForEachEntry(add); }),
                      std::back_inserter(all));
  }
  return all;
}

// K - shift M

void DistributedPencil::MakeShifted(double shift) {
  if (m_shifted) {
    Check(MatZeroEntries(m_shifted.Get()));
    Check(MatAXPY(m_shifted.Get(), 1.0, m_k, SUBSET_NONZERO_PATTERN));
    Check(MatAXPY(m_shifted.Get(), -shift, m_m, SUBSET_NONZERO_PATTERN));
    if (m_holds) Check(MatAXPY(m_shifted.Get(), 1.0, m_holds.Get(), SUBSET_NONZERO_PATTERN));
    return;
  }
  Check(MatDuplicate(m_k, MAT_COPY_VALUES, m_shifted.Receive()));
  Check(MatAXPY(m_shifted.Get(), -shift, m_m, UNKNOWN_NONZERO_PATTERN));
  if (!m_ranks.AreAll(m_held.empty())) {
    double const scale = m_processes.Largest(LargestOf(m_rowsOfK));
    std::vector<double> springs(static_cast<std::size_t>(OwnRows()), 0.0);
    for (int const unknown : m_held)
      springs[static_cast<std::size_t>(unknown - m_firstRow)] = scale > 0.0 ? scale : 1.0;
    m_holds = DiagonalMatrix(springs);
    Check(MatAXPY(m_shifted.Get(), 1.0, m_holds.Get(), DIFFERENT_NONZERO_PATTERN));
  }
  Check(MatSetOption(m_shifted.Get(), MAT_SYMMETRIC, PETSC_TRUE));
  m_rows.emplace(m_shifted.Get());
}

MumpsFactor::Estimate DistributedPencil::Foresee() {
  if (!m_factor) {
    MakeShifted(StartShift());
    m_factor.emplace(m_ranks, *m_rows, m_order);
    ORXSrvProgress::Report("ORXSrvModes, analysis", 1, 2);
  }
  return m_factor->Foreseen();
}

std::optional<int> DistributedPencil::TryFactorize(double shift) {
  Foresee();
  MakeShifted(shift);
  return m_factor->TryFactorize(*m_rows, m_limits.memory, m_limits.folder);
}

Handle<Mat> DistributedPencil::DiagonalMatrix(std::vector<double> const& own) const {
  Handle<Mat> matrix;
  Check(MatCreateAIJ(m_ranks.Communicator(), OwnRows(), OwnRows(), m_order, m_order, 1, nullptr, 0, nullptr,
                     matrix.Receive()));
  for (PetscInt i = 0; i < OwnRows(); ++i)
    if (double const value = own[static_cast<std::size_t>(i)]; value != 0.0)
      Check(MatSetValue(matrix.Get(), m_firstRow + i, m_firstRow + i, value, INSERT_VALUES));
  Check(MatAssemblyBegin(matrix.Get(), MAT_FINAL_ASSEMBLY));
  Check(MatAssemblyEnd(matrix.Get(), MAT_FINAL_ASSEMBLY));
  return matrix;
}

/// Inverse iteration with a matrix that is a little stiffer than K - shift M, and so regular, finds such a
/// motion.
void DistributedPencil::RefuseNullMotions() {
  constexpr double stiffening = 1e-10;
  constexpr int iterations = 3;
  // Where both matrices weigh the same, nothing is null but what is null in both.
  double const mass = LargestMass();
  double const balanced = mass > 0.0 ? -m_processes.Largest(LargestOf(m_rowsOfK)) / mass : 0.0;
  MakeShifted(balanced);
  std::vector<double> x = LargestInRows();
  Handle<Mat> const springs = DiagonalMatrix(x);
  Handle<Mat> stiffer;
  Check(MatDuplicate(m_shifted.Get(), MAT_COPY_VALUES, stiffer.Receive()));
  Check(MatAXPY(stiffer.Get(), stiffening, springs.Get(), DIFFERENT_NONZERO_PATTERN));
  LocalRows const rows(stiffer.Get());
  MumpsFactor factor(m_ranks, rows, m_order);
  if (!factor.TryFactorize(rows, m_limits.memory, m_limits.folder)) return;
  std::vector<double> const units = std::exchange(x, std::vector<double>(x.size()));
  std::mt19937_64 generator(SeedOf(m_processes, 3));
  FillRandomly(x, generator);
  for (int i = 0; i < iterations; ++i) {
    std::ranges::transform(x, units, x.begin(), std::multiplies{});
    factor.Solve(x.data(), 1);
    double const length = std::sqrt(m_processes.Sum(Dot(x, x)));
    for (double& value : x)
      value /= length;
  }
  if (IsNullMotion(x)) RaiseNullMotionOf(x);
}

bool DistributedPencil::IsNullMotion(std::vector<double> const& x) const {
  std::vector<double> const none(x.size(), 0.0);
  std::vector<double> forces(x.size()), weights(x.size());
  ComputeResidual(x.data(), none.data(), forces.data(), weights.data());
  std::array<double, 2> sums{};
  for (std::size_t i = 0; i < x.size(); ++i) {
    sums[0] += forces[i] * forces[i];
    sums[1] += weights[i] * weights[i];
  }
  m_processes.Sum(sums);
  return std::sqrt(sums[0]) <= nullShare * std::sqrt(sums[1]);
}

void DistributedPencil::Solve(double* x, int count) { m_factor->Solve(x, count); }

void DistributedPencil::ComputeResidual(double const* x, double const* b, double* residual,
                                        double* weights) const {
  for (int i = 0; i < OwnRows(); ++i) {
    residual[i] = b[i];
    weights[i] = std::abs(b[i]);
  }
  std::vector<double> const components = m_rows->Gather(x);
  m_rows->ForEachEntry([&](int row, int column, double value) {
    double const product = value * components[static_cast<std::size_t>(column)];
    residual[row] -= product;
    weights[row] += std::abs(product);
  });
}

std::vector<double> DistributedPencil::LargestInRows() const {
  std::vector<double> largest(static_cast<std::size_t>(OwnRows()), 0.0);
  m_rows->ForEachEntry([&](int row, int, double value) {
    double& ofRow = largest[static_cast<std::size_t>(row)];
    ofRow = std::max(ofRow, std::abs(value));
  });
  return largest;
}

} // namespace orx::mpi
