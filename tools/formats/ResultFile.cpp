#include "tools/formats/ResultFile.h"

#include "tools/formats/MatrixExport.h"
#include "tools/terminal/Text.h"
#include "tools/terminal/ToolError.h"

#include <filesystem>
#include <system_error>

namespace orx::tool {
namespace {

FileKind KindOfResult(std::string const& option, std::string const& path) {
  if (path == "-") return FileKind::Triplets;
  std::string const extension = std::filesystem::path(path).extension().string();
  for (FileKind const kind : {FileKind::Triplets, FileKind::Commas, FileKind::MatrixMarket, FileKind::Dense})
    if (extension == Describe(kind).extension) return kind;
  throw ToolError(ExitCode::WrongUsage, Format("%s '%s': expected the extension .txt, .csv, .mtx or .bin",
                                               option.c_str(), path.c_str()));
}

std::string const& RequireNoInput(std::string const& option, std::string const& path,
                                  std::span<std::string const> inputs) {
  std::error_code ignored;
  for (std::string const& input : inputs)
    if (std::filesystem::equivalent(path, input, ignored))
      throw ToolError(ExitCode::WrongUsage, Format("%s names the input file '%s'; expected another file",
                                                   option.c_str(), input.c_str()));
  return path;
}

} // namespace

ResultFile::ResultFile(std::string const& option, std::string const& path,
                       std::span<std::string const> inputs)
    : m_kind(KindOfResult(option, path)), m_file(RequireNoInput(option, path, inputs)) {}

void ResultFile::Write(ORXSrvSparseMatrix const& columns) {
  WriteOptions options;
  std::int64_t const positions = std::int64_t{columns.NumberOfRows()} * columns.NumberOfColumns();
  bool const isFull = columns.NumberOfNonzeros() == positions;
  options.kind = m_kind == FileKind::MatrixMarket && isFull ? FileKind::MatrixMarketArray : m_kind;
  options.isLargeAllowed = true;
  options.digits = 17;
  m_file.WriteWith([&](std::string const& path) { SaveMatrix(path, columns, options); });
  m_file.ReplaceTarget();
}

} // namespace orx::tool
