#include "tools/formats/ShapesFile.h"

#include "tools/formats/MatrixExport.h"
#include "tools/terminal/ToolError.h"

#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>

namespace orx::tool {
namespace {

constexpr int rowsOfChunk = 65536;
constexpr int columnsOfChunk = 64;

bool IsDatabase(std::string const& path) {
  return std::ranges::any_of(std::array{".sim", ".h5", ".hdf5"},
                             [&](char const* extension) { return path.ends_with(extension); });
}

FileKind KindOfShapes(std::string const& path) {
  FileKind kind = FileKind::Triplets;
  for (FileKindDescription const& description : FileKinds())
    if (description.extension != nullptr && path.ends_with(description.extension)) kind = description.kind;
  for (FileKind const known : {FileKind::Triplets, FileKind::Commas, FileKind::MatrixMarket, FileKind::Dense})
    if (kind == known) return kind;
  throw ToolError(ExitCode::WrongUsage, "--shapes '" + path + "': a file of type " + Describe(kind).name +
                                            " cannot hold them; expected .txt, .csv, .mtx or .bin, or .sim "
                                            "or .h5 for a database");
}

/// The path, unless its extension stands for a type that cannot hold shapes.
std::string const& RequireType(std::string const& path) {
  if (!IsDatabase(path)) KindOfShapes(path);
  return path;
}

ORXSrvSparseMatrix ShapesOf(std::vector<Mode> const& modes, int order) {
  auto const count = static_cast<std::uint32_t>(modes.size());
  ORXSrvSparseMatrix shapes(order, static_cast<int>(count));
  for (std::uint32_t mode = 0; mode < count; ++mode)
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(order); ++i)
      shapes.AddData(i, mode, modes[mode].shape[i]);
  shapes.EndAssembly();
  return shapes;
}

/// Column by column: the chunks' own memory is the only copy.
void FillShapes(ORXSimDistributionID const& distribution, ORXSimCollection const& columns,
                std::vector<Mode> const& modes) {
  ORXSimTransfer transfer{ORXSimDistribution(distribution)};
  transfer.SetWrite();
  int column = 0;
  for (Mode const& mode : modes) {
    transfer.SetDimOrdinalRange(0, columns.ID(), column, column)
        .SetBuffer(0, mode.shape.data(), static_cast<std::int64_t>(mode.shape.size() * sizeof(double)))
        .ExecWrite();
    ++column;
  }
}

void FillFrequencies(ORXSimDistributionID const& distribution, std::vector<Mode> const& modes) {
  std::vector<double> frequencies;
  std::ranges::transform(modes, std::back_inserter(frequencies), Frequency);
  ORXSimTransfer(ORXSimDistribution(distribution))
      .SetWrite()
      .SetBuffer(0, frequencies.data(), static_cast<std::int64_t>(frequencies.size() * sizeof(double)))
      .ExecWrite();
}

} // namespace

void WriteShapesDatabase(std::string const& path, std::vector<Mode> const& modes, int order) {
  ORXSimDatabase database;
  database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
  ORXSimContextID const id = database.CreateContext({});
  ORXSimContext const context(id);
  ORXSimTransaction transaction(id);
  ORXSrvPosition const position(id);
  int const count = static_cast<int>(modes.size());
  ORXSimCollection const unknowns(context.CreateCollection(order, ORXSimTypeID()));
  ORXSimCollection const columns(context.CreateCollection(count, ORXSimTypeID()));
  FillShapes(ORXSrvUtilities::Create2DDistribution(transaction, position, context.DefineType("mode shapes"),
                                                   unknowns.BiggestCSetID(), columns.BiggestCSetID(),
                                                   rowsOfChunk, columnsOfChunk),
             columns, modes);
  FillFrequencies(ORXSrvUtilities::Create1DDistribution(transaction, position,
                                                        context.DefineType("frequencies, Hz"),
                                                        columns.BiggestCSetID(), -1),
                  modes);
  transaction.Commit();
  database.Close();
}

ShapesFile::ShapesFile(std::string const& path) : m_path(RequireType(path)), m_file(path) {}

void ShapesFile::Write(std::vector<Mode> const& modes, int order) {
  m_file.WriteWith([&](std::string const& path) {
    if (IsDatabase(m_path)) return WriteShapesDatabase(path, modes, order);
    WriteOptions options;
    options.kind = KindOfShapes(m_path);
    options.isLargeAllowed = true;
    SaveMatrix(path, ShapesOf(modes, order), options);
  });
  m_file.ReplaceTarget();
}

} // namespace orx::tool
