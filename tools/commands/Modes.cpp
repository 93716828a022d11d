#include "tools/commands/Modes.h"

#include "tools/commands/ModesReport.h"
#include "tools/formats/MatrixSource.h"
#include "tools/formats/ShapesFile.h"
#include "tools/numerics/ModalProblem.h"
#include "tools/numerics/SearchProgress.h"
#include "tools/numerics/SparseModes.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <system_error>

namespace orx::tool {

void RequireUsableNames(ModesOptions const& options) {
  RefuseTwoStandardInputs({options.stiffnessPath, options.massPath});
  std::error_code ignored;
  for (std::string const& input : {std::cref(options.stiffnessPath), std::cref(options.massPath)})
    if (!options.shapesPath.empty() && std::filesystem::equivalent(options.shapesPath, input, ignored))
      throw ToolError(ExitCode::WrongUsage,
                      "--shapes names the input file '" + input + "'; expected another file");
}

void PrintModes(ModesOptions const& options, std::function<void(std::string const&)> const& print) {
  RequireUsableNames(options);
  std::optional<ShapesFile> shapes;
  if (!options.shapesPath.empty()) shapes.emplace(options.shapesPath);
  MatrixSource const k("K", options.stiffnessPath);
  MatrixSource const m("M", options.massPath);
  RequireAsStated(k);
  RequireAsStated(m);
  RequireOneOrder(k, m);

  int const order = std::max(k.Order(), m.Order());
  ORXSrvSparseMatrix const stiffness = SymmetricFormOf(k, order);
  ORXSrvSparseMatrix const mass = SymmetricFormOf(m, order);
  if (options.explains) print(ExplainFactorization(stiffness, mass));
  ModalSolution const solution = [&] {
    Progress progress(Format("modes of order %d", order));
    SearchProgress const search(progress);
    return SolveModes(stiffness, mass, options.choice, k.symmetry.worstDifference);
  }();

  print(ModesText(k, m, solution, options.choice.count));
  if (!shapes) return;
  {
    Progress const progress("writing " + options.shapesPath);
    shapes->Write(solution.modes, order);
  }
  print(ShapesFileText(options.shapesPath));
}

} // namespace orx::tool
