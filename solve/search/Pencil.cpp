#include "solve/search/Pencil.h"

#include "solve/search/SolveErrors.h"
#include "solve/search/Vectors.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>

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

std::string NumberOf(double index) { return std::to_string(static_cast<std::int64_t>(index) + 1); }

} // namespace

double Pencil::StartShift() const {
  std::vector<double> const stiffness = StiffnessDiagonal(), mass = MassDiagonal();
  double least = std::numeric_limits<double>::infinity();
  for (std::size_t i = 0; i < mass.size(); ++i)
    if (mass[i] > 0.0 && stiffness[i] != 0.0) least = std::min(least, std::abs(stiffness[i]) / mass[i]);
  least = -SharedBy().Largest(-least);
  return std::isfinite(least) ? -1e-10 * least : -1.0;
}

// The mass matrix

bool IsLargeMassPair(double value, double diagonalI, double diagonalJ, double noise, double& limit) {
  limit = std::sqrt(diagonalI) * std::sqrt(diagonalJ);
  return std::abs(value) > limit * (1 + shareOfMinor) + noise;
}

void Pencil::RequireMass() const {
  std::vector<double> diagonal = MassDiagonal();
  double const noise = noiseOfMass * LargestMass();
  std::optional<Processes::Values> negative;
  for (std::size_t i = 0; i < diagonal.size() && !negative; ++i)
    if (diagonal[i] < -noise) negative = {FirstRow() + static_cast<double>(i), diagonal[i], 0.0, 0.0};
  if ((negative = SharedBy().First(negative)))
    RaiseSolveError(ORXSrvSolveError::indefiniteMass,
                    "ORXSrvModes: M has " + NumberText((*negative)[1]) + " on the diagonal at unknown " +
                        NumberOf((*negative)[0]) + " (counted from 1); expected no negative mass.");
  for (double& mass : diagonal)
    mass = mass > noise ? mass : 0.0;
  if (auto const pair = SharedBy().First(FindLargeMassPair(diagonal, noise)))
    RaiseSolveError(ORXSrvSolveError::indefiniteMass,
                    "ORXSrvModes: M is indefinite, M(" + NumberOf((*pair)[0]) + ", " + NumberOf((*pair)[1]) +
                        ") is " + NumberText((*pair)[2]) + "; expected at most " + NumberText((*pair)[3]) +
                        ", the root of the product of both diagonal entries.");
  if (!IsMassDiagonal() && HasNegativeRitzValue(diagonal))
    RaiseSolveError(
        ORXSrvSolveError::indefiniteMass,
        "ORXSrvModes: M is indefinite, x^T M x is negative for some x; expected no negative mass.");
}

/// Lanczos on D M D, where D scales the diagonal to 1: true when the tridiagonal matrix has a negative pivot.
bool Pencil::HasNegativeRitzValue(std::vector<double> scale) const {
  for (double& value : scale)
    value = value > 0.0 ? 1.0 / std::sqrt(value) : 0.0;
  auto const scaled = [&](std::vector<double>& x) {
    std::ranges::transform(x, scale, x.begin(), std::multiplies{});
  };
  std::vector<double> x(scale.size()), before(x.size(), 0.0), y(x.size()), product(x.size());
  std::mt19937_64 generator(SeedOf(SharedBy(), 1));
  FillRandomly(x, generator);
  double beta = 0.0, pivot = 1.0;
  for (int step = 0; step < stepsOnMass; ++step) {
    double const length = std::sqrt(SharedBy().Sum(Dot(x, x)));
    if (!(length > roundoffOfMass)) return false;
    beta = step > 0 ? length : 0.0;
    for (double& value : x)
      value /= length;
    y = x;
    scaled(y);
    MultiplyByMass(y.data(), 1, product.data());
    scaled(product);
    double const alpha = SharedBy().Sum(Dot(x, product));
    pivot = alpha + roundoffOfMass - beta * beta / pivot;
    if (pivot < 0.0) return true;
    for (std::size_t i = 0; i < x.size(); ++i)
      y[i] = product[i] - alpha * x[i] - beta * before[i];
    before.swap(x);
    x.swap(y);
  }
  return false;
}

// Factorization

void Pencil::RaiseNullMotion(int unknown) {
  RaiseSolveError(
      ORXSrvSolveError::singular,
      "ORXSrvModes: a motion has neither stiffness nor mass, so that every frequency would be one of it; "
      "it moves unknown " +
          std::to_string(unknown + 1) + " (counted from 1). Fix the unknown or leave it out.",
      unknown);
}

void Pencil::RaiseNullMotionOf(std::vector<double> const& x) const {
  auto const magnitude = [](double value) { return std::abs(value); };
  auto const largest = std::ranges::max_element(x, {}, magnitude);
  double const here = largest == x.end() ? -1.0 : std::abs(*largest);
  std::optional<Processes::Values> place;
  if (here == SharedBy().Largest(here)) place = {FirstRow() + static_cast<double>(largest - x.begin())};
  RaiseNullMotion(static_cast<int>(SharedBy().First(place)->front()));
}

Pencil::Soundness Pencil::TestShift(ShiftFacts& facts) {
  TestSolution const test = SolveForRandomLoad(*this);
  if (!test.isFinite) return Soundness::OnEigenvalue;
  std::vector<double> const& x = test.x;
  std::vector<double> massTimes(x.size());
  MultiplyByMass(x.data(), 1, massTimes.data());
  double const mass = SharedBy().Sum(Dot(x, massTimes));
  if (mass > 0.0) {
    facts.nearest = facts.shift + test.form / mass;
    facts.leastDistance = 10 * cancelled * test.terms / mass;
  }
  if (test.error > unsoundError) return Soundness::Inaccurate;
  if (std::abs(test.form) > std::max(cancelled, 10 * test.error) * test.terms) return Soundness::Sound;
  // The solution is a motion that A takes for nothing.
  if (std::abs(mass) > 1e-9 * SharedBy().Sum(AbsoluteMass(x.data()))) return Soundness::OnEigenvalue;
  RaiseNullMotionOf(x);
}

ShiftFacts Pencil::Factorize(double shift, Side side) {
  double const step = std::max(std::abs(shift), std::abs(StartShift())) * shiftStep;
  for (int move = 0; move <= mostMoves; ++move) {
    double distance = step * (1 << (2 * move));
    if (std::optional<int> const negative = TryFactorize(shift)) {
      ShiftFacts facts{shift, *negative};
      if (TestShift(facts) == Soundness::Sound) return facts;
      distance = std::max(distance, facts.leastDistance);
    }
    shift += side == Side::Below ? -distance : distance;
  }
  RefuseNullMotions();
  RaiseSolveError(ORXSrvSolveError::singular,
                  "ORXSrvModes: no shift near " + NumberText(shift) +
                      " gives a matrix K - shift M that can be factorized to any digit: there the "
                      "eigenvalues are lost in the rounding errors of K and M.");
}

} // namespace orx
