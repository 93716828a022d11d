#include "tools/numerics/SparseModes.h"

#include "mtx/ORXSrvProgress.h"
#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSolveError.h"
#include "solve/ORXSrvSparseFactor.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/SearchProgress.h"
#include "tools/numerics/SymmetricForm.h"
#include "tools/terminal/Interruption.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orx::tool {
namespace {

constexpr double roundoff = std::numeric_limits<double>::epsilon();
/// More motions than this without stiffness and mass are a fault of the model.
constexpr std::size_t mostHeld = 100;

void Find(ORXSrvModes& modes, ModeChoice const& choice) {
  if (choice.memory > 0) modes.SetMemory(choice.memory);
  if (choice.interval) return modes.FindBetween(choice.interval->first, choice.interval->second);
  if (choice.near) return modes.FindNear(*choice.near, choice.count);
  modes.FindLowest(choice.count);
}

/// Errors of K's entries shift an eigenvalue by their share of what x^T K x is summed from. That of their
/// last digit is in the bound of the mode.
double DataError(ORXSrvMode const& mode, double stiffnessError) {
  return stiffnessError > roundoff ? stiffnessError / std::max(mode.strainShare, roundoff) : 0.0;
}

Mode MakeMode(ORXSrvMode const& mode, double const* shape, int order, double shift, double stiffnessError) {
  double const magnitude = std::fabs(mode.eigenvalue);
  double const error = magnitude > 0.0 ? mode.error / magnitude : 1.0;
  bool const isRigid = mode.isRigid || mode.strainShare <= stiffnessError;
  return {mode.eigenvalue,
          error + DataError(mode, stiffnessError),
          shift,
          mode.residual,
          mode.strainShare,
          isRigid,
          {shape, shape + order}};
}

ModalSolution Describe(ORXSrvModes const& modes, int order, ModeChoice const& choice, double stiffnessError) {
  ModalSolution solution;
  solution.isSparse = true;
  solution.method = "block Lanczos";
  solution.shifts = modes.Shifts();
  for (ORXSrvModeCount const& count : modes.Counts())
    solution.counts.push_back({count.from, count.to, count.counted});
  int index = 0;
  for (ORXSrvMode const& mode : modes.Modes())
    solution.modes.push_back(
        MakeMode(mode, modes.Shape(index++), order, modes.Shifts().front(), stiffnessError));
  int const found = static_cast<int>(solution.modes.size());
  solution.finiteEigenvalues = choice.interval ? choice.count : found;
  return solution;
}

} // namespace

ModalSolution SolveSparse(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass,
                          ModeChoice const& choice, double stiffnessError) {
  WorkFolder const folder;
  std::vector<int> held;
  ORXSrvProgress::Report(SearchProgress::start, 1, 1);
  for (;;) {
    KeptUnknowns const free(stiffness.NumberOfRows(), held);
    ORXSrvSparseMatrix const k = Reduced(stiffness, free), m = Reduced(mass, free);
    try {
      ORXSrvModes modes(k, m);
      modes.SetFolder(folder.Path().c_str());
      Find(modes, choice);
      ModalSolution solution = Describe(modes, free.Count(), choice, stiffnessError);
      for (Mode& mode : solution.modes)
        mode.shape = free.Expanded(mode.shape);
      solution.heldUnknowns = std::move(held);
      return solution;
    } catch (ORXSrvSolveError const& e) {
      bool const canHold =
          e.ErrorCode() == ORXSrvSolveError::singular && e.Unknown() >= 0 && held.size() < mostHeld;
      if (!canHold) throw ToolError(ExitCode::Failure, e.AsString().AsText());
      held.push_back(free.Old(e.Unknown()));
      std::ranges::sort(held);
    }
  }
}

std::string ExplainFactorization(ORXSrvSparseMatrix const& stiffness, ORXSrvSparseMatrix const& mass) {
  ORXSrvSparseFactor factor;
  return EstimateText("K - sigma M", stiffness.NumberOfRows(), factor.Analyse(stiffness, mass));
}

} // namespace orx::tool
