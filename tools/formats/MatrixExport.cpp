#include "tools/formats/MatrixExport.h"

#include "tools/formats/MatrixMarket.h"
#include "tools/formats/OutputFile.h"
#include "tools/formats/SymmetricFiles.h"
#include "tools/numerics/RowPairs.h"
#include "tools/numerics/Symmetry.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "mtx/layouts/FileLayouts.h"
#include "sim/ORXSrvSystemDofDefinition.h"

#include <vector>

namespace orx::tool {
namespace {

bool IsInTriangle(std::uint32_t row, std::uint32_t column, Triangle triangle) {
  return (triangle != Triangle::Lower || row >= column) && (triangle != Triangle::Upper || row <= column);
}

ORXSrvSparseMatrix ExtractTriangle(ORXSrvSparseMatrix const& matrix, Triangle triangle) {
  ORXSrvSparseMatrix extracted(matrix.NumberOfRows(), matrix.NumberOfColumns());
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    if (IsInTriangle(row, column, triangle)) extracted.AddData(row, column, value);
  });
  extracted.EndAssembly();
  return extracted;
}

void Export(std::string const& path, ORXSrvSparseMatrix const& matrix, Triangle triangle, int code,
            ORXSrvSystemDofDefinition const* dofs = nullptr) {
  bool const isTriangle = triangle == Triangle::Lower || triangle == Triangle::Upper;
  if (isTriangle) return ExtractTriangle(matrix, triangle).Export(path.c_str(), code, dofs);
  matrix.Export(path.c_str(), code, dofs);
}

/// The types of text without a header, with 17 digits instead of the library's 16.
void WriteAllDigits(std::string const& path, ORXSrvSparseMatrix const& matrix, WriteOptions const& options) {
  OutputFile file(path);
  auto const nodeAndDof = [&](std::uint32_t unknown) {
    auto const dofs = static_cast<std::uint32_t>(options.dofsPerNode);
    return Format("%u,%u,", unknown / dofs + 1, unknown % dofs + 1);
  };
  bool const isSquare = matrix.NumberOfRows() == matrix.NumberOfColumns();
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    if (!IsInTriangle(row, column, options.triangle)) return;
    if (options.kind == FileKind::Triplets)
      file.Write(Format("%u %u ", row + 1, column + 1));
    else if (options.kind == FileKind::Commas)
      file.Write(Format("%u,%u, ", row, column));
    else
      file.Write(nodeAndDof(row) + (isSquare ? nodeAndDof(column) : Format("%u,0,", column)));
    file.Write(Format("%.16e\n", value));
  });
  file.Close();
}

/// Asks before a file that holds every position grows far beyond what it has to tell.
void RequireLargeAllowed(std::string const& path, ORXSrvSparseMatrix const& matrix,
                         WriteOptions const& options) {
  constexpr double large = 1e9;
  constexpr double bytesOfEntry = 24.0;
  double const bytes =
      (options.kind == FileKind::Dense ? 8.0 : 2.0) * matrix.NumberOfRows() * matrix.NumberOfColumns();
  bool const isSparse = bytes > 10.0 * bytesOfEntry * static_cast<double>(matrix.NumberOfNonzeros());
  if (options.isLargeAllowed || bytes < large || !isSparse) return;
  throw ToolError(
      ExitCode::WrongUsage,
      Format("'%s' becomes %s, of %d x %d values that are nearly all 0; --yes writes it, other types "
             "are smaller",
             path.c_str(), Gigabytes(bytes).c_str(), matrix.NumberOfRows(), matrix.NumberOfColumns()));
}

void RequireDofsPerNode(WriteOptions const& options) {
  if (options.dofsPerNode < 1) throw ToolError(ExitCode::WrongUsage, "text by nodes needs --dofs-per-node");
}

/// Nodes and degrees of freedom from 1, as many of them at each node.
void ExportNodeDofs(std::string const& path, ORXSrvSparseMatrix const& matrix, WriteOptions const& options) {
  ORXSimArray<ORXSrvNodeDof> equations(std::max(matrix.NumberOfRows(), matrix.NumberOfColumns()));
  for (int i = 0; i < equations.Size(); ++i)
    equations[i] = {i / options.dofsPerNode + 1, i % options.dofsPerNode + 1};
  ORXSrvSystemDofDefinition const dofs(equations);
  Export(path, matrix, options.triangle, 4, &dofs);
}

void RequireSquare(ORXSrvSparseMatrix const& matrix, FileKind kind) {
  if (matrix.NumberOfRows() != matrix.NumberOfColumns())
    throw ToolError(ExitCode::UnusableInput,
                    Format("the matrix is %d x %d; expected a square for a file of type %s",
                           matrix.NumberOfRows(), matrix.NumberOfColumns(), Describe(kind).name));
}

bool IsSymmetric(Symmetry const& symmetry) {
  bool const isHalf =
      symmetry.form == Symmetry::Form::LowerTriangle || symmetry.form == Symmetry::Form::UpperTriangle;
  return symmetry.IsExact() && !isHalf;
}

void RequireSymmetric(ORXSrvSparseMatrix const& matrix, FileKind kind) {
  RequireSquare(matrix, kind);
  Symmetry const symmetry = MeasureSymmetry(matrix);
  if (IsSymmetric(symmetry)) return;
  throw ToolError(
      ExitCode::UnusableInput,
      Format("a file of type %s holds a symmetric matrix, found: %s; --triangle takes one triangle, or "
             "both if they agree to rounding, for a symmetric matrix",
             Describe(kind).name, SymmetryText(symmetry).c_str()));
}

/// A square matrix in symmetric form, by its upper triangle for Triangle::Upper, else by the lower one. The
/// triangle has every position of which this or the mirror image is stored. `mirrored` receives the values of
/// the mirror images of its entries.
ORXSrvSparseMatrix SymmetricFormOf(ORXSrvSparseMatrix const& matrix, Triangle triangle,
                                   std::vector<double>* mirrored = nullptr) {
  bool const isUpper = triangle == Triangle::Upper;
  ORXSrvSparseMatrix stored(matrix.NumberOfRows(), matrix.NumberOfRows());
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    if (row == column) stored.AddData(row, column, value);
  });
  ForEachPair(matrix, [&](std::uint32_t i, std::uint32_t j, double const* lower, double const* upper) {
    double const below = lower != nullptr ? *lower : 0.0;
    double const above = upper != nullptr ? *upper : 0.0;
    stored.AddData(isUpper ? j : i, isUpper ? i : j, isUpper ? above : below);
    if (mirrored != nullptr) mirrored->push_back(isUpper ? below : above);
  });
  stored.EndAssembly();
  return stored.SymmetricForm(isUpper);
}

void SaveFortran(std::string const& path, ORXSrvSparseMatrix const& matrix, Triangle triangle) {
  RequireSymmetric(matrix, FileKind::Fortran);
  ORXSrvSparseMatrix const symmetric = SymmetricFormOf(matrix, triangle);
  WriteFortran(path, symmetric.View());
}

/// Only a matrix of which no triangle was asked for may be unsymmetric.
void SaveBlocks(std::string const& path, ORXSrvSparseMatrix const& matrix, Triangle triangle) {
  RequireSquare(matrix, FileKind::Blocks);
  bool const isSymmetric = IsSymmetric(MeasureSymmetry(matrix));
  std::vector<double> mirrored;
  ORXSrvSparseMatrix const form = SymmetricFormOf(matrix, triangle, isSymmetric ? nullptr : &mirrored);
  WriteBlocks(path, form.View(), isSymmetric ? nullptr : mirrored.data());
}

void SaveChunks(std::string const& path, ORXSrvSparseMatrix const& matrix, Triangle triangle) {
  RequireSymmetric(matrix, FileKind::Chunks);
  ORXSrvSparseMatrix const symmetric = SymmetricFormOf(matrix, triangle);
  std::int32_t const entries = symmetric.View().Entries();
  if (entries > 0 && entries % chunkLength == 0)
    throw ToolError(
        ExitCode::Failure,
        Format("a chunked file loses the last 131072 of %d entries beside the diagonal, as of every "
               "multiple of 131072; expected another type",
               entries));
  symmetric.Export(path.c_str(), 6, nullptr);
}

void SaveMarket(std::string const& path, ORXSrvSparseMatrix const& matrix, WriteOptions const& options) {
  if (options.triangle == Triangle::Upper)
    throw ToolError(ExitCode::WrongUsage,
                    "Matrix Market files keep the lower triangle; --triangle upper is for "
                    "other types");
  Mirror const mirror = options.triangle == Triangle::Full ? Mirror::None : MirrorOf(matrix);
  WriteMatrixMarket(path, matrix,
                    options.kind == FileKind::MatrixMarket ? MarketLayout::Coordinate : MarketLayout::Array,
                    mirror);
}

} // namespace

void SaveMatrix(std::string const& path, ORXSrvSparseMatrix const& matrix, WriteOptions const& options) {
  if (options.kind == FileKind::NodeDofs) RequireDofsPerNode(options);
  if (options.kind == FileKind::Dense || options.kind == FileKind::MatrixMarketArray)
    RequireLargeAllowed(path, matrix, options);
  if (options.digits == 17 && !HasHeader(options.kind)) return WriteAllDigits(path, matrix, options);
  switch (options.kind) {
  case FileKind::Triplets:
    return Export(path, matrix, options.triangle, 3);
  case FileKind::Commas:
    return Export(path, matrix, options.triangle, 5);
  case FileKind::NodeDofs:
    return ExportNodeDofs(path, matrix, options);
  case FileKind::MatrixMarket:
  case FileKind::MatrixMarketArray:
    return SaveMarket(path, matrix, options);
  case FileKind::Fortran:
    return SaveFortran(path, matrix, options.triangle);
  case FileKind::Blocks:
    return SaveBlocks(path, matrix, options.triangle);
  case FileKind::Chunks:
    return SaveChunks(path, matrix, options.triangle);
  case FileKind::Dense:
    return Export(path, matrix, options.triangle, 7);
  case FileKind::Database:
    throw ToolError(ExitCode::WrongUsage, "matrices of databases are read, not written");
  }
}

} // namespace orx::tool
