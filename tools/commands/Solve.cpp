#include "tools/commands/Solve.h"

#include "tools/commands/SolutionFiles.h"
#include "tools/commands/SolveReport.h"
#include "tools/formats/Loads.h"
#include "tools/formats/MatrixSource.h"
#include "tools/formats/ModelText.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/StaticProblem.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <optional>
#include <vector>

namespace orx::tool {

void RequireUsableNames(SolveOptions const& o) {
  RefuseTwoStandardInputs({o.stiffnessPath, o.loadsPath, o.heldPath});
  if (!o.reactionsPath.empty() && o.heldPath.empty())
    throw ToolError(ExitCode::WrongUsage, "--reactions needs --fix: only held unknowns have reactions");
  if (!o.outPath.empty() && o.outPath == o.reactionsPath)
    throw ToolError(ExitCode::WrongUsage,
                    "OUT and --reactions are both '" + o.outPath + "'; expected two files");
}

void PrintSolution(SolveOptions const& options, std::function<void(std::string const&)> const& print) {
  RequireUsableNames(options);
  SolutionFiles results(options);
  MatrixSource const k("K", options.stiffnessPath);
  RequireAsStated(k);
  Columns const loads = ReadLoads(options.loadsPath, k);
  std::vector<HeldUnknown> held;
  if (!options.heldPath.empty()) held = ReadHeldUnknowns(InputFile(options.heldPath), k.Order());
  ORXSrvSparseMatrix const stiffness = SquareMatrixOf(k, k.Order());
  StaticProblem const problem{stiffness, loads, held, options.memory};

  StaticSolution const solution = [&] {
    Progress const progress(Format("solving for %d unknowns", k.Order()));
    return SolveStatic(problem, [&](int order, ORXSrvFactorEstimate const& estimate) {
      if (options.explains) print(EstimateText("K", order, estimate));
    });
  }();
  print(ProblemText(k, {options.loadsPath, loads.count, options.heldPath, std::ssize(held)}) +
        FactsText(solution));
  results.Write(held, solution, k.labels, print);
}

} // namespace orx::tool
