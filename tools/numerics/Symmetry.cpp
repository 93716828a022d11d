#include "tools/numerics/Symmetry.h"

#include "tools/numerics/RowPairs.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace orx::tool {
namespace {

double ValueOf(double const* value) noexcept { return value != nullptr ? *value : 0.0; }

void CountTriangles(ORXSrvSparseMatrix const& matrix, Symmetry& symmetry) {
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t column, double) {
    symmetry.lowerEntries += row > column ? 1 : 0;
    symmetry.diagonalEntries += row == column ? 1 : 0;
    symmetry.upperEntries += row < column ? 1 : 0;
  });
  bool const hasLower = symmetry.lowerEntries > 0;
  bool const hasUpper = symmetry.upperEntries > 0;
  if (hasLower && hasUpper)
    symmetry.form = Symmetry::Form::BothTriangles;
  else if (hasLower)
    symmetry.form = Symmetry::Form::LowerTriangle;
  else if (hasUpper)
    symmetry.form = Symmetry::Form::UpperTriangle;
}

std::vector<double> RootsOfDiagonal(ORXSrvSparseMatrix const& matrix) {
  auto const rows = static_cast<std::size_t>(matrix.NumberOfRows());
  std::vector<double> roots(std::max(rows, static_cast<std::size_t>(matrix.NumberOfColumns())), 0.0);
  matrix.GetDiagonal(roots.data());
  for (double& value : roots)
    value = std::isfinite(value) ? std::sqrt(std::fabs(value)) : 0.0;
  return roots;
}

double RelativeDifference(MirroredPair const& pair, double diagonalScale) {
  if (pair.lower == pair.upper) return 0.0;
  if (!std::isfinite(pair.lower) || !std::isfinite(pair.upper))
    return std::numeric_limits<double>::infinity();
  double const scale = std::max({std::fabs(pair.lower), std::fabs(pair.upper), diagonalScale});
  // Divided one by one: the difference of two huge values of opposite sign overflows.
  return std::fabs(pair.lower / scale - pair.upper / scale);
}

std::string BothTrianglesText(Symmetry const& s) {
  if (s.IsExact()) return "exactly symmetric";
  std::string const difference =
      Format("relative difference %.3g, worst pair %s", s.worstDifference, Describe(*s.worst).c_str());
  if (s.worstDifference <= symmetryTolerance) return "symmetric to rounding: " + difference;
  if (!s.unmatched) return "symmetric pattern, unsymmetric values: " + difference;
  return Format("unsymmetric pattern: %s without a mirror image, first %s; %s",
                Counted(s.unmatchedEntries, "entry", "entries").c_str(), Describe(*s.unmatched).c_str(),
                difference.c_str());
}

bool IsSameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

} // namespace

void ComparePair(MirroredPair const& pair, bool isUnmatched, double diagonalScale, Symmetry& symmetry) {
  double const difference = RelativeDifference(pair, diagonalScale);
  if (difference > symmetry.worstDifference) {
    symmetry.worstDifference = difference;
    symmetry.worst = pair;
  }
  if (!isUnmatched || (pair.lower == 0.0 && pair.upper == 0.0)) return;
  if (symmetry.unmatchedEntries++ == 0) symmetry.unmatched = pair;
}

Symmetry MeasureSymmetry(ORXSrvSparseMatrix const& matrix) {
  Symmetry symmetry;
  CountTriangles(matrix, symmetry);
  if (symmetry.form != Symmetry::Form::BothTriangles) return symmetry;

  std::vector<double> const roots = RootsOfDiagonal(matrix);
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, double const* lower, double const* upper) {
    MirroredPair const pair{i, j, ValueOf(lower), ValueOf(upper)};
    ComparePair(pair, lower == nullptr || upper == nullptr, roots[i] * roots[j], symmetry);
  });
  return symmetry;
}

std::string Describe(MirroredPair const& pair) {
  return Format("(%u, %u) = %s, (%u, %u) = %s", pair.row + 1, pair.column + 1, Number(pair.lower).c_str(),
                pair.column + 1, pair.row + 1, Number(pair.upper).c_str());
}

std::string SymmetryText(Symmetry const& symmetry) {
  switch (symmetry.form) {
  case Symmetry::Form::Diagonal:
    return "diagonal";
  case Symmetry::Form::LowerTriangle:
    return "lower triangle only";
  case Symmetry::Form::UpperTriangle:
    return "upper triangle only";
  case Symmetry::Form::BothTriangles:
    break;
  }
  return BothTrianglesText(symmetry);
}

Mirror MirrorOf(ORXSrvSparseMatrix const& matrix) {
  if (matrix.NumberOfRows() != matrix.NumberOfColumns()) return Mirror::None;
  bool isSame = true;
  bool isNegative = true;
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t column, double) {
    isNegative = isNegative && row != column;
  });
  ForEachPair(matrix, [&](std::uint32_t, std::uint32_t, double const* lower, double const* upper) {
    bool const isPair = lower != nullptr && upper != nullptr;
    isSame = isSame && isPair && IsSameBits(*lower, *upper);
    isNegative = isNegative && isPair && IsSameBits(*lower, -*upper);
  });
  if (isSame) return Mirror::Same;
  return isNegative ? Mirror::Negative : Mirror::None;
}

void RequireFinite(ORXSrvSparseMatrixEntry const& entry, std::string const& name) {
  if (std::isfinite(entry.value)) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the value at (%u, %u) is %s, expected a finite number", name.c_str(),
                         entry.row + 1, entry.column + 1, Number(entry.value).c_str()));
}

void RequireFinite(ORXSrvSparseMatrix const& matrix, std::string const& name) {
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    RequireFinite({row, column, value}, name);
  });
}

void RequireSymmetric(int rows, int columns, Symmetry const& symmetry, std::string const& name) {
  if (symmetry.worstDifference <= symmetryTolerance) return;
  std::string const found = Describe(*symmetry.worst);
  // A file of one triangle may end before its last column; both triangles of a symmetric matrix end together.
  if (rows != columns)
    throw ToolError(
        ExitCode::UnusableInput,
        Format("%s: the matrix is %d x %d, expected a square symmetric one or one triangle of it; %s",
               name.c_str(), rows, columns, found.c_str()));
  throw ToolError(
      ExitCode::UnusableInput,
      Format("%s: the matrix is not symmetric: %s, a relative difference of %.3g; expected at most %.0e",
             name.c_str(), found.c_str(), symmetry.worstDifference, symmetryTolerance));
}

ORXSrvSparseMatrix MakeLowerTriangle(ORXSrvSparseMatrix const& matrix, Symmetry const& symmetry, int order,
                                     std::string const& name) {
  RequireFinite(matrix, name);
  RequireSymmetric(matrix.NumberOfRows(), matrix.NumberOfColumns(), symmetry, name);

  ORXSrvSparseMatrix triangle(order, order);
  ForEachEntry(matrix.View(), [&](std::int32_t row, std::int32_t column, double value) {
    if (row == column)
      triangle.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
  bool const hasBoth = symmetry.form == Symmetry::Form::BothTriangles;
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, double const* lower, double const* upper) {
    triangle.AddData(
        i, j, hasBoth ? std::midpoint(ValueOf(lower), ValueOf(upper)) : ValueOf(lower) + ValueOf(upper));
  });
  triangle.EndAssembly();
  return triangle;
}

} // namespace orx::tool
