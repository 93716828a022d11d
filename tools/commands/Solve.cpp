#include "tools/commands/Solve.h"

#include "tools/commands/SolveReport.h"
#include "tools/formats/Loads.h"
#include "tools/formats/MatrixSource.h"
#include "tools/formats/ModelText.h"
#include "tools/formats/ResultFile.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/StaticProblem.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <optional>
#include <vector>

namespace orx::tool {
namespace {

std::vector<double> RowOf(Columns const& columns, int row) {
  std::vector<double> values(static_cast<std::size_t>(columns.count));
  for (int j = 0; j < columns.count; ++j)
    values[j] = columns.Column(j)[row];
  return values;
}

std::string DisplacementsText(Columns const& displacements) {
  std::string text = HeadText("displacement", displacements.count);
  for (int i = 0; i < displacements.rows; ++i)
    text += RowText(i, RowOf(displacements, i));
  return text;
}

std::string ReactionsText(std::vector<HeldUnknown> const& held, Columns const& reactions) {
  std::string text = HeadText("reaction", reactions.count);
  for (int i = 0; i < reactions.rows; ++i)
    text += RowText(held[i].unknown, RowOf(reactions, i));
  return text;
}

void AddRow(ORXSrvSparseMatrix& matrix, int unknown, Columns const& columns, int row) {
  for (int j = 0; j < columns.count; ++j)
    matrix.AddData(static_cast<std::uint32_t>(unknown), static_cast<std::uint32_t>(j),
                   columns.Column(j)[row]);
}

ORXSrvSparseMatrix MatrixOf(Columns const& displacements) {
  ORXSrvSparseMatrix matrix(displacements.rows, displacements.count);
  for (int i = 0; i < displacements.rows; ++i)
    AddRow(matrix, i, displacements, i);
  matrix.EndAssembly();
  return matrix;
}

ORXSrvSparseMatrix MatrixOf(std::vector<HeldUnknown> const& held, Columns const& reactions, int order) {
  ORXSrvSparseMatrix matrix(order, reactions.count);
  for (int i = 0; i < reactions.rows; ++i)
    AddRow(matrix, held[i].unknown, reactions, i);
  matrix.EndAssembly();
  return matrix;
}

/// The files that a solution goes to, if any.
class ResultFiles {
public:
  explicit ResultFiles(SolveOptions const& o) : m_options(o) {
    std::vector<std::string> const inputs{o.stiffnessPath, o.loadsPath, o.heldPath};
    if (!o.outPath.empty()) m_displacements.emplace("OUT", o.outPath, inputs);
    if (!o.reactionsPath.empty()) m_reactions.emplace("--reactions", o.reactionsPath, inputs);
  }

  void Write(StaticProblem const& problem, StaticSolution const& s, std::span<int const> labels,
             std::function<void(std::string const&)> const& print) {
    if (!m_displacements) print(DisplacementsText(s.displacements));
    if (!m_reactions && !problem.held.empty()) print(ReactionsText(problem.held, s.reactions));
    if (m_displacements) {
      m_displacements->Write("displacements", MatrixOf(s.displacements), labels);
      print(Note("displacements: " + m_options.outPath + ", unknowns by loads"));
    }
    if (!m_reactions) return;
    m_reactions->Write("reactions", MatrixOf(problem.held, s.reactions, problem.loads.rows), labels);
    print(Note("reactions: " + m_options.reactionsPath + ", unknowns by loads"));
  }

private:
  SolveOptions const& m_options;
  std::optional<ResultFile> m_displacements, m_reactions;
};

} // namespace

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
  ResultFiles results(options);
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
  results.Write(problem, solution, k.labels, print);
}

} // namespace orx::tool
