#include "tools/formats/MatrixFile.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/formats/HeaderlessText.h"
#include "tools/formats/MatrixMarket.h"
#include "tools/formats/Probe.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include "mtx/layouts/FileLayouts.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace orx::tool {
namespace {

ORXSrvSparseMatrix Import(std::string const& path, int code) {
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(path.c_str(), code);
  return matrix;
}

/// An unsymmetric block file comes in general form.
ORXSrvSparseMatrix ImportInGeneralForm(std::string const& path, int code) {
  ORXSrvSparseMatrix matrix = Import(path, code);
  return matrix.View().diagonal == nullptr ? std::move(matrix) : matrix.GeneralForm();
}

/// When the entries fill the chunks to the last place, writers by the format's letter leave the last chunk
/// empty, and its entries are not in the file.
void RequireLastChunk(std::string const& path) {
  Probe const file(path);
  BlockHeader header{};
  bool const isPossible = file.Read(0, header) && header.order >= 0 && header.entries > 0;
  if (!isPossible || header.entries % chunkLength != 0) return;
  auto const columns = std::make_unique<std::array<std::int32_t, chunkLength>>();
  bool const isThere = file.Read(header.ColumnsOffset() + 12 * (header.entries - chunkLength), *columns);
  if (isThere && std::ranges::all_of(*columns, [](std::int32_t column) { return column == 0; }))
    throw ToolError(ExitCode::UnusableInput,
                    Format("'%s': the last chunk is empty, its 131072 entries are not in the file: a chunked "
                           "file cannot hold a multiple of 131072 entries beside the diagonal",
                           path.c_str()));
}

ORXSrvSparseMatrix LoadTriplets(std::string const& path, int base) {
  return base == 1 && !BeginsWithByteOrderMark(path) ? Import(path, 3) : ReadTriplets(path, base);
}

ORXSrvSparseMatrix LoadAs(FileKind kind, std::string const& path, ReadOptions const& options) {
  switch (kind) {
  case FileKind::Triplets:
    return LoadTriplets(path, options.base.value_or(1));
  case FileKind::Commas:
    return ReadCommas(path, options.base.value_or(0));
  case FileKind::NodeDofs:
    return ReadNodeDofs(path, options.dofsPerNode);
  case FileKind::MatrixMarket:
  case FileKind::MatrixMarketArray:
    return ReadMatrixMarket(path);
  case FileKind::Fortran:
    return ImportInGeneralForm(path, 0);
  case FileKind::Blocks:
    return ImportInGeneralForm(path, 1);
  case FileKind::Chunks:
    RequireLastChunk(path);
    return ImportInGeneralForm(path, 6);
  case FileKind::Dense:
    return Import(path, 7);
  case FileKind::Database:
    break; // its matrix is found by more than the path
  }
  throw ToolError(ExitCode::Failure, "unknown file type");
}

} // namespace

FileKind KindToRead(InputFile const& file, ReadOptions const& options) {
  return options.kind ? *options.kind
                      : file.ReadWith([](std::string const& path) { return RecognizeKind(path); });
}

void EndAssembly(std::string const& path, ORXSrvSparseMatrix& matrix) {
  RequireRoomForTables(path, matrix.NumberOfRows(), matrix.NumberOfColumns(), AvailableMemory());
  matrix.EndAssembly();
}

ORXSrvSparseMatrix LoadMatrix(InputFile const& file, ReadOptions const& options) {
  Progress const progress("reading " + file.Name());
  FileKind const kind = KindToRead(file, options);
  if (kind == FileKind::Database) return ReadDatabaseMatrix(file, "").entries;
  ORXSrvSparseMatrix matrix =
      file.ReadWith([&](std::string const& path) { return LoadAs(kind, path, options); });
  RequireRoomForTables(file.Name(), matrix.NumberOfRows(), matrix.NumberOfColumns(), AvailableMemory());
  return matrix;
}

ORXSrvSparseMatrix LoadMatrix(std::string const& path, ReadOptions const& options) {
  return LoadMatrix(InputFile(path), options);
}

} // namespace orx::tool
