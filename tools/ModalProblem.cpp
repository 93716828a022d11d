#include "tools/ModalProblem.h"

#include "tools/Memory.h"
#include "tools/Text.h"
#include "tools/ToolError.h"

#include "blac/BLAC.h"
#include "mtx/ORXSrvMatrix.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <optional>

namespace orx::tool {
namespace {

constexpr double roundoff = std::numeric_limits<double>::epsilon();

/// Entries of K come out of sums that were rounded a few times: their relative error is at least this.
constexpr double leastStiffnessError = 100.0 * roundoff;

/// A shift serves eigenvalues within a few decades of it. One within this factor of the best is kept.
constexpr double shiftSlack = 10.0;
constexpr int shiftAttempts = 3;

/// The pair as dense matrices, and what the eigensolver makes of them.
class DensePair {
public:
  DensePair(SymmetricMatrix const& stiffness, SymmetricMatrix const& mass)
      : m_k(stiffness), m_m(mass), m_n(stiffness.Order()), m_mass(m_n, m_n), m_combination(m_n, m_n),
        m_values(m_n, 1), m_vectors(m_n, m_n) {}

  /// Whether kFactor K + mFactor M is positive definite beyond rounding: no pivot of its Cholesky
  /// factorization may be lost in the rounding errors of the diagonal value it was made from.
  bool IsPositiveDefinite(double kFactor, double mFactor) {
    Fill(m_combination, kFactor, mFactor);
    std::vector<double> const diagonal = DiagonalOf(m_combination);
    int info = 0;
    BLAC_DPOTRF("L", &m_n, m_combination.Values(), &m_n, &info);
    if (info != 0) return false;
    std::vector<double> const pivots = DiagonalOf(m_combination);
    double const lost = 10.0 * m_n * roundoff;
    for (int i = 0; i < m_n; ++i)
      if (!(pivots[i] * pivots[i] > lost * diagonal[i])) return false;
    return true;
  }

  /// M x = nu (K + shift M) x
  void Solve(double shift) {
    Fill(m_mass, 0.0, 1.0);
    Fill(m_combination, 1.0, shift);
    m_mass.SolveEigenproblemSymmetric(m_combination, m_values, m_vectors);
  }

  /// nu, ascending.
  std::span<double const> Values() const { return {m_values.Values(), static_cast<std::size_t>(m_n)}; }
  std::span<double const> Vector(int k) const {
    auto const n = static_cast<std::size_t>(m_n);
    return {m_vectors.Values() + n * static_cast<std::size_t>(k), n};
  }

private:
  /// Both triangles get the same bits, which the eigensolver insists on.
  void Fill(ORXSrvMatrix& target, double kFactor, double mFactor) const {
    target = 0.0;
    AddTo(target, kFactor, m_k);
    AddTo(target, mFactor, m_m);
  }
  static void AddTo(ORXSrvMatrix& target, double factor, SymmetricMatrix const& source) {
    auto const n = static_cast<std::size_t>(target.NumberOfRows());
    if (factor == 0.0) return;
    for (Entry const& e : source.Lower()) {
      target.Values()[e.column * n + e.row] += factor * e.value;
      if (e.row != e.column) target.Values()[e.row * n + e.column] += factor * e.value;
    }
  }
  static std::vector<double> DiagonalOf(ORXSrvMatrix const& matrix) {
    auto const n = static_cast<std::size_t>(matrix.NumberOfRows());
    std::vector<double> diagonal(n);
    for (std::size_t i = 0; i < n; ++i)
      diagonal[i] = matrix.Values()[i * n + i];
    return diagonal;
  }

  SymmetricMatrix const& m_k;
  SymmetricMatrix const& m_m;
  int const m_n;
  ORXSrvMatrix m_mass;
  ORXSrvMatrix m_combination; ///< also where it is factored on trial
  ORXSrvMatrix m_values;
  ORXSrvMatrix m_vectors;
};

/// The shifted problem of one pair, from the first guess of the shift to the finished modes.
class ModalSolver {
public:
  ModalSolver(SymmetricMatrix const& stiffness, SymmetricMatrix const& mass, double stiffnessError)
      : m_k(stiffness), m_m(mass), m_pair(stiffness, mass),
        m_stiffnessError(std::max(stiffnessError, leastStiffnessError)) {}

  ModalSolution Solve(int count) {
    m_solution.isMassDefinite = m_pair.IsPositiveDefinite(0.0, 1.0);
    m_solution.isStiffnessDefinite = m_pair.IsPositiveDefinite(1.0, 0.0);
    SolveWith(m_solution.isStiffnessDefinite ? 0.0 : FirstShift());
    for (int attempt = 1; attempt < shiftAttempts; ++attempt) {
      std::optional<double> const better = BetterShift(count);
      if (!better || !m_pair.IsPositiveDefinite(1.0, *better)) break;
      SolveWith(*better);
    }
    Finish(count);
    return std::move(m_solution);
  }

private:
  /// The smallest ratio of diagonal values, which is at least the lowest eigenvalue when M is definite.
  double DiagonalScale() const {
    std::vector<double> const k = m_k.Diagonal();
    std::vector<double> const m = m_m.Diagonal();
    double scale = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < k.size(); ++i)
      if (k[i] > 0.0 && m[i] > 0.0) scale = std::min(scale, k[i] / m[i]);
    if (std::isfinite(scale)) return scale;
    double const kNorm = m_k.FrobeniusNorm();
    return kNorm > 0.0 ? kNorm / m_m.FrobeniusNorm() : 1.0;
  }

  double FirstShift() {
    double const scale = DiagonalScale();
    for (double const factor : {1e-3, 1.0, 1e3, 1e6, 1e9})
      if (m_pair.IsPositiveDefinite(1.0, factor * scale)) return factor * scale;
    throw ToolError(
        ExitCode::Failure,
        Format("neither M nor K is positive definite, nor is K + sigma M for any sigma tried from %.3g "
               "to %.3g; expected a positive combination. %s",
               1e-3 * scale, 1e9 * scale, CauseOfIndefiniteness().c_str()));
  }

  std::string CauseOfIndefiniteness() const {
    std::vector<double> const k = m_k.Diagonal();
    std::vector<double> const m = m_m.Diagonal();
    for (std::size_t i = 0; i < k.size(); ++i)
      if (k[i] <= 0.0 && m[i] <= 0.0)
        return Format("Unknown %zu has the diagonal values K = %s and M = %s", i + 1, Number(k[i]).c_str(),
                      Number(m[i]).c_str());
    return "Some motion of several unknowns has neither stiffness nor mass, or a negative one of both";
  }

  void SolveWith(double shift) {
    m_solution.shift = shift;
    m_pair.Solve(shift);
    SortFinite();
  }

  double Eigenvalue(int k) const { return 1.0 / m_pair.Values()[k] - m_solution.shift; }

  /// Which eigenpairs are finite, lowest first: nu falls as lambda rises.
  void SortFinite() {
    auto const nu = m_pair.Values();
    double const largest = std::max(std::fabs(nu.front()), std::fabs(nu.back()));
    double const lost = static_cast<double>(nu.size()) * roundoff * largest;
    m_finite.clear();
    for (int k = static_cast<int>(nu.size()) - 1; k >= 0; --k)
      if (std::fabs(nu[k]) > lost) m_finite.push_back(k);
    m_solution.finiteEigenvalues = static_cast<int>(m_finite.size());
    m_solution.infiniteEigenvalues = static_cast<int>(nu.size() - m_finite.size());
    m_solution.negativeMasses =
        static_cast<int>(std::count_if(m_finite.begin(), m_finite.end(), [&](int k) { return nu[k] < 0.0; }));
    if (m_solution.negativeMasses > 0)
      std::stable_sort(m_finite.begin(), m_finite.end(),
                       [&](int a, int b) { return std::fabs(Eigenvalue(a)) < std::fabs(Eigenvalue(b)); });
  }

  double StiffnessShare(std::span<double const> x) const {
    double const terms = m_k.AbsoluteForm(x);
    return terms == 0.0 ? 0.0 : std::fabs(m_k.QuadraticForm(x)) / terms;
  }

  /// With a shift only: where K is positive definite, no motion is free. The eigenvalue is 0 when it is lost
  /// in the errors of K's entries, or in those of the shifted solution.
  bool IsRigid(int k) const {
    if (m_solution.shift == 0.0) return false;
    auto const x = m_pair.Vector(k);
    double const ofSolution = 10.0 * m_k.Order() * roundoff * m_solution.shift;
    return StiffnessShare(x) <= m_stiffnessError || std::fabs(Eigenvalue(k)) <= ofSolution;
  }

  /// An eigenvalue lambda has lost the factor (lambda + sigma)^2 / (lambda sigma) to rounding, so sigma
  /// belongs in the middle of the elastic eigenvalues asked for, and above the magnitude of negative ones.
  /// Empty when the present shift will do.
  std::optional<double> BetterShift(int count) const {
    if (m_solution.isStiffnessDefinite || m_solution.negativeMasses > 0 || m_finite.empty()) return {};
    double mostNegative = 0.0;
    double lowest = 0.0;
    double highest = 0.0;
    for (int i = 0; i < static_cast<int>(m_finite.size()) && (i < count || lowest == 0.0); ++i) {
      if (IsRigid(m_finite[i])) continue;
      double const lambda = Eigenvalue(m_finite[i]);
      mostNegative = std::min(mostNegative, lambda);
      highest = std::max(highest, lambda);
      if (lowest == 0.0) lowest = std::max(lambda, 0.0);
    }
    double const best = std::max(std::sqrt(lowest) * std::sqrt(highest), -2.0 * mostNegative);
    double const ratio = best / m_solution.shift;
    if (best == 0.0 || (ratio < shiftSlack && ratio > 1.0 / shiftSlack)) return {};
    return best;
  }

  /// Against the terms that cancel, not against ||K|| ||x||: where the mode is soft, the stiffest entries of
  /// K would make any residual look small.
  double Residual(double lambda, std::span<double const> x) const {
    std::vector<double> const kx = m_k.Times(x);
    std::vector<double> const mx = m_m.Times(x);
    std::vector<double> const kTerms = m_k.AbsoluteTimes(x);
    std::vector<double> const mTerms = m_m.AbsoluteTimes(x);
    double residual = 0.0;
    double terms = 0.0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      residual = std::hypot(residual, kx[i] - lambda * mx[i]);
      terms = std::hypot(terms, kTerms[i] + std::fabs(lambda) * mTerms[i]);
    }
    return terms == 0.0 ? 0.0 : residual / terms;
  }

  /// Of components as large as each other to rounding, as symmetric structures have, the first decides.
  static double SignOfLargest(std::span<double const> x) {
    double largest = 0.0;
    for (double const value : x)
      largest = std::max(largest, std::fabs(value));
    auto const decisive = std::find_if(
        x.begin(), x.end(), [=](double value) { return std::fabs(value) >= (1.0 - 1e-6) * largest; });
    return *decisive < 0.0 ? -1.0 : 1.0;
  }

  Mode MakeMode(int k) const {
    auto const x = m_pair.Vector(k);
    double const factor = SignOfLargest(x) / std::sqrt(std::fabs(m_m.QuadraticForm(x)));
    Mode mode{Eigenvalue(k), 0.0, StiffnessShare(x), IsRigid(k), {}};
    for (double const value : x)
      mode.shape.push_back(factor * value);
    mode.residual = Residual(mode.isRigid ? 0.0 : mode.eigenvalue, mode.shape);
    return mode;
  }

  void Finish(int count) {
    for (int i = 0; i < std::min(count, m_solution.finiteEigenvalues); ++i)
      m_solution.modes.push_back(MakeMode(m_finite[i]));
  }

  SymmetricMatrix const& m_k;
  SymmetricMatrix const& m_m;
  DensePair m_pair;
  double const m_stiffnessError;
  std::vector<int> m_finite; ///< eigenpairs with a finite lambda, lowest first
  ModalSolution m_solution;
};

/// New numbers of the unknowns with stiffness or mass; -1 for the others, which `empty` lists.
std::vector<int> NumberUsed(SymmetricMatrix const& stiffness, SymmetricMatrix const& mass,
                            std::vector<int>& empty) {
  std::vector<bool> const stiff = stiffness.NonzeroRows();
  std::vector<bool> const heavy = mass.NonzeroRows();
  std::vector<int> numbers(stiff.size(), -1);
  int next = 0;
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (stiff[i] || heavy[i])
      numbers[i] = next++;
    else
      empty.push_back(static_cast<int>(i));
  }
  return numbers;
}

void Expand(Mode& mode, std::span<int const> numbers) {
  std::vector<double> shape(numbers.size(), 0.0);
  for (std::size_t i = 0; i < numbers.size(); ++i)
    if (numbers[i] >= 0) shape[i] = mode.shape[numbers[i]];
  mode.shape = std::move(shape);
}

} // namespace

double Frequency(Mode const& mode) {
  if (mode.isRigid) return 0.0;
  double const magnitude = std::sqrt(std::fabs(mode.eigenvalue)) / (2.0 * std::numbers::pi);
  return mode.eigenvalue < 0.0 ? -magnitude : magnitude;
}

ModalSolution SolveModes(SymmetricMatrix const& stiffness, SymmetricMatrix const& mass, int count,
                         double stiffnessError) {
  if (mass.FrobeniusNorm() == 0.0)
    throw ToolError(ExitCode::UnusableInput,
                    "M holds no value other than 0, so K x = lambda M x has no finite eigenvalue");
  std::vector<int> empty;
  std::vector<int> const numbers = NumberUsed(stiffness, mass, empty);
  int const used = stiffness.Order() - static_cast<int>(empty.size());
  RequireFits(used, AvailableMemory());
  SymmetricMatrix const usedStiffness = stiffness.Renumbered(numbers, used);
  SymmetricMatrix const usedMass = mass.Renumbered(numbers, used);

  ModalSolution solution = ModalSolver(usedStiffness, usedMass, stiffnessError).Solve(count);
  for (Mode& mode : solution.modes)
    Expand(mode, numbers);
  solution.emptyUnknowns = std::move(empty);
  return solution;
}

} // namespace orx::tool
