#include "solve/ORXSrvSparseFactor.h"

#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/impl/Engine.h"
#include "solve/impl/InverseNorm.h"
#include "solve/impl/NullMotions.h"
#include "solve/search/SolveErrors.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <string>

using namespace orx;

namespace {

/// Vectors that are solved for at a time. More share one pass over the factor, and take more memory.
constexpr int vectorsAtATime = 32;

/// A pivot below this share of the largest entry may be zero.
constexpr double doubtfulPivot = 1e-10;

/// Terms below this share of what they could be are next to nothing (Arioli, Demmel, Duff 1989).
constexpr double wholeRow = 1e-10;

[[noreturn]] void Refuse(std::string const& text, char const* file = __builtin_FILE(),
                         int line = __builtin_LINE()) {
  RaiseSolveError(ORXSrvSolveError::illegalInput, "ORXSrvSparseFactor" + text, -1, file, line);
}

std::string ShapeOf(ORXSrvSparseMatrix const& a) { return ShapeText(a.NumberOfRows(), a.NumberOfColumns()); }

void RequireAssembled(ORXSrvSparseMatrix const& a, std::string const& name) {
  if (a.View().rows != a.NumberOfRows())
    Refuse(": " + name + " is not assembled, or has more rows than when it was: " +
           std::to_string(a.NumberOfRows()) + ", in its arrays " + std::to_string(a.View().rows) + ".");
}

void RequireSquare(ORXSrvSparseMatrix const& k, ORXSrvSparseMatrix const* m) {
  RequireAssembled(k, "K");
  if (k.NumberOfRows() != k.NumberOfColumns() || k.NumberOfRows() == 0)
    Refuse(": K is " + ShapeOf(k) + "; expected a square matrix with rows.");
  if (m == nullptr) return;
  RequireAssembled(*m, "M");
  if (m->NumberOfRows() != k.NumberOfRows() || m->NumberOfColumns() != k.NumberOfRows())
    Refuse(": M is " + ShapeOf(*m) + "; expected " + ShapeOf(k) + ", as K is.");
}

ShiftedMatrix MakeMatrix(ORXSrvSparseMatrix const& k, double shift, ORXSrvSparseMatrix const* m) {
  RequireSquare(k, m);
  bool const isSymmetric = k.IsSymmetric() && (m == nullptr || m->IsSymmetric());
  CompressedRowsView const rowsK = k.View();
  CompressedRowsView const rowsM = m != nullptr ? m->View() : CompressedRowsView{};
  ShiftedMatrix matrix(rowsK, shift, m != nullptr ? &rowsM : nullptr, isSymmetric);
  if (std::int64_t const at = matrix.FindNotFinite(); at >= 0)
    Refuse(": entry (" + std::to_string(matrix.Rows()[at]) + ", " + std::to_string(matrix.Columns()[at]) +
           "), counted from 1, is " + NumberText(matrix.Values()[at]) + "; expected a finite number.");
  return matrix;
}

/// "3, 7, 8 and 12 more", counted from 1.
std::string ListUnknowns(std::vector<int> const& unknowns) {
  constexpr std::size_t most = 8;
  std::string text;
  for (std::size_t k = 0; k < std::min(most, unknowns.size()); ++k)
    text += (k > 0 ? ", " : "") + std::to_string(unknowns[k] + 1);
  if (unknowns.size() > most) text += " and " + std::to_string(unknowns.size() - most) + " more";
  return text;
}

} // namespace

struct ORXSrvSparseFactor::State {
  std::int64_t memory = 0; ///< 0: the default
  std::string folder;
  bool holdsNullUnknowns = false;
  ShiftedMatrix matrix; ///< the last one
  std::optional<Engine> engine;
  bool hasFactor = false;
  ORXSrvFactorEstimate estimate;
  ORXSrvFactorFacts facts;

  EngineLimits Limits() const { return {memory > 0 ? memory : ORXSrvDenseMatrix::WorkMemory(), folder}; }

  /// Takes the matrix over; analyses it unless its pattern is the last one.
  void Prepare(ShiftedMatrix&& next) {
    bool const isKnown = engine && next.HasPatternOf(matrix);
    hasFactor = false;
    if (!isKnown) engine.reset();
    matrix = std::move(next);
    if (isKnown) return;
    engine.emplace(matrix);
    EngineEstimate const& e = engine->Estimate();
    estimate = {e.entries, e.bytes, e.bytesOnDisk, e.operations};
    ORXSrvProgress::Report("ORXSrvSparseFactor::Analyse", 1, 2);
  }

  void Factorize(ShiftedMatrix&& next) {
    Prepare(std::move(next));
    facts = {};
    std::vector<int> unknowns;
    EngineFacts const found = FactorizeHoldingNullMotions(unknowns);
    facts.order = matrix.Order();
    facts.isSymmetric = matrix.IsSymmetric();
    facts.entries = found.entries;
    facts.bytes = found.bytes;
    facts.isOnDisk = found.isOnDisk;
    facts.negative = found.negative;
    facts.zero = static_cast<int>(unknowns.size());
    facts.positive = facts.isSymmetric ? facts.order - facts.negative - facts.zero : 0;
    facts.delayedPivots = found.delayed;
    facts.nullUnknowns = std::move(unknowns);
    hasFactor = true;
  }

  /// Factorizes with unknowns held until no motion without stiffness is left; `unknowns` becomes their list.
  EngineFacts FactorizeHoldingNullMotions(std::vector<int>& unknowns) {
    std::vector<double> const largest = matrix.LargestInRows();
    for (int i = 0; i < matrix.Order(); ++i)
      if (largest[static_cast<std::size_t>(i)] == 0.0) unknowns.push_back(i);
    double zeroPivot = 0.0;
    for (;;) {
      ShiftedMatrix held;
      if (!unknowns.empty()) (held = matrix).Hold(unknowns);
      ShiftedMatrix const& a = unknowns.empty() ? matrix : held;
      EngineFacts found = engine->Factorize(a, Limits(), zeroPivot);
      ORXSrvProgress::Report("ORXSrvSparseFactor::Factorize", 2, 2);
      std::vector<int> more = found.nullUnknowns;
      if (more.empty()) {
        FactorTest test = TestFactor(*engine, a);
        facts.backwardError = test.error;
        more = std::move(test.nullUnknowns);
      }
      if (more.empty()) return found;
      // Very many motions, such as one at each node, would take long one by one: then pivots tell them.
      zeroPivot = more.size() == mostNullMotions ? doubtfulPivot : 0.0;
      unknowns.insert(unknowns.end(), more.begin(), more.end());
      std::ranges::sort(unknowns);
    }
  }

  void RequireFactor(char const* operation) const {
    if (!hasFactor) Refuse(std::string(operation) + ": there is no factor. Factorize comes before.");
  }

  void RequireSolvable() const {
    RequireFactor("::Solve");
    if (facts.zero > 0 && !holdsNullUnknowns)
      RaiseSolveError(ORXSrvSolveError::singular,
                      "ORXSrvSparseFactor::Solve: the matrix is singular, " + std::to_string(facts.zero) +
                          (facts.zero == 1 ? " motion meets" : " independent motions meet") +
                          " no resistance; held they are at unknowns (counted from 1) " +
                          ListUnknowns(facts.nullUnknowns) + ".",
                      facts.nullUnknowns.front());
  }

  void SolveGroup(double* x, int count) {
    engine->Solve(x, count, vectorsAtATime);
    for (int const unknown : facts.nullUnknowns) // they are solved by themselves
      for (int v = 0; v < count; ++v)
        x[std::int64_t{v} * facts.order + unknown] = 0.0;
  }

  void Solve(double* x, int count) {
    for (int first = 0; first < count; first += vectorsAtATime) {
      int const group = std::min(vectorsAtATime, count - first);
      SolveGroup(x + std::int64_t{first} * facts.order, group);
      ORXSrvProgress::Report("ORXSrvSparseFactor::Solve", first / vectorsAtATime + 1,
                             (count + vectorsAtATime - 1) / vectorsAtATime);
    }
  }
};

ORXSrvSparseFactor::ORXSrvSparseFactor() : m_state(std::make_unique<State>()) {}

ORXSrvSparseFactor::~ORXSrvSparseFactor() = default;

// Settings

void ORXSrvSparseFactor::SetMemory(std::int64_t bytes) noexcept { m_state->memory = bytes; }

void ORXSrvSparseFactor::SetFolder(char const* path) { m_state->folder = path; }

void ORXSrvSparseFactor::HoldNullUnknowns(bool held) noexcept { m_state->holdsNullUnknowns = held; }

// Factorization

ORXSrvFactorEstimate const& ORXSrvSparseFactor::Analyse(ORXSrvSparseMatrix const& k) {
  m_state->Prepare(MakeMatrix(k, 0.0, nullptr));
  return m_state->estimate;
}

ORXSrvFactorEstimate const& ORXSrvSparseFactor::Analyse(ORXSrvSparseMatrix const& k,
                                                        ORXSrvSparseMatrix const& m) {
  m_state->Prepare(MakeMatrix(k, 0.0, &m));
  return m_state->estimate;
}

void ORXSrvSparseFactor::Factorize(ORXSrvSparseMatrix const& k) {
  m_state->Factorize(MakeMatrix(k, 0.0, nullptr));
}

void ORXSrvSparseFactor::Factorize(ORXSrvSparseMatrix const& k, double shift, ORXSrvSparseMatrix const& m) {
  m_state->Factorize(MakeMatrix(k, shift, &m));
}

bool ORXSrvSparseFactor::HasFactor() const noexcept { return m_state->hasFactor; }

ORXSrvFactorEstimate const& ORXSrvSparseFactor::Estimate() const noexcept { return m_state->estimate; }

ORXSrvFactorFacts const& ORXSrvSparseFactor::Facts() const noexcept { return m_state->facts; }

// Solution

void ORXSrvSparseFactor::Solve(double* x, int count) {
  m_state->RequireSolvable();
  if (count < 0) Refuse("::Solve: " + std::to_string(count) + " vectors asked for; expected none or more.");
  m_state->Solve(x, count);
}

void ORXSrvSparseFactor::Solve(ORXSrvMatrix& x) {
  m_state->RequireSolvable();
  if (x.IsDiagonal() || x.NumberOfRows() != m_state->facts.order)
    Refuse("::Solve: x is " + ShapeText(x.NumberOfRows(), x.NumberOfColumns()) +
           "; expected a full matrix of " + std::to_string(m_state->facts.order) + " rows.");
  m_state->Solve(x.Values(), x.NumberOfColumns());
}

void ORXSrvSparseFactor::Solve(ORXSrvDenseMatrix& x) {
  m_state->RequireSolvable();
  int const order = m_state->facts.order;
  if (x.NumberOfRows() != order)
    Refuse("::Solve: x is " + ShapeText(x.NumberOfRows(), x.NumberOfColumns()) + "; expected " +
           std::to_string(order) + " rows.");
  int const width = std::max(1, std::min(x.MaxNumberOfColumnsInBlock(), 4 * vectorsAtATime));
  for (int first = 0; first < x.NumberOfColumns(); first += width) {
    int const last = std::min(first + width, x.NumberOfColumns()) - 1;
    ORXSrvMatrix columns(order, last - first + 1);
    x.GetColumns(first, last, columns);
    m_state->Solve(columns.Values(), columns.NumberOfColumns());
    x.SetColumns(first, last, columns);
  }
}

double ORXSrvSparseFactor::SolveRefined(double const* b, double* x, int count) {
  m_state->RequireSolvable();
  int const order = m_state->facts.order;
  std::int64_t const values = std::int64_t{order} * std::max(count, 0);
  std::less<double const*> const isBefore;
  if (isBefore(b, x + values) && isBefore(x, b + values))
    Refuse("::SolveRefined: the " + std::to_string(count) +
           " vectors of b and x overlap; expected two arrays.");
  std::vector<double> residual(static_cast<std::size_t>(order)), weights(residual.size());
  std::vector<double> const largest = m_state->matrix.LargestInRows();
  auto const measure = [&](double const* load, double const* solution) {
    m_state->matrix.ComputeResidual(solution, load, residual.data(), weights.data());
    double longest = 0.0, worst = 0.0;
    for (int i = 0; i < order; ++i)
      longest = std::max(longest, std::abs(solution[i]));
    for (int i = 0; i < order; ++i) {
      // Rows whose terms are all next to nothing are measured by the solution as a whole.
      double const whole = largest[i] * longest;
      double const weight = weights[i] > wholeRow * whole ? weights[i] : weights[i] + whole;
      if (weight > 0.0) worst = std::max(worst, std::abs(residual[i]) / weight);
    }
    return worst;
  };
  std::copy_n(b, std::int64_t{order} * count, x);
  Solve(x, count);
  double worst = 0.0;
  for (int v = 0; v < count; ++v) {
    double const* const load = b + std::int64_t{v} * order;
    double* const solution = x + std::int64_t{v} * order;
    measure(load, solution);
    m_state->SolveGroup(residual.data(), 1);
    for (int i = 0; i < order; ++i)
      solution[i] += residual[i];
    worst = std::max(worst, measure(load, solution));
  }
  return worst;
}

double ORXSrvSparseFactor::EstimateCondition() {
  m_state->RequireFactor("::EstimateCondition");
  if (m_state->facts.zero > 0) return std::numeric_limits<double>::infinity();
  int solves = 0;
  return m_state->matrix.OneNorm() *
         EstimateInverseNorm(m_state->facts.order, [&](double* x, bool transposed) {
           m_state->engine->Solve(x, 1, vectorsAtATime, transposed);
           ORXSrvProgress::Report("ORXSrvSparseFactor::EstimateCondition", ++solves, mostSolvesOfEstimate);
         });
}
