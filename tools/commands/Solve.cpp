#include "tools/commands/Solve.h"

#include "tools/formats/MatrixSource.h"
#include "tools/formats/ModelText.h"
#include "tools/formats/ResultFile.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/StaticProblem.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

namespace orx::tool {
namespace {

std::string LoadsName(std::string const& path) { return "F ('" + path + "')"; }

void RequireRows(std::string const& path, int rows, bool isWhole, MatrixSource const& k) {
  if (rows == k.Order() || (rows < k.Order() && !isWhole)) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s has %d rows; %s has order %d, expected the same", LoadsName(path).c_str(), rows,
                         k.FullName().c_str(), k.Order()));
}

/// Loads and displacements, both with a copy, and the residual are in memory at a time.
void RequireRoom(std::string const& path, int order, int columns) {
  std::optional<std::uint64_t> const available = AvailableMemory();
  double const bytes = 8.0 * 6.0 * order * columns;
  if (!available || bytes <= static_cast<double>(*available)) return;
  throw ToolError(ExitCode::Failure,
                  Format("%s: %d columns of %d unknowns take %s of memory, %s are available",
                         LoadsName(path).c_str(), columns, order, Gigabytes(bytes).c_str(),
                         Gigabytes(static_cast<double>(*available)).c_str()));
}

Columns ReadColumn(InputFile const& file, MatrixSource const& k) {
  std::vector<double> values = ReadColumnOfValues(file);
  RequireRows(file.Name(), static_cast<int>(values.size()), true, k);
  Columns loads;
  loads.rows = k.Order();
  loads.count = 1;
  loads.values = std::move(values);
  return loads;
}

Columns ReadMatrix(InputFile const& file, FileKind kind, MatrixSource const& k) {
  ORXSrvSparseMatrix const entries = LoadMatrix(file, {kind, {}, 0});
  RequireRows(file.Name(), entries.NumberOfRows(), HasHeader(kind), k);
  if (entries.NumberOfColumns() == 0)
    throw ToolError(ExitCode::UnusableInput,
                    LoadsName(file.Name()) + " has no column; expected one for each load");
  RequireRoom(file.Name(), k.Order(), entries.NumberOfColumns());
  Columns loads(k.Order(), entries.NumberOfColumns());
  ForEachEntry(entries.View(), [&](int row, int column, double value) { loads.Column(column)[row] = value; });
  return loads;
}

/// A value for each line, or a matrix of any type. Text without a header may end before the last unknown.
Columns ReadLoads(std::string const& path, MatrixSource const& k) {
  InputFile const file(path);
  FileKind const kind = KindToRead(file, {});
  bool const isColumn = kind == FileKind::Triplets && IsColumnOfValues(file);
  Columns loads = isColumn ? ReadColumn(file, k) : ReadMatrix(file, kind, k);
  auto const bad = std::ranges::find_if_not(loads.values, [](double value) { return std::isfinite(value); });
  if (bad == loads.values.end()) return loads;
  std::int64_t const at = bad - loads.values.begin();
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the value at (%d, %d) is %s, expected a finite number",
                         LoadsName(file.Name()).c_str(), static_cast<int>(at % loads.rows) + 1,
                         static_cast<int>(at / loads.rows) + 1, Number(*bad).c_str()));
}

std::string NameOf(std::string const& path) { return path == "-" ? "standard input" : path; }

std::string ProblemText(SolveOptions const& options, MatrixSource const& k, StaticProblem const& problem) {
  std::string text =
      SourceText(k, k.Order()) + Note("F: " + NameOf(options.loadsPath) + ", " +
                                      Counted(problem.loads.count, "load column", "load columns"));
  if (options.heldPath.empty()) return text;
  auto const held = std::ssize(problem.held);
  return text +
         Note(Format("held by %s: %s, %s free", NameOf(options.heldPath).c_str(),
                     Counted(held, "unknown", "unknowns").c_str(), std::to_string(k.Order() - held).c_str()));
}

std::string ConditionText(double condition) {
  double const lost = condition * std::numeric_limits<double>::epsilon();
  std::string const digits =
      lost < 0.1 ? Format("about %d digits of the displacements hold", static_cast<int>(-std::log10(lost)))
                 : "no digit of the displacements is certain";
  return Note(Format("condition number %.2g in the 1-norm, as estimated: ", condition) + digits);
}

std::string FactsText(StaticSolution const& s) {
  if (s.facts.order == 0) return Note("all unknowns are held");
  std::string text = Note(Format("factor of order %d: ", s.facts.order) + FactorText(s.facts));
  if (s.facts.isSymmetric) text += Note("eigenvalues: " + InertiaText(s.facts));
  if (s.facts.negative > 0)
    text += Note("K is not positive definite: a structure at rest has no negative eigenvalues");
  return text + ConditionText(s.condition) +
         Note(Format("residual ||K u - f|| / ||f|| %.1e, backward error %.1e, after one step of refinement",
                     s.residual, s.backwardError));
}

std::string RowText(int unknown, Columns const& columns, int row) {
  std::string text = Format("%8d", unknown + 1);
  for (int j = 0; j < columns.count; ++j)
    text += Format(" %24.16e", columns.Column(j)[row]);
  return text + "\n";
}

std::string HeadText(char const* what, int count) {
  std::string text = Format("#%7s", "unknown");
  for (int j = 1; j <= count; ++j)
    text += Format(" %24s", count == 1 ? what : Format("%s_%d", what, j).c_str());
  return text + "\n";
}

std::string DisplacementsText(Columns const& displacements) {
  std::string text = HeadText("displacement", displacements.count);
  for (int i = 0; i < displacements.rows; ++i)
    text += RowText(i, displacements, i);
  return text;
}

std::string ReactionsText(std::vector<HeldUnknown> const& held, Columns const& reactions) {
  std::string text = HeadText("reaction", reactions.count);
  for (int i = 0; i < reactions.rows; ++i)
    text += RowText(held[i].unknown, reactions, i);
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

void RequireUsableNames(SolveOptions const& o) {
  RefuseTwoStandardInputs({o.stiffnessPath, o.loadsPath, o.heldPath});
  if (!o.reactionsPath.empty() && o.heldPath.empty())
    throw ToolError(ExitCode::WrongUsage, "--reactions needs --fix: only held unknowns have reactions");
  if (!o.outPath.empty() && o.outPath == o.reactionsPath)
    throw ToolError(ExitCode::WrongUsage,
                    "OUT and --reactions are both '" + o.outPath + "'; expected two files");
}

/// The files that a solution goes to, if any.
class ResultFiles {
public:
  explicit ResultFiles(SolveOptions const& o) : m_options(o) {
    std::vector<std::string> const inputs{o.stiffnessPath, o.loadsPath, o.heldPath};
    if (!o.outPath.empty()) m_displacements.emplace("OUT", o.outPath, inputs);
    if (!o.reactionsPath.empty()) m_reactions.emplace("--reactions", o.reactionsPath, inputs);
  }

  void Write(StaticProblem const& problem, StaticSolution const& s,
             std::function<void(std::string const&)> const& print) {
    if (!m_displacements) print(DisplacementsText(s.displacements));
    if (!m_reactions && !problem.held.empty()) print(ReactionsText(problem.held, s.reactions));
    if (m_displacements) {
      m_displacements->Write("displacements", MatrixOf(s.displacements));
      print(Note("displacements: " + m_options.outPath + ", unknowns by loads"));
    }
    if (!m_reactions) return;
    m_reactions->Write("reactions", MatrixOf(problem.held, s.reactions, problem.loads.rows));
    print(Note("reactions: " + m_options.reactionsPath + ", unknowns by loads"));
  }

private:
  SolveOptions const& m_options;
  std::optional<ResultFile> m_displacements, m_reactions;
};

} // namespace

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
  print(ProblemText(options, k, problem) + FactsText(solution));
  results.Write(problem, solution, print);
}

} // namespace orx::tool
