#include "tools/commands/Info.h"

#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>

namespace orx::tool {
namespace {

/// A sum of many values as exact as one of few: what an addition loses is kept, and added in the end.
class CompensatedSum {
public:
  void Add(double value) {
    double const sum = m_sum + value;
    m_lost += std::fabs(m_sum) >= std::fabs(value) ? (m_sum - sum) + value : (value - sum) + m_sum;
    m_sum = sum;
  }
  /// A sum beyond the largest double is infinite; what is lost then is no number.
  double Value() const { return std::isfinite(m_sum) ? m_sum + m_lost : m_sum; }

private:
  double m_sum = 0.0;
  double m_lost = 0.0;
};

/// Per row or column: the sum of magnitudes, and whether there is a value other than 0.
class Lines {
public:
  explicit Lines(int count) : m_sums(static_cast<std::size_t>(count)), m_used(m_sums.size(), false) {}

  void Add(std::uint32_t line, double value) {
    if (value != 0.0) m_used[line] = true;
    if (std::isfinite(value)) m_sums[line].Add(std::fabs(value));
  }
  double LargestSum() const {
    double largest = 0.0;
    for (CompensatedSum const& sum : m_sums)
      largest = std::max(largest, sum.Value());
    return largest;
  }
  std::vector<int> Zero() const {
    std::vector<int> zero;
    for (std::size_t i = 0; i < m_used.size(); ++i)
      if (!m_used[i]) zero.push_back(static_cast<int>(i));
    return zero;
  }

private:
  std::vector<CompensatedSum> m_sums;
  std::vector<bool> m_used;
};

void MeasureEntry(Entry const& e, Measures& m) {
  int const distance = static_cast<int>(e.row) - static_cast<int>(e.column);
  m.lowerBandwidth = std::max(m.lowerBandwidth, distance);
  m.upperBandwidth = std::max(m.upperBandwidth, -distance);
  if (e.value == 0.0) ++m.storedZeros;
  if (std::isfinite(e.value)) {
    if (std::fabs(e.value) > std::fabs(m.largest.value)) m.largest = e;
  } else if (m.notFinite++ == 0) {
    m.firstNotFinite = e;
  }
}

/// Scaled by the largest magnitude, so that no square over- or underflows.
double FrobeniusNorm(std::span<Entry const> entries, double largest) {
  if (largest == 0.0) return 0.0;
  CompensatedSum sum;
  for (Entry const& e : entries) {
    double const scaled = e.value / largest;
    if (std::isfinite(e.value)) sum.Add(scaled * scaled);
  }
  return largest * std::sqrt(sum.Value());
}

std::string Count(std::int64_t count) { return std::to_string(count); }

std::string NormText(double norm) { return Format("%.15e", norm); }

std::string ZeroLinesText(std::vector<int> const& lines) {
  std::string const count = std::to_string(lines.size());
  return lines.empty() ? count : count + " (" + ShortList(lines) + ")";
}

std::string FormText(Symmetry const& symmetry) {
  bool const isOneTriangle =
      symmetry.form == Symmetry::Form::LowerTriangle || symmetry.form == Symmetry::Form::UpperTriangle;
  return SymmetryText(symmetry) + (isOneTriangle ? " (the figures below are of this triangle)" : "");
}

std::string ShapeText(MatrixEntries const& matrix, Symmetry const& s) {
  return Line("shape", Format("%d x %d", matrix.Rows(), matrix.Columns())) +
         Line("stored entries", std::to_string(matrix.Items().size())) +
         Line("  lower triangle", Count(s.lowerEntries)) + Line("  diagonal", Count(s.diagonalEntries)) +
         Line("  upper triangle", Count(s.upperEntries));
}

std::string LargestText(Entry const& largest) {
  std::string text = NormText(std::fabs(largest.value));
  if (largest.value != 0.0) text += Format(" at (%u, %u)", largest.row + 1, largest.column + 1);
  return text;
}

std::string MeasuresText(Measures const& m) {
  std::string text =
      Line("stored zeros", Count(m.storedZeros)) +
      Line("bandwidth", Format("lower %d, upper %d", m.lowerBandwidth, m.upperBandwidth)) +
      Line("1-norm", NormText(m.norm1)) + Line("infinity-norm", NormText(m.normInfinity)) +
      Line("Frobenius norm", NormText(m.normFrobenius)) + Line("largest magnitude", LargestText(m.largest)) +
      Line("zero rows", ZeroLinesText(m.zeroRows)) + Line("zero columns", ZeroLinesText(m.zeroColumns));
  if (m.notFinite > 0)
    text +=
        Line("not finite", Format("%s, first (%u, %u) = %s; left out of the norms",
                                  Counted(m.notFinite, "value", "values").c_str(), m.firstNotFinite.row + 1,
                                  m.firstNotFinite.column + 1, Number(m.firstNotFinite.value).c_str()));
  return text;
}

} // namespace

Measures Measure(MatrixEntries const& matrix) {
  Measures measures;
  Lines rows(matrix.Rows());
  Lines columns(matrix.Columns());
  for (Entry const& e : matrix.Items()) {
    MeasureEntry(e, measures);
    rows.Add(e.row, e.value);
    columns.Add(e.column, e.value);
  }
  measures.norm1 = columns.LargestSum();
  measures.normInfinity = rows.LargestSum();
  measures.normFrobenius = FrobeniusNorm(matrix.Items(), std::fabs(measures.largest.value));
  measures.zeroRows = rows.Zero();
  measures.zeroColumns = columns.Zero();
  return measures;
}

std::string InfoText(std::string const& name) {
  InputFile const file(name);
  std::string const& path = file.Name();
  MatrixEntries const matrix = LoadMatrix(file);
  Progress const progress("measuring " + path);
  Symmetry const symmetry = MeasureSymmetry(matrix);
  return Line("file", path) + ShapeText(matrix, symmetry) + Line("symmetry", FormText(symmetry)) +
         MeasuresText(Measure(matrix));
}

} // namespace orx::tool
