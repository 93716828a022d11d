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

Mode MakeMode(ORXSrvMode const& mode, std::vector<double> shape, double shift, double stiffnessError) {
  double const magnitude = std::fabs(mode.eigenvalue);
  double const error = magnitude > 0.0 ? mode.error / magnitude : 1.0;
  bool const isRigid = mode.isRigid || mode.strainShare <= stiffnessError;
  return {mode.eigenvalue,
          error + DataError(mode, stiffnessError),
          shift,
          mode.residual,
          mode.strainShare,
          isRigid,
          std::move(shape)};
}

} // namespace

ModalSolution DescribeSearch(SearchFindings const& found,
                             std::function<std::vector<double>(int)> const& shape, ModeChoice const& choice,
                             double stiffnessError) {
  ModalSolution solution;
  solution.isSparse = true;
  solution.method = "block Lanczos";
  solution.shifts = found.shifts;
  for (ORXSrvModeCount const& count : found.counts)
    solution.counts.push_back({count.from, count.to, count.counted});
  int index = 0;
  for (ORXSrvMode const& mode : found.modes)
    solution.modes.push_back(MakeMode(mode, shape(index++), found.shifts.front(), stiffnessError));
  int const count = static_cast<int>(solution.modes.size());
  solution.finiteEigenvalues = choice.interval ? choice.count : count;
  return solution;
}

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
      auto const shape = [&](int mode) {
        double const* const components = modes.Shape(mode);
        return free.Expanded({components, components + free.Count()});
      };
      ModalSolution solution =
          DescribeSearch({modes.Modes(), modes.Counts(), modes.Shifts()}, shape, choice, stiffnessError);
      solution.heldUnknowns = std::move(held);
      return solution;
    } catch (ORXSrvSolveError const& e) {
      bool const canHold =
          e.ErrorCode() == ORXSrvSolveError::singular && e.Unknown() >= 0 && held.size() < mostHeldMotions;
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
