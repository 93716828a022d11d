#include "tools/numerics/ModalProblem.h"

#include "tools/numerics/DensePair.h"
#include "tools/numerics/NullMotions.h"
#include "tools/numerics/SparseModes.h"
#include "tools/numerics/SymmetricForm.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <optional>

namespace orx::tool {
namespace {

constexpr double roundoff = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();

/// Entries of K come out of sums that were rounded a few times: their relative error is at least this.
constexpr double leastStiffnessError = 100.0 * roundoff;

/// x^T M x is 0 when less than this is left of its terms.
constexpr double leastMassShare = 100.0 * roundoff;

/// Errors of the eigensolver up to this are not worth another solution: with sigma = 0, which leaves the
/// entries of K as they are, and with a sigma that was a guess.
constexpr double goodErrorUnshifted = 1e-11;
constexpr double goodErrorShifted = 100.0 * roundoff;
/// A shift within this factor of another one shows nothing new.
constexpr double shiftSlack = 10.0;
/// An eigenvalue with a larger error says nothing about where it is.
constexpr double lostError = 0.1;
constexpr int mostSolutions = 5;
/// Eigenvalues within this of each other, relatively, have vectors that any solution may turn within their
/// space.
constexpr double closeness = 1e-4;

/// An eigenvalue and the parts of its relative error.
struct Estimate {
  double eigenvalue;
  double ofSolver; ///< rounding in the eigensolver, which another shift can make smaller
  double ofData;   ///< rounding in the matrices

  double Error() const { return ofSolver + ofData; }
  bool IsGood(double goodError) const { return ofSolver <= std::max(goodError, ofData); }
  bool IsLost() const { return !(Error() < lostError); }
};

/// An eigenpair out of the solution that knows it best.
struct FoundMode {
  Estimate estimate;
  double shift;
  double stiffnessShare;
  bool isRigid;
  std::vector<double> vector;
};

/// The shifted problem of one pair, from the first guess of the shift to the finished modes.
///
/// Eigenpairs are known by their position in the ascending order of nu, which is the same for every shift:
/// positive nu in descending order of lambda, then nu = 0, then negative ones.
class ModalSolver {
public:
  ModalSolver(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass, double stiffnessError)
      : m_k(stiffness), m_m(mass), m_pair(stiffness, mass),
        m_stiffnessError(std::max(stiffnessError, roundoff)),
        m_rigidShare(std::max(stiffnessError, leastStiffnessError)) {}

  /// The modes have the eigenpairs alone.
  ModalSolution Solve(int count) {
    m_count = count;
    m_solution.isMassDefinite = m_pair.IsDefinite(0.0, 1.0);
    m_solution.isStiffnessDefinite = m_pair.IsDefinite(1.0, 0.0);
    SolveWith(m_solution.isStiffnessDefinite ? 0.0 : FirstShift());
    for (int solutions = 1; solutions < mostSolutions; ++solutions) {
      std::optional<double> const better = BetterShift();
      if (!better || !m_pair.IsDefinite(1.0, *better)) break;
      SolveWith(*better);
    }
    Finish();
    return std::move(m_solution);
  }

private:
  /// The smallest ratio of diagonal values, which is at least the lowest eigenvalue when M is definite.
  double DiagonalScale() const {
    std::vector<double> const k = DiagonalOf(m_k);
    std::vector<double> const m = DiagonalOf(m_m);
    double scale = infinity;
    for (std::size_t i = 0; i < k.size(); ++i)
      if (k[i] > 0.0 && m[i] > 0.0) scale = std::min(scale, k[i] / m[i]);
    if (std::isfinite(scale)) return scale;
    double const kNorm = m_k.FrobeniusNorm();
    return kNorm > 0.0 ? kNorm / m_m.FrobeniusNorm() : 1.0;
  }

  double FirstShift() {
    double const scale = DiagonalScale();
    for (double const factor : {1e-3, 1.0, 1e3, 1e6, 1e9})
      if (m_pair.IsDefinite(1.0, factor * scale)) return factor * scale;
    throw ToolError(
        ExitCode::Failure,
        Format("neither M nor K is positive definite, nor is K + sigma M for any sigma tried from %.3g "
               "to %.3g; expected a positive combination. %s",
               1e-3 * scale, 1e9 * scale, CauseOfIndefiniteness().c_str()));
  }

  std::string CauseOfIndefiniteness() const {
    std::vector<double> const k = DiagonalOf(m_k);
    std::vector<double> const m = DiagonalOf(m_m);
    for (std::size_t i = 0; i < k.size(); ++i)
      if (k[i] <= 0.0 && m[i] <= 0.0)
        return Format("Unknown %zu has the diagonal values K = %s and M = %s", i + 1, Number(k[i]).c_str(),
                      Number(m[i]).c_str());
    return "Some motion of several unknowns has neither stiffness nor mass, or a negative one of both";
  }

  void SolveWith(double shift) {
    m_shift = shift;
    m_used.push_back(shift);
    m_pair.Solve(shift);
    auto const nu = m_pair.Values();
    m_largestNu = std::max(std::fabs(nu.front()), std::fabs(nu.back()));
    SortFinite();
    KeepBest();
  }

  double Eigenvalue(int k) const { return 1.0 / m_pair.Values()[k] - m_shift; }

  /// x^T M x is nothing, by nu or by what is left of its terms.
  bool IsMassless(int k) const {
    auto const nu = m_pair.Values();
    if (std::fabs(nu[k]) <= static_cast<double>(nu.size()) * roundoff * m_largestNu) return true;
    auto const x = m_pair.Vector(k);
    return std::fabs(QuadraticForm(m_m, x)) <= leastMassShare * AbsoluteForm(m_m, x);
  }

  /// Which eigenpairs of the present solution are finite, lowest first: nu falls as lambda rises. A positive
  /// definite M leaves none infinite, however far nu is lost.
  void SortFinite() {
    auto const nu = m_pair.Values();
    m_finite.clear();
    for (int k = static_cast<int>(nu.size()) - 1; k >= 0; --k)
      if (m_solution.isMassDefinite || !IsMassless(k)) m_finite.push_back(k);
    if (std::ssize(m_finite) < m_solution.finiteEigenvalues) return;
    m_solution.finiteEigenvalues = static_cast<int>(m_finite.size());
    m_solution.infiniteEigenvalues = static_cast<int>(nu.size() - m_finite.size());
    m_solution.negativeMasses = 0;
    if (m_solution.isMassDefinite) return;
    m_solution.negativeMasses =
        static_cast<int>(std::count_if(m_finite.begin(), m_finite.end(), [&](int k) { return nu[k] < 0.0; }));
    if (m_solution.negativeMasses > 0)
      std::stable_sort(m_finite.begin(), m_finite.end(),
                       [&](int a, int b) { return std::fabs(Eigenvalue(a)) < std::fabs(Eigenvalue(b)); });
  }

  Estimate EstimateOf(int k) const {
    auto const x = m_pair.Vector(k);
    double const lambda = Eigenvalue(k);
    double const magnitude = std::fabs(lambda);
    bool const isLost = m_pair.Values()[k] <= 0.0 && m_solution.isMassDefinite;
    double const mass = std::fabs(QuadraticForm(m_m, x));
    if (isLost || !(magnitude > 0.0) || !(mass > 0.0)) return {lambda, infinity, 0.0};
    double const distance = lambda + m_shift;
    double const ofEntries = m_stiffnessError * (AbsoluteForm(m_k, x) / mass) +
                             roundoff * (magnitude + m_shift) * (AbsoluteForm(m_m, x) / mass);
    return {lambda, roundoff * distance * m_largestNu * distance / magnitude, ofEntries / magnitude};
  }

  double StiffnessShare(std::span<double const> x) const {
    double const terms = AbsoluteForm(m_k, x);
    return terms == 0.0 ? 0.0 : std::fabs(QuadraticForm(m_k, x)) / terms;
  }

  /// Where K is positive definite, no motion is free. The eigenvalue is 0 when it is lost in the errors of
  /// K's entries, or in those of the shifted solution.
  bool IsRigid(double eigenvalue, double stiffnessShare) const {
    if (m_solution.isStiffnessDefinite) return false;
    double const ofSolution = 10.0 * m_k.NumberOfRows() * roundoff * m_shift;
    return stiffnessShare <= m_rigidShare || std::fabs(eigenvalue) <= ofSolution;
  }

  FoundMode MakeFound(int k) const {
    auto const x = m_pair.Vector(k);
    Estimate const estimate = EstimateOf(k);
    double const share = StiffnessShare(x);
    return {estimate, m_shift, share, IsRigid(estimate.eigenvalue, share), {x.begin(), x.end()}};
  }

  using Estimates = std::map<int, Estimate>;

  /// Of the modes asked for and those that are known, as the present solution sees them.
  Estimates PresentEstimates() const {
    Estimates present;
    for (int const k :
         std::span(m_finite).first(std::min(m_finite.size(), static_cast<std::size_t>(m_count))))
      present.emplace(k, EstimateOf(k));
    for (auto const& [k, found] : m_best)
      present.emplace(k, EstimateOf(k));
    return present;
  }

  /// Whether the present solution knows [begin, end) better than those before, or alone.
  bool IsBetter(Estimates::const_iterator begin, Estimates::const_iterator end) const {
    double present = 0.0;
    double before = 0.0;
    for (; begin != end; ++begin) {
      auto const known = m_best.find(begin->first);
      if (known == m_best.end()) return true;
      present = std::max(present, begin->second.Error());
      before = std::max(before, known->second.estimate.Error());
    }
    return present < before;
  }

  /// Neighbours are compared as the solution has them that knows both better.
  bool AreClose(Estimates::const_iterator a, Estimates::const_iterator b) const {
    bool const isPresent = IsBetter(a, std::next(b));
    double const x = isPresent ? a->second.eigenvalue : m_best.at(a->first).estimate.eigenvalue;
    double const y = isPresent ? b->second.eigenvalue : m_best.at(b->first).estimate.eigenvalue;
    return std::fabs(x - y) <= closeness * std::max(std::fabs(x), std::fabs(y));
  }

  /// Takes from the present solution what it knows better than those before: close eigenvalues together,
  /// because only vectors of one solution are orthogonal there.
  void KeepBest() {
    Estimates const present = PresentEstimates();
    for (auto begin = present.begin(); begin != present.end();) {
      auto end = std::next(begin);
      while (end != present.end() && AreClose(std::prev(end), end))
        ++end;
      bool const isBetter = IsBetter(begin, end);
      for (; begin != end; ++begin)
        if (isBetter) m_best.insert_or_assign(begin->first, MakeFound(begin->first));
    }
  }

  bool IsNew(double shift) const {
    return std::none_of(m_used.begin(), m_used.end(),
                        [=](double used) { return shift < shiftSlack * used && used < shiftSlack * shift; });
  }

  /// The elastic modes whose errors could be smaller.
  std::vector<Estimate> Improvable() const {
    double const goodError = m_solution.isStiffnessDefinite ? goodErrorUnshifted : goodErrorShifted;
    std::vector<Estimate> improvable;
    for (auto const& [k, found] : m_best)
      if (!found.isRigid && !found.estimate.IsGood(goodError)) improvable.push_back(found.estimate);
    return improvable;
  }

  /// A shift amid the modes that could be better known, and above the magnitude of negative ones; or where
  /// the worst of them is. Empty when there are none.
  std::optional<double> BetterShift() {
    std::vector<Estimate> improvable = Improvable();
    auto const known = std::partition(improvable.begin(), improvable.end(),
                                      [](Estimate const& estimate) { return !estimate.IsLost(); });
    bool const isAnyLost = known != improvable.end() || MayHideFiniteOnes();
    improvable.erase(known, improvable.end());
    if (improvable.empty()) return isAnyLost ? std::optional(EndOfSight()) : std::nullopt;

    double mostNegative = 0.0;
    double lowest = infinity;
    double highest = 0.0;
    for (Estimate const& estimate : improvable) {
      mostNegative = std::min(mostNegative, estimate.eigenvalue);
      lowest = std::min(lowest, std::fabs(estimate.eigenvalue));
      highest = std::max(highest, std::fabs(estimate.eigenvalue));
    }
    double const amid = std::max(std::sqrt(lowest) * std::sqrt(highest), -2.0 * mostNegative);
    if (IsNew(amid)) return amid;
    auto const worst =
        std::max_element(improvable.begin(), improvable.end(),
                         [](Estimate const& a, Estimate const& b) { return a.ofSolver < b.ofSolver; });
    double const atWorst = std::fabs(worst->eigenvalue);
    return IsNew(atWorst) ? std::optional(atWorst) : std::nullopt;
  }

  /// The largest lambda that the present solution tells from an infinite one.
  double EndOfSight() const { return 1.0 / (static_cast<double>(m_pair.Order()) * roundoff * m_largestNu); }

  /// Fewer modes than asked for, and more infinite eigenvalues than unknowns without mass: some of them may
  /// be finite and lost. Another solution looks further, once.
  bool MayHideFiniteOnes() {
    if (m_hasLookedFurther || m_solution.finiteEigenvalues >= m_count) return false;
    std::vector<bool> const heavy = NonzeroRows(m_m);
    auto const massless = std::count(heavy.begin(), heavy.end(), false);
    m_hasLookedFurther = true;
    return m_solution.infiniteEigenvalues > massless;
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

  Mode MakeMode(FoundMode& found) const {
    std::vector<double>& x = found.vector;
    double const mass = std::fabs(QuadraticForm(m_m, x));
    if (!std::isfinite(found.estimate.eigenvalue) || !std::isfinite(mass))
      throw ToolError(ExitCode::Failure, "an eigenvalue that was asked for is beyond the range of a double; "
                                         "expected K and M in units that bring their values closer together");
    double const factor = SignOfLargest(x) / std::sqrt(mass);
    for (double& value : x)
      value *= factor;
    return {found.estimate.eigenvalue,
            found.estimate.Error(),
            found.shift,
            0.0,
            found.stiffnessShare,
            found.isRigid,
            std::move(found.vector)};
  }

  void Finish() {
    std::vector<Mode>& modes = m_solution.modes;
    for (auto at = m_best.rbegin(); at != m_best.rend(); ++at)
      modes.push_back(MakeMode(at->second));
    if (m_solution.negativeMasses > 0)
      std::stable_sort(modes.begin(), modes.end(), [](Mode const& a, Mode const& b) {
        return std::fabs(a.eigenvalue) < std::fabs(b.eigenvalue);
      });
    if (std::ssize(modes) > m_count) modes.resize(static_cast<std::size_t>(m_count));
    for (Mode const& mode : modes)
      m_solution.shifts.push_back(mode.shift);
    std::sort(m_solution.shifts.begin(), m_solution.shifts.end());
    m_solution.shifts.erase(std::unique(m_solution.shifts.begin(), m_solution.shifts.end()),
                            m_solution.shifts.end());
  }

  ORXSrvSparseMatrix const& m_k;
  ORXSrvSparseMatrix const& m_m;
  DensePair m_pair;
  double const m_stiffnessError; ///< of the entries of K, for estimates
  double const m_rigidShare;     ///< a motion with less than this left of x^T K x is rigid
  int m_count = 0;
  double m_shift = 0.0; ///< of the present solution, as what follows
  double m_largestNu = 0.0;
  std::vector<int> m_finite;       ///< eigenpairs with a finite lambda, lowest first
  std::map<int, FoundMode> m_best; ///< by position
  std::vector<double> m_used;      ///< shifts of all solutions
  bool m_hasLookedFurther = false;
  ModalSolution m_solution;
};

/// Unknowns that neither matrix has a value for.
std::vector<int> EmptyUnknowns(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass) {
  std::vector<bool> const stiff = NonzeroRows(stiffness);
  std::vector<bool> const heavy = NonzeroRows(mass);
  std::vector<int> empty;
  for (std::size_t i = 0; i < stiff.size(); ++i)
    if (!stiff[i] && !heavy[i]) empty.push_back(static_cast<int>(i));
  return empty;
}

/// By the matrices as they are given, so that an unknown that is held by mistake shows. Against the terms
/// that cancel, not against ||K|| ||x||: where the mode is soft, the stiffest entries of K would make any
/// residual look small.
double Residual(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass, Mode const& mode) {
  double const lambda = mode.isRigid ? 0.0 : mode.eigenvalue;
  double const weight = mode.isRigid ? mode.shift : std::fabs(mode.eigenvalue);
  std::vector<double> const kx = Product(stiffness, mode.shape);
  std::vector<double> const mx = Product(mass, mode.shape);
  std::vector<double> const kTerms = AbsoluteProduct(stiffness, mode.shape);
  std::vector<double> const mTerms = AbsoluteProduct(mass, mode.shape);
  double residual = 0.0;
  double terms = 0.0;
  for (std::size_t i = 0; i < kx.size(); ++i) {
    residual = std::hypot(residual, kx[i] - lambda * mx[i]);
    terms = std::hypot(terms, kTerms[i] + weight * mTerms[i]);
  }
  return terms == 0.0 ? 0.0 : residual / terms;
}

/// Both matrices without empty unknowns.
ModalSolution SolveDense(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass, int count,
                         double stiffnessError) {
  RequireFits(stiffness.NumberOfRows(), AvailableMemory());
  std::vector<int> held = FindNullMotions(stiffness, mass);
  KeptUnknowns const free(stiffness.NumberOfRows(), held);
  ORXSrvSparseMatrix const freeStiffness = Reduced(stiffness, free);
  ORXSrvSparseMatrix const freeMass = Reduced(mass, free);
  ModalSolution solution = ModalSolver(freeStiffness, freeMass, stiffnessError).Solve(count);
  for (Mode& mode : solution.modes) {
    mode.shape = free.Expanded(mode.shape);
    mode.residual = Residual(stiffness, mass, mode);
  }
  solution.heldUnknowns = std::move(held);
  return solution;
}

/// A negative mass on the diagonal: what the sparse solver does not take.
bool HasNegativeMass(ORXSrvSparseMatrix const& mass) {
  return std::ranges::any_of(DiagonalOf(mass), [](double value) { return value < 0.0; });
}

ModalSolution SolveFilled(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                          ModeChoice const& choice, double stiffnessError) {
  bool const areTheLowest = !choice.near && !choice.interval;
  bool const isDense = stiffness.NumberOfRows() < sparseOrder || HasNegativeMass(mass);
  if (!areTheLowest || !isDense) return SolveSparse(stiffness, mass, choice, stiffnessError);
  return SolveDense(stiffness, mass, choice.count, stiffnessError);
}

} // namespace

double Frequency(Mode const& mode) {
  if (mode.isRigid) return 0.0;
  double const magnitude = std::sqrt(std::fabs(mode.eigenvalue)) / (2.0 * std::numbers::pi);
  return mode.eigenvalue < 0.0 ? -magnitude : magnitude;
}

void RequireMassValue(bool hasValue) {
  if (!hasValue)
    throw ToolError(ExitCode::UnusableInput,
                    "M holds no value other than 0, so K x = lambda M x has no finite eigenvalue");
}

ModalSolution SolveModes(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                         ModeChoice const& choice, double stiffnessError) {
  RequireMassValue(mass.FrobeniusNorm() > 0.0);
  std::vector<int> empty = EmptyUnknowns(stiffness, mass);
  KeptUnknowns const filled(stiffness.NumberOfRows(), empty);
  ModalSolution solution =
      SolveFilled(Reduced(stiffness, filled), Reduced(mass, filled), choice, stiffnessError);
  for (Mode& mode : solution.modes)
    mode.shape = filled.Expanded(mode.shape);
  for (int& unknown : solution.heldUnknowns)
    unknown = filled.Old(unknown);
  solution.emptyUnknowns = std::move(empty);
  return solution;
}

} // namespace orx::tool
