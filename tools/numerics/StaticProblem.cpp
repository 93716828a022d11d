#include "tools/numerics/StaticProblem.h"

#include "tools/numerics/SymmetricForm.h"
#include "tools/terminal/Interruption.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>

namespace orx::tool {
namespace {

std::vector<int> UnknownsOf(std::vector<HeldUnknown> const& held) {
  std::vector<int> unknowns(held.size());
  std::ranges::transform(held, unknowns.begin(), &HeldUnknown::unknown);
  return unknowns;
}

/// K u for each column.
Columns Product(ORXSrvSparseMatrix const& k, Columns const& u) {
  Columns product(u.rows, u.count);
  k.Multiply(u.values.data(), u.count, product.values.data(), false);
  return product;
}

double Norm(std::vector<double> const& x) {
  double const largest = std::ranges::max(x, {}, [](double value) { return std::fabs(value); });
  if (largest == 0.0) return 0.0;
  double sum = 0.0;
  for (double const value : x)
    sum += value / largest * (value / largest);
  return std::fabs(largest) * std::sqrt(sum);
}

/// One run of K u = f.
class StaticRun {
public:
  explicit StaticRun(StaticProblem const& problem)
      : m_problem(problem), m_free(problem.loads.rows, UnknownsOf(problem.held)) {}

  StaticSolution Solve(std::function<void(int, ORXSrvFactorEstimate const&)> const& explain) {
    m_solution.displacements = Columns(m_problem.loads.rows, m_problem.loads.count);
    for (int j = 0; j < m_problem.loads.count; ++j)
      for (HeldUnknown const& held : m_problem.held)
        m_solution.displacements.Column(j)[held.unknown] = held.value;
    if (m_free.Count() > 0) SolveFree(explain);
    ComputeReactions();
    return std::move(m_solution);
  }

private:
  void SolveFree(std::function<void(int, ORXSrvFactorEstimate const&)> const& explain) {
    WorkFolder const folder;
    ORXSrvSparseFactor factor;
    factor.SetFolder(folder.Path().c_str());
    Factorize(factor, explain);
    Columns const loads = LoadsOnFree();
    Columns free(loads.rows, loads.count);
    m_solution.backwardError = factor.SolveRefined(loads.values.data(), free.values.data(), loads.count);
    m_solution.condition = factor.EstimateCondition();
    for (int j = 0; j < loads.count; ++j) {
      for (int i = 0; i < free.rows; ++i)
        m_solution.displacements.Column(j)[m_free.Old(i)] = free.Column(j)[i];
      m_loadNorms.push_back(Norm({loads.Column(j), loads.Column(j) + loads.rows}));
    }
  }

  void Factorize(ORXSrvSparseFactor& factor,
                 std::function<void(int, ORXSrvFactorEstimate const&)> const& explain) {
    ORXSrvSparseMatrix const free = Reduced(m_problem.stiffness, m_free);
    if (m_problem.memory > 0) factor.SetMemory(m_problem.memory);
    ORXSrvFactorEstimate const estimate = factor.Analyse(free);
    if (explain) explain(free.NumberOfRows(), estimate);
    factor.Factorize(free);
    m_solution.facts = factor.Facts();
    if (m_solution.facts.zero > 0) RefuseNullUnknowns(NonzeroRows(free));
  }

  [[noreturn]] void RefuseNullUnknowns(std::vector<bool> const& hasStiffness) const {
    std::vector<int> motions, loose;
    for (int const unknown : m_solution.facts.nullUnknowns)
      (hasStiffness[unknown] ? motions : loose).push_back(m_free.Old(unknown));
    RefuseSingular(loose, motions);
  }

  /// f - K u of the held unknowns, without their rows.
  Columns LoadsOnFree() const {
    Columns loads(m_free.Count(), m_problem.loads.count);
    bool const isMoved =
        std::ranges::any_of(m_problem.held, [](HeldUnknown const& held) { return held.value != 0.0; });
    Columns const byHeld = isMoved ? Product(m_problem.stiffness, m_solution.displacements) : Columns();
    for (int j = 0; j < loads.count; ++j)
      for (int i = 0; i < loads.rows; ++i) {
        int const old = m_free.Old(i);
        loads.Column(j)[i] = m_problem.loads.Column(j)[old] - (isMoved ? byHeld.Column(j)[old] : 0.0);
      }
    return loads;
  }

  void ComputeReactions() {
    Columns difference = Product(m_problem.stiffness, m_solution.displacements);
    std::ranges::transform(difference.values, m_problem.loads.values, difference.values.begin(),
                           std::minus<>());
    m_solution.reactions = Columns(static_cast<int>(m_problem.held.size()), difference.count);
    for (int j = 0; j < difference.count; ++j) {
      double* reaction = m_solution.reactions.Column(j);
      for (HeldUnknown const& held : m_problem.held)
        *reaction++ = difference.Column(j)[held.unknown];
      if (m_free.Count() > 0) MeasureResidual(difference.Column(j), m_loadNorms[j]);
    }
  }

  void MeasureResidual(double const* difference, double loadNorm) {
    std::vector<double> residual(static_cast<std::size_t>(m_free.Count()));
    for (int i = 0; i < m_free.Count(); ++i)
      residual[i] = difference[m_free.Old(i)];
    double const norm = Norm(residual);
    if (norm > 0.0) m_solution.residual = std::max(m_solution.residual, norm / loadNorm);
  }

  StaticProblem const& m_problem;
  KeptUnknowns m_free;
  std::vector<double> m_loadNorms; ///< of the free unknowns
  StaticSolution m_solution;
};

} // namespace

void RefuseSingular(std::vector<int> const& loose, std::vector<int> const& motions) {
  std::string text = "K is singular";
  if (!loose.empty())
    text += ", " + Counted(std::ssize(loose), "unknown has", "unknowns have") +
            " no stiffness: " + ShortList(loose);
  if (!motions.empty())
    text += ", " + Counted(std::ssize(motions), "motion", "motions") +
            " without stiffness, of a free body or a mechanism, which " +
            (motions.size() == 1 ? "unknown " : "unknowns ") + ShortList(motions) + " would hold";
  throw ToolError(ExitCode::Failure, text + "; --fix FILE holds unknowns, orxmtx check looks for the cause");
}

StaticSolution SolveStatic(StaticProblem const& problem,
                           std::function<void(int order, ORXSrvFactorEstimate const&)> const& explain) {
  return StaticRun(problem).Solve(explain);
}

} // namespace orx::tool
