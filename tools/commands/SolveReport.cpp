#include "tools/commands/SolveReport.h"

#include "tools/numerics/FactorText.h"
#include "tools/terminal/Text.h"

#include <cmath>
#include <limits>

namespace orx::tool {
namespace {

std::string NameOf(std::string const& path) { return path == "-" ? "standard input" : path; }

std::string ConditionText(double condition) {
  if (std::isnan(condition)) return Note("condition number: not estimated");
  double const lost = condition * std::numeric_limits<double>::epsilon();
  std::string const digits =
      lost < 0.1 ? Format("about %d digits of the displacements hold", static_cast<int>(-std::log10(lost)))
                 : "no digit of the displacements is certain";
  return Note(Format("condition number %.2g in the 1-norm, as estimated: ", condition) + digits);
}

} // namespace

std::string ProblemText(SourceFacts const& k, LoadCase const& loads) {
  std::string text = SourceText(k, k.Order()) + Note("F: " + NameOf(loads.loadsPath) + ", " +
                                                     Counted(loads.columns, "load column", "load columns"));
  if (loads.heldPath.empty()) return text;
  return text + Note(Format("held by %s: %s, %s free", NameOf(loads.heldPath).c_str(),
                            Counted(loads.held, "unknown", "unknowns").c_str(),
                            std::to_string(k.Order() - loads.held).c_str()));
}

std::string FactsText(StaticSolution const& s) {
  if (s.facts.order == 0) return Note("all unknowns are held");
  std::string text = Note(Format("factor of order %d: ", s.facts.order) + FactorText(s.facts));
  if (s.facts.isSymmetric) text += Note("eigenvalues: " + InertiaText(s.facts));
  if (s.facts.negative > 0)
    text += Note("K is not positive definite: a structure at rest has no negative eigenvalues");
  return text + ConditionText(s.condition) +
         Note(ResidualText(s.residual, s.backwardError) + ", after one step of refinement");
}

std::string ResidualText(double residual, double backwardError) {
  return Format("residual ||K u - f|| / ||f|| %.1e, backward error %.1e", residual, backwardError);
}

std::string HeadText(char const* what, int count) {
  std::string text = Format("#%7s", "unknown");
  for (int j = 1; j <= count; ++j)
    text += Format(" %24s", count == 1 ? what : Format("%s_%d", what, j).c_str());
  return text + "\n";
}

std::string RowText(int unknown, std::span<double const> values) {
  std::string text = Format("%8d", unknown + 1);
  for (double const value : values)
    text += Format(" %24.16e", value);
  return text + "\n";
}

} // namespace orx::tool
