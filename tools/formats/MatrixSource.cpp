#include "tools/formats/MatrixSource.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/numerics/RowPairs.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <utility>

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

} // namespace

int SourceFacts::Order() const { return std::max(rows, columns); }

MatrixSource::MatrixSource(char const* letter, std::string const& fileName) {
  InputFile const file(fileName);
  FileKind const kind = KindToRead(file, {});
  name = letter;
  path = file.Name();
  if (kind == FileKind::Database)
    ReadFromDatabase(file);
  else
    entries = LoadMatrix(file, {kind, {}, 0});
  rows = entries.NumberOfRows();
  columns = entries.NumberOfColumns();
  entryCount = entries.NumberOfNonzeros();
  isWhole = HasHeader(kind);
  symmetry = MeasureSymmetry(entries);
  RequireRowsAndColumns(*this);
}

void MatrixSource::ReadFromDatabase(InputFile const& file) {
  Progress const progress("reading " + file.Name());
  DatabaseMatrix matrix = ReadDatabaseMatrix(file, name);
  path = matrix.name;
  labels = std::move(matrix.rowLabels);
  entries = std::move(matrix.entries);
}

void RequireRowsAndColumns(SourceFacts const& source) {
  if (source.Order() == 0)
    throw ToolError(ExitCode::UnusableInput,
                    source.FullName() + " is empty; expected row column value items");
}

void RequireAsStated(MatrixSource const& source) {
  RequireSquareAsStated(source);
  if (!source.isWhole || source.symmetry.form == Symmetry::Form::BothTriangles) return;
  ForEachEntry(source.entries.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    RequireNotHalfAsStated(source, {row, column, value});
  });
}

void RequireSquareAsStated(SourceFacts const& source) {
  if (!source.isWhole || source.rows == source.columns) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the file says that the matrix is %d x %d; expected a square",
                         source.FullName().c_str(), source.rows, source.columns));
}

void RequireNotHalfAsStated(SourceFacts const& source, ORXSrvSparseMatrixEntry const& entry) {
  if (!source.isWhole || entry.row == entry.column || entry.value == 0.0) return;
  throw ToolError(ExitCode::UnusableInput,
                  Format("%s: the file says that it holds both triangles, and it is not symmetric: "
                         "(%u, %u) = %s, (%u, %u) is not stored. If one triangle stands for both, "
                         "orxmtx convert --triangle full makes a file that says so",
                         source.FullName().c_str(), entry.row + 1, entry.column + 1,
                         Number(entry.value).c_str(), entry.column + 1, entry.row + 1));
}

void RequireOneOrder(SourceFacts const& k, SourceFacts const& m) {
  SourceFacts const& shorter = k.Order() < m.Order() ? k : m;
  SourceFacts const& longer = k.Order() < m.Order() ? m : k;
  if (shorter.Order() == longer.Order() || !shorter.isWhole) return;
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

std::string SourceText(SourceFacts const& source, int order) {
  std::string text =
      Note(Format("%s: %s, order %d, %s, %s", source.name.c_str(), source.path.c_str(), source.Order(),
                  Counted(source.entryCount, "entry", "entries").c_str(), FormText(source.symmetry).c_str()));
  if (source.Order() < order)
    text += Note(Format("%s ends at row %d, the other matrix at row %d: what follows is taken as zero",
                        source.name.c_str(), source.Order(), order));
  return text;
}

} // namespace orx::tool
