#include "tools/numerics/Symmetry.h"

#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>

namespace orx::tool {
namespace {

/// Indices of the entries above the diagonal, column by column, rows ascending within a column.
struct UpperByColumn {
  std::vector<int> starts; ///< column j is [starts[j], starts[j + 1])
  std::vector<int> items;
};

UpperByColumn SortUpper(std::span<Entry const> entries, int order) {
  UpperByColumn sorted;
  sorted.starts.assign(static_cast<std::size_t>(order) + 1, 0);
  for (Entry const& e : entries)
    if (e.row < e.column) ++sorted.starts[e.column + 1];
  std::partial_sum(sorted.starts.begin(), sorted.starts.end(), sorted.starts.begin());
  sorted.items.resize(static_cast<std::size_t>(sorted.starts.back()));
  std::vector<int> next(sorted.starts.begin(), sorted.starts.end() - 1);
  for (std::size_t k = 0; k < entries.size(); ++k)
    if (entries[k].row < entries[k].column) sorted.items[next[entries[k].column]++] = static_cast<int>(k);
  return sorted;
}

/// Calls visit(row, column, lower, upper) for every pair of positions of which at least one is stored; the
/// entry that is not stored is null. Merges row i below the diagonal with column i above it.
template<class Visit>
void ForEachPair(MatrixEntries const& matrix, Visit visit) {
  auto const entries = matrix.Items();
  int const order = std::max(matrix.Rows(), matrix.Columns());
  UpperByColumn const upper = SortUpper(entries, order);
  auto lower = entries.begin();
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(order); ++i) {
    int const* mirrored = upper.items.data() + upper.starts[i];
    int const* const mirroredEnd = upper.items.data() + upper.starts[i + 1];
    for (; lower != entries.end() && lower->row == i && lower->column < i; ++lower) {
      for (; mirrored != mirroredEnd && entries[*mirrored].row < lower->column; ++mirrored)
        visit(i, entries[*mirrored].row, nullptr, &entries[*mirrored]);
      bool const isPair = mirrored != mirroredEnd && entries[*mirrored].row == lower->column;
      visit(i, lower->column, &*lower, isPair ? &entries[*mirrored++] : nullptr);
    }
    for (; mirrored != mirroredEnd; ++mirrored)
      visit(i, entries[*mirrored].row, nullptr, &entries[*mirrored]);
    while (lower != entries.end() && lower->row == i)
      ++lower;
  }
}

double ValueOf(Entry const* entry) noexcept { return entry != nullptr ? entry->value : 0.0; }

void CountTriangles(std::span<Entry const> entries, Symmetry& symmetry) {
  for (Entry const& e : entries) {
    symmetry.lowerEntries += e.row > e.column ? 1 : 0;
    symmetry.diagonalEntries += e.row == e.column ? 1 : 0;
    symmetry.upperEntries += e.row < e.column ? 1 : 0;
  }
  bool const hasLower = symmetry.lowerEntries > 0;
  bool const hasUpper = symmetry.upperEntries > 0;
  if (hasLower && hasUpper)
    symmetry.form = Symmetry::Form::BothTriangles;
  else if (hasLower)
    symmetry.form = Symmetry::Form::LowerTriangle;
  else if (hasUpper)
    symmetry.form = Symmetry::Form::UpperTriangle;
}

std::vector<double> RootsOfDiagonal(MatrixEntries const& matrix) {
  std::vector<double> roots(static_cast<std::size_t>(std::max(matrix.Rows(), matrix.Columns())), 0.0);
  for (Entry const& e : matrix.Items())
    if (e.row == e.column && std::isfinite(e.value)) roots[e.row] = std::sqrt(std::fabs(e.value));
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

void ComparePair(MirroredPair const& pair, bool isUnmatched, double diagonalScale, Symmetry& symmetry) {
  double const difference = RelativeDifference(pair, diagonalScale);
  if (difference > symmetry.worstDifference) {
    symmetry.worstDifference = difference;
    symmetry.worst = pair;
  }
  if (!isUnmatched || (pair.lower == 0.0 && pair.upper == 0.0)) return;
  if (symmetry.unmatchedEntries++ == 0) symmetry.unmatched = pair;
}

void RequireFinite(MatrixEntries const& matrix, std::string const& name) {
  for (Entry const& e : matrix.Items())
    if (!std::isfinite(e.value))
      throw ToolError(ExitCode::UnusableInput,
                      Format("%s: the value at (%u, %u) is %s, expected a finite number", name.c_str(),
                             e.row + 1, e.column + 1, Number(e.value).c_str()));
}

/// A file of one triangle may end before its last column; both triangles of a symmetric matrix end together.
[[noreturn]] void RefuseUnsymmetric(MatrixEntries const& matrix, Symmetry const& symmetry,
                                    std::string const& name) {
  std::string const found = Describe(*symmetry.worst);
  if (matrix.Rows() != matrix.Columns())
    throw ToolError(
        ExitCode::UnusableInput,
        Format("%s: the matrix is %d x %d, expected a square symmetric one or one triangle of it; %s",
               name.c_str(), matrix.Rows(), matrix.Columns(), found.c_str()));
  throw ToolError(
      ExitCode::UnusableInput,
      Format("%s: the matrix is not symmetric: %s, a relative difference of %.3g; expected at most %.0e",
             name.c_str(), found.c_str(), symmetry.worstDifference, symmetryTolerance));
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

Symmetry MeasureSymmetry(MatrixEntries const& matrix) {
  Symmetry symmetry;
  CountTriangles(matrix.Items(), symmetry);
  if (symmetry.form != Symmetry::Form::BothTriangles) return symmetry;

  std::vector<double> const roots = RootsOfDiagonal(matrix);
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, Entry const* lower, Entry const* upper) {
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

std::vector<MirroredPair> MirroredPairs(MatrixEntries const& matrix) {
  std::vector<MirroredPair> pairs;
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, Entry const* lower, Entry const* upper) {
    pairs.push_back({i, j, ValueOf(lower), ValueOf(upper)});
  });
  return pairs;
}

Mirror MirrorOf(MatrixEntries const& matrix) {
  if (matrix.Rows() != matrix.Columns()) return Mirror::None;
  bool isSame = true;
  bool isNegative = true;
  for (Entry const& e : matrix.Items())
    isNegative = isNegative && e.row != e.column;
  ForEachPair(matrix, [&](std::uint32_t, std::uint32_t, Entry const* lower, Entry const* upper) {
    bool const isPair = lower != nullptr && upper != nullptr;
    isSame = isSame && isPair && IsSameBits(lower->value, upper->value);
    isNegative = isNegative && isPair && IsSameBits(lower->value, -upper->value);
  });
  if (isSame) return Mirror::Same;
  return isNegative ? Mirror::Negative : Mirror::None;
}

SymmetricMatrix MakeSymmetric(MatrixEntries const& matrix, Symmetry const& symmetry, int order,
                              std::string const& name) {
  RequireFinite(matrix, name);
  if (symmetry.worstDifference > symmetryTolerance) RefuseUnsymmetric(matrix, symmetry, name);

  std::vector<Entry> lower;
  lower.reserve(static_cast<std::size_t>(symmetry.diagonalEntries +
                                         std::max(symmetry.lowerEntries, symmetry.upperEntries)));
  for (Entry const& e : matrix.Items())
    if (e.row == e.column) lower.push_back(e);
  bool const hasBoth = symmetry.form == Symmetry::Form::BothTriangles;
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, Entry const* below, Entry const* above) {
    double const value =
        hasBoth ? std::midpoint(ValueOf(below), ValueOf(above)) : ValueOf(below) + ValueOf(above);
    lower.push_back({i, j, value});
  });
  return {order, std::move(lower)};
}

KeptUnknowns::KeptUnknowns(int order, std::span<int const> dropped)
    : m_new(static_cast<std::size_t>(order), 0) {
  for (int const unknown : dropped)
    m_new[unknown] = -1;
  for (int i = 0; i < order; ++i) {
    if (m_new[i] < 0) continue;
    m_new[i] = Count();
    m_old.push_back(i);
  }
}

std::vector<double> KeptUnknowns::Expanded(std::span<double const> kept) const {
  std::vector<double> all(m_new.size(), 0.0);
  for (std::size_t i = 0; i < kept.size(); ++i)
    all[m_old[i]] = kept[i];
  return all;
}

double SymmetricMatrix::FrobeniusNorm() const {
  double largest = 0.0;
  for (Entry const& e : m_lower)
    largest = std::max(largest, std::fabs(e.value));
  if (largest == 0.0) return 0.0;
  double sum = 0.0;
  for (Entry const& e : m_lower) {
    double const scaled = e.value / largest;
    sum += (e.row == e.column ? 1.0 : 2.0) * scaled * scaled;
  }
  return largest * std::sqrt(sum);
}

std::vector<double> SymmetricMatrix::Diagonal() const {
  std::vector<double> diagonal(static_cast<std::size_t>(m_order), 0.0);
  for (Entry const& e : m_lower)
    if (e.row == e.column) diagonal[e.row] = e.value;
  return diagonal;
}

std::vector<double> SymmetricMatrix::Times(std::span<double const> x) const {
  std::vector<double> y(static_cast<std::size_t>(m_order), 0.0);
  for (Entry const& e : m_lower) {
    y[e.row] += e.value * x[e.column];
    if (e.row != e.column) y[e.column] += e.value * x[e.row];
  }
  return y;
}

std::vector<double> SymmetricMatrix::AbsoluteTimes(std::span<double const> x) const {
  std::vector<double> y(static_cast<std::size_t>(m_order), 0.0);
  for (Entry const& e : m_lower) {
    y[e.row] += std::fabs(e.value * x[e.column]);
    if (e.row != e.column) y[e.column] += std::fabs(e.value * x[e.row]);
  }
  return y;
}

double SymmetricMatrix::QuadraticForm(std::span<double const> x) const {
  double sum = 0.0;
  for (Entry const& e : m_lower)
    sum += (e.row == e.column ? 1.0 : 2.0) * e.value * x[e.row] * x[e.column];
  return sum;
}

double SymmetricMatrix::AbsoluteForm(std::span<double const> x) const {
  double sum = 0.0;
  for (Entry const& e : m_lower)
    sum += (e.row == e.column ? 1.0 : 2.0) * std::fabs(e.value * x[e.row] * x[e.column]);
  return sum;
}

std::vector<bool> SymmetricMatrix::NonzeroRows() const {
  std::vector<bool> nonzero(static_cast<std::size_t>(m_order), false);
  for (Entry const& e : m_lower)
    if (e.value != 0.0) nonzero[e.row] = nonzero[e.column] = true;
  return nonzero;
}

SymmetricMatrix SymmetricMatrix::Reduced(KeptUnknowns const& kept) const {
  std::vector<Entry> lower;
  for (Entry const& e : m_lower) {
    int const row = kept.New(static_cast<int>(e.row));
    int const column = kept.New(static_cast<int>(e.column));
    if (row >= 0 && column >= 0)
      lower.push_back({static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), e.value});
  }
  return {kept.Count(), std::move(lower)};
}

} // namespace orx::tool
