#include "tools/formats/ResultFile.h"

#include "tools/formats/ColumnsDatabase.h"
#include "tools/formats/InputFile.h"
#include "tools/formats/MatrixExport.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <system_error>
#include <vector>

namespace orx::tool {
namespace {

/// Empty for a database.
std::optional<FileKind> KindOfResult(std::string const& option, std::string const& path) {
  if (IsDatabase(path)) return {};
  if (path == "-") return FileKind::Triplets;
  std::string const extension = std::filesystem::path(path).extension().string();
  for (FileKind const kind : kindsOfColumns)
    if (extension == Describe(kind).extension) return kind;
  throw ToolError(ExitCode::WrongUsage,
                  Format("%s '%s': expected the extension ", option.c_str(), path.c_str()) +
                      extensionsOfColumns);
}

std::string const& RequireNoInput(std::string const& option, std::string const& path,
                                  std::span<std::string const> inputs) {
  std::error_code ignored;
  for (std::string const& input : inputs)
    if (std::filesystem::equivalent(path, PathOf(input), ignored))
      throw ToolError(ExitCode::WrongUsage, Format("%s names the input file '%s'; expected another file",
                                                   option.c_str(), input.c_str()));
  return path;
}

void WriteDatabase(std::string const& path, char const* type, ORXSrvSparseMatrix const& columns,
                   std::span<int const> labels) {
  std::unique_ptr<ORXSrvSparseMatrix const> const byColumns(columns.Transpose());
  CompressedRowsView const view = byColumns->View();
  std::vector<double> column(static_cast<std::size_t>(columns.NumberOfRows()));
  ColumnsDatabase database(path, {columns.NumberOfRows(), columns.NumberOfColumns(), labels});
  database.AddBlockMatrix(type, [&](int j) {
    std::ranges::fill(column, 0.0);
    for (std::int32_t k = view.rowPointers[j]; k < view.rowPointers[j + 1]; ++k)
      column[view.columnIndices[k]] = view.values[k];
    return column.data();
  });
  database.Commit();
}

} // namespace

ResultFile::ResultFile(std::string const& option, std::string const& path,
                       std::span<std::string const> inputs)
    : m_kind(KindOfResult(option, path)), m_file(RequireNoInput(option, path, inputs)) {}

void ResultFile::Write(char const* what, ORXSrvSparseMatrix const& columns, std::span<int const> labels) {
  m_file.WriteWith([&](std::string const& path) {
    if (!m_kind) return WriteDatabase(path, what, columns, labels);
    WriteOptions options;
    std::int64_t const positions = std::int64_t{columns.NumberOfRows()} * columns.NumberOfColumns();
    bool const isFull = columns.NumberOfNonzeros() == positions;
    options.kind = m_kind == FileKind::MatrixMarket && isFull ? FileKind::MatrixMarketArray : *m_kind;
    options.isLargeAllowed = true;
    options.digits = 17;
    SaveMatrix(path, columns, options);
  });
  m_file.ReplaceTarget();
}

} // namespace orx::tool
