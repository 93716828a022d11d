#include "solve/impl/Pencil.h"

#include "mtx/ORXSrvProgress.h"
#include "solve/impl/NullMotions.h"
#include "solve/impl/SolveErrors.h"
#include "solve/impl/Vectors.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <random>

namespace orx {

namespace {

/// A backward error from which on a factorization is no evidence.
constexpr double unsoundError = 1e-9;
/// x^T A x below this share of the terms that it is summed from is zero to rounding.
constexpr double cancelled = 1e-14;
/// A shift that hits an eigenvalue moves by this share.
constexpr double shiftStep = 1e-7;
constexpr int mostMoves = 6;
/// Of M with a diagonal of 1: what its rounding errors amount to.
constexpr double roundoffOfMass = 1e-8;
/// Entries of M below this share of the largest one may be what rounding has left of zero.
constexpr double noiseOfMass = 1e-15;
/// |M_ij| is above the root of M_ii M_jj by no more than this share where both are the same but for rounding.
constexpr double shareOfMinor = 1e-7;
constexpr int stepsOnMass = 30;

[[noreturn]] void RaiseNullMotion(int unknown) {
  RaiseSolveError(
      ORXSrvSolveError::singular,
      "ORXSrvModes: a motion has neither stiffness nor mass, so that every frequency would be one of it; "
      "it moves unknown " +
          std::to_string(unknown + 1) + " (counted from 1). Fix the unknown or leave it out.",
      unknown);
}

/// As ORXSrvSparseMatrix::Multiply, but also for a symmetric form that has nothing but a diagonal.
void Multiply(ORXSrvSparseMatrix const& a, double const* x, int count, double* y) {
  if (a.NumberOfNonzeros() > 0) return a.Multiply(x, count, y, false);
  CompressedRowsView const view = a.View();
  for (int v = 0; v < count; ++v)
    for (int i = 0; i < view.rows; ++i, ++x, ++y)
      *y = view.diagonal != nullptr ? view.diagonal[i] * *x : 0.0;
}

double AbsoluteForm(ORXSrvSparseMatrix const& a, double const* x) {
  double sum = 0.0;
  ForEachEntry(a.View(), [&](int i, int j, double value) { sum += std::abs(value * x[i] * x[j]); });
  return sum;
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

/// Lanczos on D M D, where D scales the diagonal to 1: true when the tridiagonal matrix has a negative pivot.
bool HasNegativeRitzValue(ORXSrvSparseMatrix const& m, std::vector<double> scale) {
  for (double& value : scale)
    value = value > 0.0 ? 1.0 / std::sqrt(value) : 0.0;
  auto const scaled = [&](std::vector<double>& x) {
    std::ranges::transform(x, scale, x.begin(), std::multiplies{});
  };
  std::vector<double> x(scale.size()), before(x.size(), 0.0), y(x.size()), product(x.size());
  std::mt19937_64 generator(1);
  FillRandomly(x, generator);
  double beta = 0.0, pivot = 1.0;
  for (int step = 0; step < stepsOnMass; ++step) {
    double const length = std::sqrt(Dot(x, x));
    if (!(length > roundoffOfMass)) return false;
    beta = step > 0 ? length : 0.0;
    for (double& value : x)
      value /= length;
    y = x;
    scaled(y);
    Multiply(m, y.data(), 1, product.data());
    scaled(product);
    double const alpha = Dot(x, product);
    pivot = alpha + roundoffOfMass - beta * beta / pivot;
    if (pivot < 0.0) return true;
    for (std::size_t i = 0; i < x.size(); ++i)
      y[i] = product[i] - alpha * x[i] - beta * before[i];
    before.swap(x);
    x.swap(y);
  }
  return false;
}

} // namespace

Pencil::Pencil(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const& m) : m_k(k), m_m(m) {
  RequireMatrices();
}

void Pencil::RequireMatrices() const {
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

void Pencil::BeginAnalysis() {
  RequireMatrices();
  RequireMass();
  CompressedRowsView const m = m_m.View();
  if (m_engine && !ShiftedMatrix(m_k.View(), 1.0, &m, true).HasPatternOf(m_shifted)) m_engine.reset();
}

void Pencil::RequireMass() const {
  std::vector<double> diagonal = Diagonal(m_m);
  double const noise = noiseOfMass * std::abs(m_m.LargestEntry().value);
  for (std::size_t i = 0; i < diagonal.size(); ++i)
    if (diagonal[i] < -noise)
      RaiseSolveError(ORXSrvSolveError::indefiniteMass,
                      "ORXSrvModes: M has " + NumberText(diagonal[i]) + " on the diagonal at unknown " +
                          std::to_string(i + 1) + " (counted from 1); expected no negative mass.");
  for (double& mass : diagonal)
    mass = mass > noise ? mass : 0.0;
  ForEachEntry(m_m.View(), [&](int i, int j, double value) {
    double const limit =
        std::sqrt(diagonal[static_cast<std::size_t>(i)]) * std::sqrt(diagonal[static_cast<std::size_t>(j)]);
    if (i != j && std::abs(value) > limit * (1 + shareOfMinor) + noise)
      RaiseSolveError(ORXSrvSolveError::indefiniteMass,
                      "ORXSrvModes: M is indefinite, M(" + std::to_string(i + 1) + ", " +
                          std::to_string(j + 1) + ") is " + NumberText(value) + "; expected at most " +
                          NumberText(limit) + ", the root of the product of both diagonal entries.");
  });
  if (m_m.NumberOfNonzeros() > 0 && HasNegativeRitzValue(m_m, diagonal))
    RaiseSolveError(
        ORXSrvSolveError::indefiniteMass,
        "ORXSrvModes: M is indefinite, x^T M x is negative for some x; expected no negative mass.");
}

std::vector<double> Pencil::MassDiagonal() const { return Diagonal(m_m); }

void Pencil::MultiplyByMass(double const* x, int count, double* y) const { Multiply(m_m, x, count, y); }

std::vector<ModeQuality> Pencil::Measure(std::vector<double> const& lambdas, double const* x) const {
  std::vector<ModeQuality> all;
  for (std::size_t first = 0; first < lambdas.size(); first += groupWidth) {
    std::size_t const count = std::min<std::size_t>(groupWidth, lambdas.size() - first);
    MeasureGroup(lambdas.data() + first, x + first * static_cast<std::size_t>(Order()), count, all);
  }
  return all;
}

// The vectors of a group lie element by element: one pass over the entries serves all, and the loops over a
// group are vector instructions.
void Pencil::MeasureGroup(double const* lambdas, double const* x, std::size_t count,
                          std::vector<ModeQuality>& all) const {
  using Group = std::array<double, groupWidth>;
  auto const order = static_cast<std::size_t>(Order());
  std::vector<Group> vectors(order, Group{}), sums(order, Group{}), terms(order, Group{});
  for (std::size_t v = 0; v < count; ++v)
    for (std::size_t i = 0; i < order; ++i)
      vectors[i][v] = x[v * order + i];
  Group factors{}, strain{}, strainTerms{};
  auto const add = [&](int row, int column, double value) {
    Group const& from = vectors[static_cast<std::size_t>(column)];
    Group &sum = sums[static_cast<std::size_t>(row)], &term = terms[static_cast<std::size_t>(row)];
    for (std::size_t v = 0; v < groupWidth; ++v) {
      double const product = factors[v] * value * from[v];
      sum[v] += product;
      term[v] += std::abs(product);
    }
  };
  factors.fill(1.0);
  ForEachEntry(m_k.View(), add);
  for (std::size_t i = 0; i < order; ++i)
    for (std::size_t v = 0; v < groupWidth; ++v) {
      strain[v] += vectors[i][v] * sums[i][v];
      strainTerms[v] += std::abs(vectors[i][v]) * terms[i][v];
    }
  for (std::size_t v = 0; v < count; ++v)
    factors[v] = -lambdas[v];
  ForEachEntry(m_m.View(), add);
  for (std::size_t v = 0; v < count; ++v) {
    double residual = 0.0, size = 0.0, defect = 0.0, defectTerms = 0.0;
    for (std::size_t i = 0; i < order; ++i) {
      residual += sums[i][v] * sums[i][v];
      size += terms[i][v] * terms[i][v];
      defect += vectors[i][v] * sums[i][v];
      defectTerms += std::abs(vectors[i][v]) * terms[i][v];
    }
    all.push_back({size > 0.0 ? std::sqrt(residual / size) : 0.0,
                   strainTerms[v] > 0.0 ? std::abs(strain[v]) / strainTerms[v] : 0.0, defect, defectTerms});
  }
}

double Pencil::StartShift() const {
  std::vector<double> const stiffness = Diagonal(m_k), mass = Diagonal(m_m);
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < mass.size(); ++i)
    if (mass[i] > 0.0 && stiffness[i] != 0.0) least = std::min(least, std::abs(stiffness[i]) / mass[i]);
  return std::isfinite(least) ? -1e-10 * least : -1.0;
}

Pencil::Soundness Pencil::TestShift(ShiftFacts& facts) {
  TestSolution const test = SolveForRandomLoad(*m_engine, m_shifted);
  if (!test.isFinite) return Soundness::OnEigenvalue;
  std::vector<double> const& x = test.x;
  std::vector<double> massTimes(x.size());
  MultiplyByMass(x.data(), 1, massTimes.data());
  double const mass = Dot(x, massTimes);
  if (mass > 0.0) {
    facts.nearest = facts.shift + test.form / mass;
    facts.leastDistance = 10 * cancelled * test.terms / mass;
  }
  if (test.error > unsoundError) return Soundness::Inaccurate;
  if (std::abs(test.form) > std::max(cancelled, 10 * test.error) * test.terms) return Soundness::Sound;
  // The solution is a motion that A takes for nothing.
  if (std::abs(mass) > 1e-9 * AbsoluteForm(m_m, x.data())) return Soundness::OnEigenvalue;
  auto const largest = std::ranges::max_element(x, {}, [](double value) { return std::abs(value); });
  RaiseNullMotion(static_cast<int>(largest - x.begin()));
}

ShiftFacts Pencil::Factorize(double shift, Side side, EngineLimits const& limits) {
  CompressedRowsView const k = m_k.View(), m = m_m.View();
  double const step = std::max(std::abs(shift), std::abs(StartShift())) * shiftStep;
  for (int move = 0; move <= mostMoves; ++move) {
    double distance = step * (1 << (2 * move));
    m_shifted = ShiftedMatrix(k, shift, &m, true);
    if (!m_engine) {
      m_engine.emplace(m_shifted);
      ORXSrvProgress::Report("ORXSrvModes, analysis", 1, 2);
    }
    std::optional<EngineFacts> const engineFacts = m_engine->TryFactorize(m_shifted, limits);
    if (engineFacts) {
      ShiftFacts facts{shift, engineFacts->negative};
      if (TestShift(facts) == Soundness::Sound) return facts;
      distance = std::max(distance, facts.leastDistance);
    }
    shift += side == Side::Below ? -distance : distance;
  }
  RaiseSingular(shift, limits);
}

void Pencil::RaiseSingular(double shift, EngineLimits const& limits) const {
  CompressedRowsView const k = m_k.View(), m = m_m.View();
  // Where both matrices weigh the same, nothing is null but what is null in both.
  double const mass = std::abs(m_m.LargestEntry().value);
  double const balanced = mass > 0.0 ? -std::abs(m_k.LargestEntry().value) / mass : 0.0;
  ShiftedMatrix const matrix(k, balanced, &m, true);
  Engine engine(matrix);
  std::vector<int> unknowns = engine.Factorize(matrix, limits).nullUnknowns;
  if (unknowns.empty()) unknowns = TestFactor(engine, matrix).nullUnknowns;
  if (!unknowns.empty()) RaiseNullMotion(std::ranges::min(unknowns));
  RaiseSolveError(ORXSrvSolveError::singular,
                  "ORXSrvModes: no shift near " + NumberText(shift) +
                      " gives a matrix K - shift M that can be factorized to any digit: there the "
                      "eigenvalues are lost in the rounding errors of K and M.");
}

void Pencil::Solve(double* x, int count) { m_engine->Solve(x, count, count); }

} // namespace orx
