#include "tools/commands/Compare.h"

#include "tools/numerics/RowPairs.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orx::tool {
namespace {

double AbsoluteDifference(double a, double b) {
  if (a == b || (std::isnan(a) && std::isnan(b))) return 0.0;
  if (!std::isfinite(a) || !std::isfinite(b)) return std::numeric_limits<double>::infinity();
  return std::fabs(a - b);
}

double RelativeDifference(double a, double b, double absolute) {
  if (absolute == 0.0) return 0.0;
  double const scale = std::max(std::fabs(a), std::fabs(b));
  if (std::isfinite(absolute)) return absolute / scale;
  bool const hasOverflown = std::isfinite(a) && std::isfinite(b);
  return hasOverflown ? std::fabs(a / scale - b / scale) : absolute;
}

void ComparePair(ValuePair const& pair, Tolerances const& tolerances, Difference& difference) {
  double const absolute = AbsoluteDifference(pair.a, pair.b);
  double const relative = RelativeDifference(pair.a, pair.b, absolute);
  if (absolute > tolerances.absolute && relative > tolerances.relative) ++difference.beyond;
  if (absolute > difference.absolute) {
    difference.absolute = absolute;
    difference.absoluteAt = pair;
  }
  if (relative > difference.relative) {
    difference.relative = relative;
    difference.relativeAt = pair;
  }
}

std::string FileText(std::string const& path, ORXSrvSparseMatrix const& matrix) {
  return Format("%s, %d x %d, %s", path.c_str(), matrix.NumberOfRows(), matrix.NumberOfColumns(),
                Counted(matrix.NumberOfNonzeros(), "entry", "entries").c_str());
}

std::string WorstText(double worst, ValuePair const& at) {
  if (worst == 0.0) return "0";
  return Format("%.3g at (%u, %u): A %s, B %s", worst, at.row + 1, at.column + 1, Number(at.a).c_str(),
                Number(at.b).c_str());
}

std::string ResultText(Difference const& difference, Tolerances const& tolerances) {
  if (difference.absolute == 0.0) return "equal";
  std::string const limits =
      Number(tolerances.relative) +
      (tolerances.absolute > 0.0 ? " relative or " + Number(tolerances.absolute) + " absolute" : "");
  if (difference.beyond == 0) return "equal within " + limits;
  return "different by more than " + limits + " in " + Counted(difference.beyond, "position", "positions");
}

} // namespace

Difference Compare(ORXSrvSparseMatrix const& a, ORXSrvSparseMatrix const& b, Tolerances const& tolerances) {
  Difference difference;
  CompressedRowsView const rowsOfA = a.View();
  CompressedRowsView const rowsOfB = b.View();
  for (std::int32_t i = 0; i < rowsOfA.rows; ++i)
    MergeRows(rowsOfA, rowsOfB, i, static_cast<std::uint32_t>(rowsOfA.columns),
              [&](std::uint32_t column, double const* ofA, double const* ofB) {
                ComparePair({static_cast<std::uint32_t>(i), column, ofA != nullptr ? *ofA : 0.0,
                             ofB != nullptr ? *ofB : 0.0},
                            tolerances, difference);
                ++(ofA == nullptr ? difference.onlyInB
                                  : (ofB == nullptr ? difference.onlyInA : difference.inBoth));
              });
  return difference;
}

Comparison CompareFiles(std::string const& pathA, std::string const& pathB, Tolerances const& tolerances) {
  RefuseTwoStandardInputs({pathA, pathB});
  ORXSrvSparseMatrix const a = LoadMatrix(pathA);
  ORXSrvSparseMatrix const b = LoadMatrix(pathB);
  Comparison comparison;
  comparison.text = Line("A", FileText(pathA, a)) + Line("B", FileText(pathB, b));
  if (a.NumberOfRows() != b.NumberOfRows() || a.NumberOfColumns() != b.NumberOfColumns()) {
    comparison.text += Line("result", Format("different shapes: A %d x %d, B %d x %d", a.NumberOfRows(),
                                             a.NumberOfColumns(), b.NumberOfRows(), b.NumberOfColumns()));
    return comparison;
  }
  Progress const progress("comparing " + pathA + " and " + pathB);
  Difference const difference = Compare(a, b, tolerances);
  comparison.isEqual = difference.beyond == 0;
  comparison.text += Line("in both", std::to_string(difference.inBoth)) +
                     Line("only in A", std::to_string(difference.onlyInA)) +
                     Line("only in B", std::to_string(difference.onlyInB)) +
                     Line("worst absolute", WorstText(difference.absolute, difference.absoluteAt)) +
                     Line("worst relative", WorstText(difference.relative, difference.relativeAt)) +
                     Line("result", ResultText(difference, tolerances));
  return comparison;
}

} // namespace orx::tool
