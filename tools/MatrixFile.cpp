#include "tools/MatrixFile.h"

#include "tools/Progress.h"
#include "tools/ToolError.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace tool {
namespace {

/// The library reports that a file did not open, not the system's reason.
void RequireReadable(std::string const& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored))
    errno = EISDIR;
  else if (access(path.c_str(), R_OK) == 0)
    return;
  throw ToolError(ExitCode::UnusableInput, "cannot read '" + path + "': " + std::strerror(errno));
}

} // namespace

MatrixEntries::MatrixEntries(ORXSrvSparseMatrix const& matrix)
    : m_rows(matrix.NumberOfRows()), m_columns(matrix.NumberOfColumns()) {
  int count = 0;
  m_items.reset(matrix.GetEntries(count));
  m_count = static_cast<std::size_t>(count);
}

MatrixEntries LoadMatrix(std::string const& path) {
  RequireReadable(path);
  Progress const progress("reading " + path);
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(path.c_str(), 3);
  return MatrixEntries(matrix);
}

} // namespace tool
