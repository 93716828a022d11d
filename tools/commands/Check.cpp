#include "tools/commands/Check.h"

#include "tools/formats/MatrixSource.h"
#include "tools/formats/ModelText.h"
#include "tools/numerics/FactorText.h"
#include "tools/numerics/Parts.h"
#include "tools/numerics/RigidMotions.h"
#include "tools/numerics/StiffnessCheck.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <vector>

namespace orx::tool {
namespace {

/// A body in space has no more.
constexpr int rigidMotionsOfBody = 6;

/// A condition number that structures have seldom, and matrices of ten digits always when they are singular.
constexpr double nearlySingular = 1e9;

/// "3: 4, 9, 12", or "none".
std::string UnknownsText(std::vector<int> const& unknowns) {
  return unknowns.empty() ? "none" : std::to_string(unknowns.size()) + ": " + ShortList(unknowns);
}

std::string PointText(Point const& p) { return Format("%.6g  %.6g  %.6g", p[0], p[1], p[2]); }

/// "unknowns 5, 7, 8".
std::string Named(std::vector<int> const& unknowns) {
  return (unknowns.size() == 1 ? "unknown " : "unknowns ") + ShortList(unknowns);
}

/// ", which unknowns 5, 7, 8 would hold", behind a number of motions; nothing when there are none.
std::string HeldBy(std::vector<int> const& unknowns) {
  return unknowns.empty() ? "" : ", which " + Named(unknowns) + " would hold";
}

/// Looks at one model and collects what it finds.
class ModelCheck {
public:
  explicit ModelCheck(CheckOptions const& options)
      : m_memory(options.memory), m_k("K", options.stiffnessPath) {
    RequireAsStated(m_k);
    if (!options.massPath.empty()) {
      m_m.emplace("M", options.massPath);
      RequireAsStated(*m_m);
      RequireOneOrder(m_k, *m_m);
    }
    m_order = std::max(m_k.Order(), m_m ? m_m->Order() : 0);
    if (!options.coordinatesPath.empty()) m_nodes = ReadNodes(InputFile(options.coordinatesPath), m_order);
  }

  CheckResult Run() {
    if (IsUsable(m_k)) CheckStiffness();
    if (m_m && IsUsable(*m_m)) CheckMass();
    for (std::string const& wrong : m_wrong)
      Say("wrong", wrong);
    if (m_wrong.empty()) Say("wrong", "nothing found");
    return {m_wrong.empty(), m_text};
  }

private:
  void Say(char const* label, std::string const& text) { m_text += Line(label, text); }

  /// Says what the file is; false when nothing can be computed with it.
  bool IsUsable(MatrixSource const& source) {
    Say(source.name.c_str(), Format("%s, order %d, %s", source.path.c_str(), source.Order(),
                                    Counted(source.entries.NumberOfNonzeros(), "entry", "entries").c_str()));
    Say("  symmetry", SymmetryText(source.symmetry));
    std::int64_t notFinite = 0;
    std::string first;
    ForEachEntry(source.entries.View(), [&](int row, int column, double value) {
      if (!std::isfinite(value) && notFinite++ == 0)
        first = Format("(%d, %d) = %s", row + 1, column + 1, Number(value).c_str());
    });
    if (notFinite > 0)
      m_wrong.push_back(Format("%s has %s not finite, the first is ", source.name.c_str(),
                               Counted(notFinite, "value that is", "values that are").c_str()) +
                        first);
    else if (!source.IsSymmetric())
      m_wrong.push_back(source.name + " is not symmetric");
    return notFinite == 0;
  }

  void CheckStiffness() {
    ORXSrvSparseMatrix const k = SquareMatrixOf(m_k, m_order);
    std::vector<int> const empty = FindEmptyUnknowns(k);
    Say("  no stiffness", UnknownsText(empty));
    if (!empty.empty())
      m_wrong.push_back(Counted(std::ssize(empty), "unknown has", "unknowns have") +
                        " no stiffness: " + ShortList(empty));
    int const zeroDiagonals = CheckDiagonal("K", k) - static_cast<int>(empty.size());
    Parts const parts = FindParts(k);
    SayParts(parts);
    StiffnessFacts const facts = [&] {
      Progress const progress(Format("factorizing K of order %d", m_order));
      return FactorizeStiffness(k, empty, m_memory);
    }();
    SayFactor(facts);
    int const roundedMotions = CheckMotions(k, empty, facts.nullUnknowns, parts);
    CheckSigns(facts, zeroDiagonals, roundedMotions);
  }

  /// Returns how many entries are zero.
  int CheckDiagonal(char const* name, ORXSrvSparseMatrix const& matrix) {
    DiagonalRange const range = MeasureDiagonal(matrix);
    if (range.zeros < m_order)
      Say("  diagonal", Format("from %.3g (unknown %d) to %.3g (unknown %d), a ratio of %.2g",
                               range.smallestValue, range.smallest + 1, range.largestValue, range.largest + 1,
                               std::fabs(range.largestValue / range.smallestValue)));
    if (!range.negative.empty())
      m_wrong.push_back(
          std::string(name) + " has " +
          Counted(std::ssize(range.negative), "negative diagonal entry", "negative diagonal entries") +
          " at " + Named(range.negative));
    return range.zeros;
  }

  void SayParts(Parts const& parts) {
    std::string text = std::to_string(parts.sizes.size());
    if (parts.sizes.size() > 1) {
      auto const [least, most] = std::ranges::minmax(parts.sizes);
      text += Format(" that nothing ties together, of %d to %d unknowns", least, most);
    }
    Say("  parts", text);
  }

  void SayFactor(StiffnessFacts const& facts) {
    Say("  factor", FactorText(facts.factor));
    if (facts.factor.isSymmetric) Say("  eigenvalues", InertiaText(facts.factor));
    if (facts.factor.zero == 0)
      Say("  condition", Format("%.2g in the 1-norm, as estimated", facts.condition));
  }

  /// Rounding in the entries of K makes some of the motions without stiffness negative eigenvalues.
  void CheckSigns(StiffnessFacts const& facts, int zeroDiagonals, int roundedMotions) {
    if (zeroDiagonals > 0)
      Say("  constraints", Counted(zeroDiagonals, "unknown", "unknowns") +
                               " with stiffness and a zero on the diagonal, as Lagrange multipliers have");
    int const negative = facts.factor.negative;
    if (negative <= zeroDiagonals + roundedMotions) return;
    m_wrong.push_back("K has " + Counted(negative, "negative eigenvalue", "negative eigenvalues") +
                      (facts.condition > nearlySingular
                           ? ", or motions without stiffness to the digits of its entries"
                           : ""));
  }

  /// Which motions strain nothing, and as far as it can be told which of them are those of a rigid body.
  /// Returns how many of them the factorization takes for others.
  int CheckMotions(ORXSrvSparseMatrix const& k, std::vector<int> const& empty,
                   std::vector<int> const& nullUnknowns, Parts const& parts) {
    std::optional<int> rigid;
    if (m_nodes && m_k.IsSymmetric()) rigid = CountRigidMotions(k, empty, *m_nodes);
    int const pivots = static_cast<int>(nullUnknowns.size());
    int const motions = std::max(pivots, rigid.value_or(0));
    Say("  free motions", motions == 0 ? "none" : std::to_string(motions) + HeldBy(nullUnknowns));
    if (parts.sizes.size() > 1) SayMotionsOfParts(nullUnknowns, parts);
    if (rigid) {
      Say("    rigid", std::to_string(*rigid));
    } else if (motions > 0) {
      Say("    rigid", m_nodes ? "not told of an unsymmetric matrix" : "--coordinates tells how many are");
    }
    SayMechanisms(motions - rigid.value_or(rigidMotionsOfBody), rigid, nullUnknowns);
    return motions - pivots;
  }

  void SayMechanisms(int count, std::optional<int> rigid, std::vector<int> const& nullUnknowns) {
    if (count <= 0) return;
    std::string const besides = rigid ? Format("the %d", *rigid) : Format("up to %d", rigidMotionsOfBody);
    m_wrong.push_back(Counted(count, "motion", "motions") + " without stiffness besides " + besides +
                      " of a rigid body: mechanisms, or parts that move alone" + HeldBy(nullUnknowns));
  }

  void SayMotionsOfParts(std::vector<int> const& nullUnknowns, Parts const& parts) {
    constexpr int mostShown = 8;
    std::map<int, int> counts;
    for (int const unknown : nullUnknowns)
      ++counts[parts.of[unknown]];
    int shown = 0;
    for (auto const& [part, count] : counts) {
      if (shown++ == mostShown) return Say("    parts", std::to_string(counts.size()) + " in all");
      Say("    part", Format("%d in that of unknown %d, with %s", count, parts.first[part] + 1,
                             Counted(parts.sizes[part], "unknown", "unknowns").c_str()));
    }
  }

  void CheckMass() {
    ORXSrvSparseMatrix const m = SquareMatrixOf(*m_m, m_order);
    std::vector<int> const massless = FindEmptyUnknowns(m);
    Say("  no mass", UnknownsText(massless));
    CheckDiagonal("M", m);
    if (std::ssize(massless) == m_order) m_wrong.push_back("M has no mass");
    if (m_nodes && m_m->IsSymmetric()) SayTotals(SumMass(m, *m_nodes));
  }

  void SayTotals(MassTotals const& totals) {
    Say("  mass", PointText(totals.mass) + "  along x, y, z");
    Say("  centre of gravity", PointText(totals.centre));
    Say("  inertia", PointText(totals.inertia) + "  about axes through it");
  }

  std::int64_t m_memory;
  MatrixSource m_k;
  std::optional<MatrixSource> m_m;
  std::optional<Nodes> m_nodes;
  int m_order = 0;
  std::string m_text;
  std::vector<std::string> m_wrong;
};

} // namespace

CheckResult CheckModel(CheckOptions const& options) {
  RefuseTwoStandardInputs({options.stiffnessPath, options.massPath, options.coordinatesPath});
  return ModelCheck(options).Run();
}

} // namespace orx::tool
