#include "solve/impl/MatrixPencil.h"

#include "mtx/ORXSrvProgress.h"
#include "solve/impl/NullMotions.h"
#include "solve/search/ModeMeasures.h"
#include "solve/search/SolveErrors.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace orx {

namespace {

/// As ORXSrvSparseMatrix::Multiply, but also for a symmetric form that has nothing but a diagonal.
void Multiply(ORXSrvSparseMatrix const& a, double const* x, int count, double* y) {
  if (a.NumberOfNonzeros() > 0) return a.Multiply(x, count, y, false);
  CompressedRowsView const view = a.View();
  for (int v = 0; v < count; ++v)
    for (int i = 0; i < view.rows; ++i, ++x, ++y)
      *y = view.diagonal != nullptr ? view.diagonal[i] * *x : 0.0;
}

std::vector<double> Diagonal(ORXSrvSparseMatrix const& a) {
  std::vector<double> diagonal(static_cast<std::size_t>(a.NumberOfRows()));
  a.GetDiagonal(diagonal.data());
  return diagonal;
}

void RequireUsable(ORXSrvSparseMatrix const& matrix, std::string const& name) {
  if (matrix.View().rows != matrix.NumberOfRows())
    RaiseSolveError(ORXSrvSolveError::illegalInput,
                    "ORXSrvModes: " + name + " is not assembled, or has more rows than when it was: " +
                        std::to_string(matrix.NumberOfRows()) + ", in its arrays " +
                        std::to_string(matrix.View().rows) + ".");
  ForEachEntry(matrix.View(), [&](int i, int j, double value) {
    if (!std::isfinite(value))
      RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: " + name + "(" + std::to_string(i + 1) +
                                                          ", " + std::to_string(j + 1) + ") is " +
                                                          NumberText(value) + "; expected a finite number.");
  });
  if (!matrix.IsSymmetric())
    RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvModes: " + name + " is not symmetric.");
}

} // namespace

MatrixPencil::MatrixPencil(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m) : m_k(k), m_m(m) {
  RequireMatrices();
}

void MatrixPencil::RequireMatrices() const {
  int const order = m_k.NumberOfRows();
  if (order == 0 || m_k.NumberOfColumns() != order || m_m.NumberOfRows() != order ||
      m_m.NumberOfColumns() != order)
    RaiseSolveError(ORXSrvSolveError::illegalInput,
                    "ORXSrvModes: K is " + ShapeText(order, m_k.NumberOfColumns()) + " and M is " +
                        ShapeText(m_m.NumberOfRows(), m_m.NumberOfColumns()) +
                        "; expected square matrices of one order.");
  RequireUsable(m_k, "K");
  RequireUsable(m_m, "M");
}

void MatrixPencil::BeginAnalysis(EngineLimits const& limits) {
  m_limits = limits;
  RequireMatrices();
  RequireMass();
  CompressedRowsView const m = m_m.View();
  if (m_engine && !ShiftedMatrix(m_k.View(), 1.0, &m, true).HasPatternOf(m_shifted)) m_engine.reset();
}

std::vector<double> MatrixPencil::StiffnessDiagonal() const { return Diagonal(m_k); }

std::vector<double> MatrixPencil::MassDiagonal() const { return Diagonal(m_m); }

void MatrixPencil::MultiplyByMass(double const* x, int count, double* y) const { Multiply(m_m, x, count, y); }

double MatrixPencil::AbsoluteMass(double const* x) const {
  double sum = 0.0;
  ForEachEntry(m_m.View(), [&](int i, int j, double value) { sum += std::abs(value * x[i] * x[j]); });
  return sum;
}

double MatrixPencil::LargestMass() const { return std::abs(m_m.LargestEntry().value); }

std::optional<Processes::Values> MatrixPencil::FindLargeMassPair(std::vector<double> const& diagonal,
                                                                 double noise) const {
  std::optional<Processes::Values> found;
  ForEachEntry(m_m.View(), [&](int i, int j, double value) {
    double limit = 0.0;
    if (i != j && !found && IsLargeMassPair(value, diagonal[i], diagonal[j], noise, limit))
      found = {static_cast<double>(i), static_cast<double>(j), value, limit};
  });
  return found;
}

std::vector<ModeQuality> MatrixPencil::Measure(std::vector<double> const& lambdas, double const* x) const {
  auto const order = static_cast<std::size_t>(Order());
  std::vector<ModeQuality> all;
  for (std::size_t first = 0; first < lambdas.size(); first += measuredTogether) {
    std::size_t const count = std::min(measuredTogether, lambdas.size() - first);
    std::vector<VectorGroup> vectors(order, VectorGroup{});
    for (std::size_t v = 0; v < count; ++v)
      for (std::size_t i = 0; i < order; ++i)
        vectors[i][v] = x[(first + v) * order + i];
    auto const entriesOf = [](ORXSrvSparseMatrix const& matrix) {
      return [&](auto const& add) { ForEachEntry(matrix.View(), add); };
    };
    std::ranges::copy(MeasureGroup(m_alone, std::span(lambdas).subspan(first, count), order, vectors, vectors,
                                   entriesOf(m_k), entriesOf(m_m)),
                      std::back_inserter(all));
  }
  return all;
}

std::optional<int> MatrixPencil::TryFactorize(double shift) {
  CompressedRowsView const m = m_m.View();
  m_shifted = ShiftedMatrix(m_k.View(), shift, &m, true);
  if (!m_engine) {
    m_engine.emplace(m_shifted);
    ORXSrvProgress::Report("ORXSrvModes, analysis", 1, 2);
  }
  std::optional<EngineFacts> const facts = m_engine->TryFactorize(m_shifted, m_limits);
  return facts ? std::optional(facts->negative) : std::nullopt;
}

void MatrixPencil::RefuseNullMotions() {
  CompressedRowsView const m = m_m.View();
  // Where both matrices weigh the same, nothing is null but what is null in both.
  double const mass = LargestMass();
  double const balanced = mass > 0.0 ? -std::abs(m_k.LargestEntry().value) / mass : 0.0;
  ShiftedMatrix const matrix(m_k.View(), balanced, &m, true);
  Engine engine(matrix);
  std::vector<int> unknowns = engine.Factorize(matrix, m_limits).nullUnknowns;
  if (unknowns.empty()) unknowns = TestFactor(engine, matrix).nullUnknowns;
  if (!unknowns.empty()) RaiseNullMotion(std::ranges::min(unknowns));
}

void MatrixPencil::Solve(double* x, int count) { m_engine->Solve(x, count, count); }

void MatrixPencil::ComputeResidual(double const* x, double const* b, double* residual,
                                   double* weights) const {
  m_shifted.ComputeResidual(x, b, residual, weights);
}

std::vector<double> MatrixPencil::LargestInRows() const { return m_shifted.LargestInRows(); }

} // namespace orx
