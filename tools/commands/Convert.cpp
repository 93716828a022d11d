#include "tools/commands/Convert.h"

#include "tools/formats/OutputFile.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace orx::tool {
namespace {

Triangle ParseTriangle(std::string const& triangle) {
  if (triangle == "lower") return Triangle::Lower;
  if (triangle == "upper") return Triangle::Upper;
  return triangle == "full" ? Triangle::Full : Triangle::AsStored;
}

ReadOptions ReadOptionsOf(ConvertOptions const& options, InputFile const& in) {
  ReadOptions read;
  if (!options.from.empty()) read.kind = KindOfName(options.from);
  read.kind = KindToRead(in, read);
  read.dofsPerNode = options.dofsPerNode;
  if (options.base < 0) return read;
  if (read.kind != FileKind::Triplets && read.kind != FileKind::Commas)
    throw ToolError(ExitCode::WrongUsage, "--base says where the indices of triplets or comma text begin; '" +
                                              in.Name() + "' is of type " + Describe(*read.kind).name);
  read.base = options.base;
  return read;
}

ORXSrvSparseMatrix BothTriangles(ORXSrvSparseMatrix const& matrix, std::string const& name) {
  int const order = std::max(matrix.NumberOfRows(), matrix.NumberOfColumns());
  ORXSrvSparseMatrix const lower =
      MakeLowerTriangle(matrix, MeasureSymmetry(matrix), order, "'" + name + "'");
  ORXSrvSparseMatrix both(order, order);
  ForEachEntry(lower.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    both.AddData(row, column, value);
    if (row != column) both.AddData(column, row, value);
  });
  both.EndAssembly();
  return both;
}

std::string InText(std::string const& path, FileKind kind, ORXSrvSparseMatrix const& matrix) {
  return Format("%s: %d x %d, %s, %s\n", path.c_str(), matrix.NumberOfRows(), matrix.NumberOfColumns(),
                Counted(matrix.NumberOfNonzeros(), "entry", "entries").c_str(), Describe(kind).text);
}

std::string OutText(std::string const& path, WriteOptions const& options) {
  char const* const parts[] = {"", ", lower triangle", ", upper triangle", ", both triangles"};
  return path + ": " + Describe(options.kind).text + parts[static_cast<int>(options.triangle)] + "\n";
}

/// Text without a header cannot say that rows or columns without entries follow.
std::string LostShapeText(FileKind kind, ORXSrvSparseMatrix const& matrix) {
  if (kind != FileKind::Triplets && kind != FileKind::Commas && kind != FileKind::NodeDofs) return {};
  int rows = 0;
  int columns = 0;
  ForEachEntry(matrix.View(), [&](int row, int column, double) {
    rows = std::max(rows, row + 1);
    columns = std::max(columns, column + 1);
  });
  if (rows == matrix.NumberOfRows() && columns == matrix.NumberOfColumns()) return {};
  return Format(
      "note: the last entries lie in row %d and column %d; this type does not tell of what follows\n", rows,
      columns);
}

/// The library counts the diagonal of a symmetric form among the nonzeros or not, by where it comes from, and
/// its products do nothing where there are none.
std::string DiagonalOnlyText(FileKind kind, ORXSrvSparseMatrix const& matrix) {
  if (kind != FileKind::Fortran && kind != FileKind::Blocks && kind != FileKind::Chunks) return {};
  bool hasDiagonalOnly = true;
  ForEachEntry(matrix.View(), [&](int row, int column, double) { hasDiagonalOnly &= row == column; });
  if (!hasDiagonalOnly) return {};
  return "note: the matrix has a diagonal only; imported from Fortran records, or from a database, the "
         "library's products with it do nothing\n";
}

/// It may hold other matrices.
void RefuseToReplaceDatabase(ConvertOptions const& options) {
  std::string const in = PathOf(options.inPath);
  std::error_code ignored;
  if (HoldsDatabase(in) && std::filesystem::equivalent(in, options.outPath, ignored))
    throw ToolError(ExitCode::WrongUsage, "OUT names the database '" + in + "'; expected another file");
}

} // namespace

std::string ConvertText(ConvertOptions const& options) {
  WriteOptions const write{options.to.empty() ? KindOfExtension(options.outPath) : KindToWrite(options.to),
                           ParseTriangle(options.triangle), options.dofsPerNode, options.digits,
                           options.isLargeAllowed};
  RefuseToReplaceDatabase(options);
  ReplacedFile file(options.outPath);
  InputFile const in(options.inPath);
  ReadOptions const read = ReadOptionsOf(options, in);
  ORXSrvSparseMatrix matrix = LoadMatrix(in, read);
  std::string const text = InText(in.Name(), *read.kind, matrix);
  if (write.triangle != Triangle::AsStored) matrix = BothTriangles(matrix, in.Name());

  Progress const progress("writing " + options.outPath);
  file.WriteWith([&](std::string const& path) { SaveMatrix(path, matrix, write); });
  file.ReplaceTarget();
  return text + OutText(options.outPath, write) + LostShapeText(write.kind, matrix) +
         DiagonalOnlyText(write.kind, matrix);
}

std::string FileKindsText() {
  std::string text;
  for (FileKindDescription const& kind : FileKinds())
    text +=
        Format("  %-10s %-5s %s\n", kind.name, kind.extension != nullptr ? kind.extension : "", kind.text);
  FileKindDescription const& database = Describe(FileKind::Database);
  return text + Format("  %-10s %-5s %s, FILE:TYPE or FILE:CONTEXT/DISTRIBUTION, only for IN\n",
                       database.name, "", database.text);
}

} // namespace orx::tool
