#include "tools/commands/Convert.h"

#include "tools/formats/OutputFile.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>

namespace orx::tool {
namespace {

Part PartOf(std::string const& triangle) {
  if (triangle == "lower") return Part::Lower;
  if (triangle == "upper") return Part::Upper;
  return triangle == "full" ? Part::Full : Part::AsStored;
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

MatrixEntries BothTriangles(MatrixEntries const& matrix, std::string const& name) {
  int const order = std::max(matrix.Rows(), matrix.Columns());
  SymmetricMatrix const symmetric = MakeSymmetric(matrix, MeasureSymmetry(matrix), order, "'" + name + "'");
  EntryAssembly assembly(name);
  for (Entry const& e : symmetric.Lower()) {
    assembly.Add(e.row, e.column, e.value);
    if (e.row != e.column) assembly.Add(e.column, e.row, e.value);
  }
  MatrixEntries both = assembly.Finish();
  both.Enlarge(order, order);
  return both;
}

std::string InText(std::string const& path, FileKind kind, MatrixEntries const& matrix) {
  return Format("%s: %d x %d, %s, %s\n", path.c_str(), matrix.Rows(), matrix.Columns(),
                Counted(static_cast<std::int64_t>(matrix.Items().size()), "entry", "entries").c_str(),
                Describe(kind).text);
}

std::string OutText(std::string const& path, WriteOptions const& options) {
  char const* const parts[] = {"", ", lower triangle", ", upper triangle", ", both triangles"};
  return path + ": " + Describe(options.kind).text + parts[static_cast<int>(options.part)] + "\n";
}

/// Text without a header cannot say that rows or columns without entries follow.
std::string LostShapeText(FileKind kind, MatrixEntries const& matrix) {
  if (kind != FileKind::Triplets && kind != FileKind::Commas && kind != FileKind::NodeDofs) return {};
  int rows = 0;
  int columns = 0;
  for (Entry const& e : matrix.Items()) {
    rows = std::max(rows, static_cast<int>(e.row) + 1);
    columns = std::max(columns, static_cast<int>(e.column) + 1);
  }
  if (rows == matrix.Rows() && columns == matrix.Columns()) return {};
  return Format(
      "note: the last entries lie in row %d and column %d; this type does not tell of what follows\n", rows,
      columns);
}

/// The library counts the diagonal of a symmetric form among the nonzeros or not, by where it comes from, and
/// its products do nothing where there are none.
std::string DiagonalOnlyText(FileKind kind, MatrixEntries const& matrix) {
  if (kind != FileKind::Fortran && kind != FileKind::Blocks && kind != FileKind::Chunks) return {};
  auto const isOnDiagonal = [](Entry const& e) { return e.row == e.column; };
  if (!std::ranges::all_of(matrix.Items(), isOnDiagonal)) return {};
  return "note: the matrix has a diagonal only; imported from Fortran records, or from a database, the "
         "library's products with it do nothing\n";
}

} // namespace

std::string ConvertText(ConvertOptions const& options) {
  WriteOptions const write{options.to.empty() ? KindOfExtension(options.outPath) : KindOfName(options.to),
                           PartOf(options.triangle), options.dofsPerNode, options.digits,
                           options.isLargeAllowed};
  ReplacedFile file(options.outPath);
  InputFile const in(options.inPath);
  ReadOptions const read = ReadOptionsOf(options, in);
  MatrixEntries matrix = LoadMatrix(in, read);
  std::string const text = InText(in.Name(), *read.kind, matrix);
  if (write.part != Part::AsStored) matrix = BothTriangles(matrix, in.Name());

  Progress const progress("writing " + options.outPath);
  file.Let([&](std::string const& path) { SaveMatrix(path, matrix, write); });
  file.TakePlace();
  return text + OutText(options.outPath, write) + LostShapeText(write.kind, matrix) +
         DiagonalOnlyText(write.kind, matrix);
}

std::string FileKindsText() {
  std::string text;
  for (FileKindDescription const& kind : FileKinds())
    text +=
        Format("  %-10s %-5s %s\n", kind.name, kind.extension != nullptr ? kind.extension : "", kind.text);
  return text;
}

} // namespace orx::tool
