#include "tools/formats/ShapesFile.h"

#include "tools/formats/ColumnsDatabase.h"
#include "tools/formats/MatrixExport.h"
#include "tools/formats/ResultFile.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace orx::tool {
namespace {

FileKind KindOfShapes(std::string const& path) {
  FileKind kind = FileKind::Triplets;
  for (FileKindDescription const& description : FileKinds())
    if (description.extension != nullptr && path.ends_with(description.extension)) kind = description.kind;
  if (std::ranges::find(kindsOfColumns, kind) != std::end(kindsOfColumns)) return kind;
  throw ToolError(ExitCode::WrongUsage, "--shapes '" + path + "': a file of type " + Describe(kind).name +
                                            " cannot hold them; expected " + extensionsOfColumns);
}

/// The path, unless its extension stands for a type that cannot hold shapes.
std::string const& RequireType(std::string const& path) {
  if (!IsDatabase(path)) KindOfShapes(path);
  return path;
}

ORXSrvSparseMatrix ShapesOf(int count, int order, std::function<double const*(int)> const& shape) {
  ORXSrvSparseMatrix shapes(order, count);
  for (int mode = 0; mode < count; ++mode) {
    double const* const components = shape(mode);
    for (int i = 0; i < order; ++i)
      shapes.AddData(static_cast<std::uint32_t>(i), static_cast<std::uint32_t>(mode), components[i]);
  }
  shapes.EndAssembly();
  return shapes;
}

} // namespace

void WriteShapesDatabase(std::string const& path, std::vector<Mode> const& modes, int order,
                         std::function<double const*(int)> const& shape, std::span<int const> labels) {
  ColumnsDatabase database(path, {order, static_cast<int>(modes.size()), labels});
  database.AddBlockMatrix("mode shapes", shape);
  std::vector<double> frequencies(modes.size());
  std::ranges::transform(modes, frequencies.begin(), Frequency);
  database.AddVector("frequencies, Hz", frequencies);
  database.Commit();
}

ShapesFile::ShapesFile(std::string const& path) : m_path(RequireType(path)), m_file(path) {}

void ShapesFile::Write(std::vector<Mode> const& modes, int order,
                       std::function<double const*(int)> const& shape, std::span<int const> labels) {
  m_file.WriteWith([&](std::string const& path) {
    if (IsDatabase(m_path)) return WriteShapesDatabase(path, modes, order, shape, labels);
    WriteOptions options;
    options.kind = KindOfShapes(m_path);
    options.isLargeAllowed = true;
    SaveMatrix(path, ShapesOf(static_cast<int>(modes.size()), order, shape), options);
  });
  m_file.ReplaceTarget();
}

} // namespace orx::tool
