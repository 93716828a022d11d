#include "tools/formats/MatrixFile.h"

#include "tools/formats/HeaderlessText.h"
#include "tools/formats/MatrixMarket.h"
#include "tools/terminal/Memory.h"
#include "tools/terminal/Progress.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace orx::tool {
namespace {

MatrixEntries Import(std::string const& path, int code) {
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(path.c_str(), code);
  return MatrixEntries(matrix);
}

/// The library gives the entries of a symmetric form as a diagonal and pairs.
MatrixEntries ImportSymmetric(std::string const& path, int code) {
  MatrixEntries const unordered = Import(path, code);
  EntryAssembly assembly(path);
  for (Entry const& e : unordered.Items())
    assembly.Add(e.row, e.column, e.value);
  MatrixEntries entries = assembly.Finish();
  entries.Enlarge(unordered.Rows(), unordered.Columns());
  return entries;
}

/// When the entries fill the chunks to the last place, writers by the format's letter leave the last chunk
/// empty, and its entries are not in the file.
void RequireLastChunk(std::string const& path) {
  constexpr std::int64_t chunk = std::int64_t{1} << 17;
  std::ifstream file(path, std::ios::binary);
  std::array<std::int32_t, 2> header{};
  file.read(reinterpret_cast<char*>(header.data()), sizeof header);
  auto const [order, entries] = header;
  if (!file || order < 0 || entries <= 0 || entries % chunk != 0) return;
  std::vector<std::int32_t> columns(chunk);
  file.seekg(24 + 4 * (std::int64_t{order} + 1) + std::int64_t{8} * order + 12 * (entries - chunk));
  file.read(reinterpret_cast<char*>(columns.data()), 4 * chunk);
  if (file && std::all_of(columns.begin(), columns.end(), [](std::int32_t column) { return column == 0; }))
    throw ToolError(ExitCode::UnusableInput,
                    Format("'%s': the last chunk is empty, its 131072 entries are not in the file: a chunked "
                           "file cannot hold a multiple of 131072 entries beside the diagonal",
                           path.c_str()));
}

MatrixEntries LoadTriplets(std::string const& path, int base) {
  return base == 1 && !BeginsWithByteOrderMark(path) ? Import(path, 3) : ReadTriplets(path, base);
}

MatrixEntries LoadAs(FileKind kind, std::string const& path, ReadOptions const& options) {
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
    return ImportSymmetric(path, 0);
  case FileKind::Blocks:
    return ImportSymmetric(path, 1);
  case FileKind::Chunks:
    RequireLastChunk(path);
    return ImportSymmetric(path, 6);
  case FileKind::Dense:
    return Import(path, 7);
  }
  throw ToolError(ExitCode::Failure, "unknown file type");
}

} // namespace

FileKind KindToRead(InputFile const& file, ReadOptions const& options) {
  return options.kind ? *options.kind : file.Let([](std::string const& path) { return RecognizeKind(path); });
}

MatrixEntries LoadMatrix(InputFile const& file, ReadOptions const& options) {
  Progress const progress("reading " + file.Name());
  FileKind const kind = KindToRead(file, options);
  MatrixEntries entries = file.Let([&](std::string const& path) { return LoadAs(kind, path, options); });
  RequireRoomForTables(file.Name(), entries.Rows(), entries.Columns(), AvailableMemory());
  if (HasHeader(kind)) entries.DeclareWhole();
  return entries;
}

MatrixEntries LoadMatrix(std::string const& path, ReadOptions const& options) {
  return LoadMatrix(InputFile(path), options);
}

} // namespace orx::tool
