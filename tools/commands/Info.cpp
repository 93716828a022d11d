#include "tools/commands/Info.h"

#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cmath>

namespace orx::tool {
namespace {

using Entry = ORXSrvSparseMatrixEntry;

/// Positions that are false.
std::vector<int> Unset(std::vector<bool> const& flags) {
  std::vector<int> unset;
  for (std::size_t i = 0; i < flags.size(); ++i)
    if (!flags[i]) unset.push_back(static_cast<int>(i));
  return unset;
}

void MeasureEntry(Entry const& e, Measures& m) {
  int const distance = static_cast<int>(e.row) - static_cast<int>(e.column);
  m.lowerBandwidth = std::max(m.lowerBandwidth, distance);
  m.upperBandwidth = std::max(m.upperBandwidth, -distance);
  if (e.value == 0.0) ++m.storedZeros;
  if (!std::isfinite(e.value) && m.notFinite++ == 0) m.firstNotFinite = e;
}

void MeasureNorms(ORXSrvSparseMatrix const& matrix, Measures& m) {
  m.norm1 = matrix.OneNorm();
  m.normInfinity = matrix.InfinityNorm();
  m.normFrobenius = matrix.FrobeniusNorm();
  m.largest = matrix.LargestEntry();
}

/// The matrix with zeros for values that are not finite.
ORXSrvSparseMatrix FinitePart(ORXSrvSparseMatrix const& matrix) {
  ORXSrvSparseMatrix finite(matrix.NumberOfRows(), matrix.NumberOfColumns());
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    finite.AddData(row, column, std::isfinite(value) ? value : 0.0);
  });
  finite.EndAssembly();
  return finite;
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

std::string ShapeText(SourceFacts const& matrix) {
  Symmetry const& s = matrix.symmetry;
  return Line("shape", Format("%d x %d", matrix.rows, matrix.columns)) +
         Line("stored entries", Count(matrix.entryCount)) + Line("  lower triangle", Count(s.lowerEntries)) +
         Line("  diagonal", Count(s.diagonalEntries)) + Line("  upper triangle", Count(s.upperEntries));
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

Measures Measure(ORXSrvSparseMatrix const& matrix) {
  Measures measures;
  std::vector<bool> isRowUsed(static_cast<std::size_t>(matrix.NumberOfRows()), false);
  std::vector<bool> isColumnUsed(static_cast<std::size_t>(matrix.NumberOfColumns()), false);
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    MeasureEntry({row, column, value}, measures);
    if (value != 0.0) isRowUsed[row] = isColumnUsed[column] = true;
  });
  if (measures.notFinite == 0)
    MeasureNorms(matrix, measures);
  else
    MeasureNorms(FinitePart(matrix), measures);
  measures.zeroRows = Unset(isRowUsed);
  measures.zeroColumns = Unset(isColumnUsed);
  return measures;
}

std::string InfoText(SourceFacts const& matrix, Measures const& measures) {
  return Line("file", matrix.path) + ShapeText(matrix) + Line("symmetry", FormText(matrix.symmetry)) +
         MeasuresText(measures);
}

std::string InfoText(std::string const& name) {
  InputFile const file(name);
  ORXSrvSparseMatrix const matrix = LoadMatrix(file);
  Progress const progress("measuring " + file.Name());
  SourceFacts facts;
  facts.path = file.Name();
  facts.rows = matrix.NumberOfRows();
  facts.columns = matrix.NumberOfColumns();
  facts.entryCount = matrix.NumberOfNonzeros();
  facts.symmetry = MeasureSymmetry(matrix);
  return InfoText(facts, Measure(matrix));
}

} // namespace orx::tool
