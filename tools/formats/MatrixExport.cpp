#include "tools/formats/MatrixExport.h"

#include "tools/formats/MatrixMarket.h"
#include "tools/formats/OutputFile.h"
#include "tools/formats/SymmetricFiles.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "sim/ORXSrvSystemDofDefinition.h"

#include <filesystem>

namespace orx::tool {
namespace {

bool IsInPart(Entry const& e, Part part) {
  return (part != Part::Lower || e.row >= e.column) && (part != Part::Upper || e.row <= e.column);
}

void Export(std::string const& path, MatrixEntries const& matrix, Part part, int code,
            ORXSrvSystemDofDefinition const* dofs = nullptr) {
  ORXSrvSparseMatrix general(matrix.Rows(), matrix.Columns());
  general.BeginAssembly();
  for (Entry const& e : matrix.Items())
    if (IsInPart(e, part)) general.AddData(e.row, e.column, e.value);
  general.EndAssembly();
  general.Export(path.c_str(), code, dofs);
}

/// The types of text without a header, with 17 digits instead of the library's 16.
void WriteAllDigits(std::string const& path, MatrixEntries const& matrix, WriteOptions const& options) {
  OutputFile file(path);
  auto const nodeAndDof = [&](std::uint32_t unknown) {
    auto const dofs = static_cast<std::uint32_t>(options.dofsPerNode);
    return Format("%u,%u,", unknown / dofs + 1, unknown % dofs + 1);
  };
  bool const isSquare = matrix.Rows() == matrix.Columns();
  for (Entry const& e : matrix.Items()) {
    if (!IsInPart(e, options.part)) continue;
    if (options.kind == FileKind::Triplets)
      file.Write(Format("%u %u ", e.row + 1, e.column + 1));
    else if (options.kind == FileKind::Commas)
      file.Write(Format("%u,%u, ", e.row, e.column));
    else
      file.Write(nodeAndDof(e.row) + (isSquare ? nodeAndDof(e.column) : Format("%u,0,", e.column)));
    file.Write(Format("%.16e\n", e.value));
  }
  file.Close();
}

/// Asks before a file that holds every position grows far beyond what it has to tell.
void RequireLargeAllowed(std::string const& path, MatrixEntries const& matrix, WriteOptions const& options) {
  constexpr double large = 1e9;
  constexpr double bytesOfEntry = 24.0;
  double const bytes = (options.kind == FileKind::Dense ? 8.0 : 2.0) * matrix.Rows() * matrix.Columns();
  bool const isSparse = bytes > 10.0 * bytesOfEntry * static_cast<double>(matrix.Items().size());
  if (options.isLargeAllowed || bytes < large || !isSparse) return;
  throw ToolError(
      ExitCode::WrongUsage,
      Format("'%s' becomes %s, of %d x %d values that are nearly all 0; --yes writes it, other types "
             "are smaller",
             path.c_str(), Gigabytes(bytes).c_str(), matrix.Rows(), matrix.Columns()));
}

void RequireDofsPerNode(WriteOptions const& options) {
  if (options.dofsPerNode < 1) throw ToolError(ExitCode::WrongUsage, "text by nodes needs --dofs-per-node");
}

/// Nodes and degrees of freedom from 1, as many of them at each node.
void ExportNodeDofs(std::string const& path, MatrixEntries const& matrix, WriteOptions const& options) {
  ORXSimArray<ORXSrvNodeDof> equations(std::max(matrix.Rows(), matrix.Columns()));
  for (int i = 0; i < equations.Size(); ++i)
    equations[i] = {i / options.dofsPerNode + 1, i % options.dofsPerNode + 1};
  ORXSrvSystemDofDefinition const dofs(equations);
  Export(path, matrix, options.part, 4, &dofs);
}

void RequireSquare(MatrixEntries const& matrix, FileKind kind) {
  if (matrix.Rows() != matrix.Columns())
    throw ToolError(ExitCode::UnusableInput,
                    Format("the matrix is %d x %d; expected a square for a file of type %s", matrix.Rows(),
                           matrix.Columns(), Describe(kind).name));
}

bool IsSymmetric(Symmetry const& symmetry) {
  bool const isHalf =
      symmetry.form == Symmetry::Form::LowerTriangle || symmetry.form == Symmetry::Form::UpperTriangle;
  return symmetry.IsExact() && !isHalf;
}

void RequireSymmetric(MatrixEntries const& matrix, FileKind kind) {
  RequireSquare(matrix, kind);
  Symmetry const symmetry = MeasureSymmetry(matrix);
  if (IsSymmetric(symmetry)) return;
  throw ToolError(
      ExitCode::UnusableInput,
      Format("a file of type %s holds a symmetric matrix, found: %s; --triangle takes one triangle, or "
             "both if they agree to rounding, for a symmetric matrix",
             Describe(kind).name, SymmetryText(symmetry).c_str()));
}

TriangleRows RowsOfPart(MatrixEntries const& matrix, Part part) {
  return RowsOfTriangle(matrix, part == Part::Upper ? Triangle::Upper : Triangle::Lower);
}

void SaveBlocks(std::string const& path, MatrixEntries const& matrix, Part part) {
  RequireSquare(matrix, FileKind::Blocks);
  WriteBlocks(path, RowsOfPart(matrix, part), IsSymmetric(MeasureSymmetry(matrix)));
}

/// The library writes chunks of a matrix in symmetric form, which it has only by reading one: a block file is
/// that, and has to be cut away because the writer leaves what it does not overwrite.
void SaveChunks(std::string const& path, MatrixEntries const& matrix, Part part) {
  RequireSymmetric(matrix, FileKind::Chunks);
  TriangleRows const rows = RowsOfPart(matrix, part);
  constexpr std::size_t chunk = std::size_t{1} << 17;
  if (!rows.columns.empty() && rows.columns.size() % chunk == 0)
    throw ToolError(
        ExitCode::Failure,
        Format("a chunked file loses the last 131072 of %zu entries beside the diagonal, as of every "
               "multiple of 131072; expected another type",
               rows.columns.size()));
  WriteBlocks(path, rows, true);
  ORXSrvSparseMatrix symmetric(0, 0);
  symmetric.Import(path.c_str(), 1);
  std::filesystem::resize_file(path, 0);
  symmetric.Export(path.c_str(), 6, nullptr);
}

void SaveMarket(std::string const& path, MatrixEntries const& matrix, WriteOptions const& options) {
  if (options.part == Part::Upper)
    throw ToolError(ExitCode::WrongUsage,
                    "Matrix Market files keep the lower triangle; --triangle upper is for "
                    "other types");
  Mirror const mirror = options.part == Part::Full ? Mirror::None : MirrorOf(matrix);
  WriteMatrixMarket(path, matrix,
                    options.kind == FileKind::MatrixMarket ? MarketLayout::Coordinate : MarketLayout::Array,
                    mirror);
}

} // namespace

void SaveMatrix(std::string const& path, MatrixEntries const& matrix, WriteOptions const& options) {
  if (options.kind == FileKind::NodeDofs) RequireDofsPerNode(options);
  if (options.kind == FileKind::Dense || options.kind == FileKind::MatrixMarketArray)
    RequireLargeAllowed(path, matrix, options);
  if (options.digits == 17 && !HasHeader(options.kind)) return WriteAllDigits(path, matrix, options);
  switch (options.kind) {
  case FileKind::Triplets:
    return Export(path, matrix, options.part, 3);
  case FileKind::Commas:
    return Export(path, matrix, options.part, 5);
  case FileKind::NodeDofs:
    return ExportNodeDofs(path, matrix, options);
  case FileKind::MatrixMarket:
  case FileKind::MatrixMarketArray:
    return SaveMarket(path, matrix, options);
  case FileKind::Fortran:
    RequireSymmetric(matrix, options.kind);
    return WriteFortran(path, RowsOfPart(matrix, options.part));
  case FileKind::Blocks:
    return SaveBlocks(path, matrix, options.part);
  case FileKind::Chunks:
    return SaveChunks(path, matrix, options.part);
  case FileKind::Dense:
    return Export(path, matrix, options.part, 7);
  }
}

} // namespace orx::tool
