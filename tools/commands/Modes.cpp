#include "tools/commands/Modes.h"

#include "tools/commands/ModesReport.h"
#include "tools/formats/MatrixSource.h"
#include "tools/formats/ShapesFile.h"
#include "tools/numerics/ModalProblem.h"
#include "tools/numerics/SearchProgress.h"
#include "tools/numerics/SparseModes.h"
#include "tools/terminal/Program.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

namespace orx::tool {

void RequireUsableNames(ModesOptions const& options) {
  RefuseTwoStandardInputs({options.stiffnessPath, options.massPath});
  std::error_code ignored;
  for (std::string const& input : {PathOf(options.stiffnessPath), PathOf(options.massPath)})
    if (!options.shapesPath.empty() && std::filesystem::equivalent(options.shapesPath, input, ignored))
      throw ToolError(ExitCode::WrongUsage,
                      "--shapes names the input file '" + input + "'; expected another file");
}

std::string MassName(ModesOptions const& options) {
  if (!options.massPath.empty()) return options.massPath;
  std::string database = PathOf(options.stiffnessPath);
  if (options.stiffnessPath != "-") RequireReadable(database);
  if (HoldsDatabase(database)) return database;
  throw ToolError(ExitCode::WrongUsage,
                  "M is required unless K is in a database; see " + ProgramName() + " --help");
}

void RequireTwoMatrices(ModesOptions const& options, SourceFacts const& k, SourceFacts const& m) {
  if (!options.massPath.empty() || k.path != m.path) return;
  throw ToolError(ExitCode::UnusableInput,
                  "'" + k.path + "' is the only matrix that can be meant by K and by M; expected two names");
}

void PrintModes(ModesOptions const& options, std::function<void(std::string const&)> const& print) {
  RequireUsableNames(options);
  std::string const massName = MassName(options);
  std::optional<ShapesFile> shapes;
  if (!options.shapesPath.empty()) shapes.emplace(options.shapesPath);
  MatrixSource const k("K", options.stiffnessPath);
  MatrixSource const m("M", massName);
  RequireTwoMatrices(options, k, m);
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
    shapes->Write(
        solution.modes, order, [&](int mode) { return solution.modes[mode].shape.data(); }, k.labels);
  }
  print(ShapesFileText(options.shapesPath));
}

} // namespace orx::tool
