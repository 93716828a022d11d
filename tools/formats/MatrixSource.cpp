#include "tools/formats/MatrixSource.h"

#include "tools/numerics/RowPairs.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>

namespace orx::tool {
namespace {

std::string FormText(Symmetry const& symmetry) {
  switch (symmetry.form) {
  case Symmetry::Form::Diagonal:
    return "diagonal";
  case Symmetry::Form::LowerTriangle:
    return "lower triangle, taken as half of a symmetric matrix";
  case Symmetry::Form::UpperTriangle:
    return "upper triangle, taken as half of a symmetric matrix";
  case Symmetry::Form::BothTriangles:
    break;
  }
  if (symmetry.IsExact()) return "both triangles, exactly symmetric";
  char const* const form = symmetry.worstDifference <= symmetryTolerance ? "averaged" : "unsymmetric";
  return Format("both triangles, %s: relative difference %.3g, worst pair ", form, symmetry.worstDifference) +
         Describe(*symmetry.worst);
}

/// A file that holds both triangles is unsymmetric when one of them is empty and the other is not.
void RefuseHalf(MatrixSource const& source) {
  if (source.symmetry.form == Symmetry::Form::BothTriangles) return;
  ForEachEntry(source.entries.View(), [&](int row, int column, double value) {
    if (row != column && value != 0.0)
      throw ToolError(ExitCode::UnusableInput,
                      Format("%s: the file says that it holds both triangles, and it is not symmetric: "
                             "(%d, %d) = %s, (%d, %d) is not stored. If one triangle stands for both, "
                             "orxmtx convert --triangle full makes a file that says so",
                             source.FullName().c_str(), row + 1, column + 1, Number(value).c_str(),
                             column + 1, row + 1));
  });
}

} // namespace

MatrixSource::MatrixSource(char const* letter, std::string const& file)
    : MatrixSource(letter, InputFile(file)) {}

MatrixSource::MatrixSource(char const* letter, InputFile const& file)
    : name(letter), path(file.Name()), kind(KindToRead(file, {})), entries(LoadMatrix(file, {kind, {}, 0})),
      symmetry(MeasureSymmetry(entries)) {
  if (Order() == 0)
    throw ToolError(ExitCode::UnusableInput, FullName() + " is empty; expected row column value items");
}

int MatrixSource::Order() const { return std::max(entries.NumberOfRows(), entries.NumberOfColumns()); }

void RequireAsStated(MatrixSource const& source) {
  if (!source.IsWhole()) return;
  if (source.entries.NumberOfRows() != source.entries.NumberOfColumns())
    throw ToolError(ExitCode::UnusableInput,
                    Format("%s: the file says that the matrix is %d x %d; expected a square",
                           source.FullName().c_str(), source.entries.NumberOfRows(),
                           source.entries.NumberOfColumns()));
  RefuseHalf(source);
}

void RequireOneOrder(MatrixSource const& k, MatrixSource const& m) {
  MatrixSource const& shorter = k.Order() < m.Order() ? k : m;
  MatrixSource const& longer = k.Order() < m.Order() ? m : k;
  if (shorter.Order() == longer.Order() || !shorter.IsWhole()) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the file says that the matrix has order %d; %s has order %d, "
                         "expected the same",
                         shorter.FullName().c_str(), shorter.Order(), longer.FullName().c_str(),
                         longer.Order()));
}

ORXSrvSparseMatrix SymmetricFormOf(MatrixSource const& source, int order) {
  return MakeLowerTriangle(source.entries, source.symmetry, order, source.FullName()).SymmetricForm();
}

ORXSrvSparseMatrix SquareMatrixOf(MatrixSource const& source, int order) {
  if (source.IsSymmetric()) return SymmetricFormOf(source, order);
  RequireFinite(source.entries, source.FullName());
  ORXSrvSparseMatrix square(order, order);
  ForEachEntry(source.entries.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    square.AddData(row, column, value);
  });
  square.EndAssembly();
  return square;
}

std::string SourceText(MatrixSource const& source, int order) {
  std::string text =
      Note(Format("%s: %s, order %d, %s, %s", source.name.c_str(), source.path.c_str(), source.Order(),
                  Counted(source.entries.NumberOfNonzeros(), "entry", "entries").c_str(),
                  FormText(source.symmetry).c_str()));
  if (source.Order() < order)
    text += Note(Format("%s ends at row %d, the other matrix at row %d: what follows is taken as zero",
                        source.name.c_str(), source.Order(), order));
  return text;
}

} // namespace orx::tool
