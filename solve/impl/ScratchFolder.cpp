#include "solve/impl/ScratchFolder.h"

#include "solve/search/SolveErrors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace orx {

namespace {

/// MUMPS keeps 255 characters of it and appends names of its own.
constexpr std::size_t longestPath = 200;

std::string DefaultParent() {
  char const* const folder = std::getenv("TMPDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/tmp";
}

} // namespace

ScratchFolder::ScratchFolder(std::string const& parent)
    : m_path((parent.empty() ? DefaultParent() : parent) + "/ORXSrvSparseFactor-XXXXXX") {
  bool const isTooLong = m_path.size() > longestPath;
  if (isTooLong || mkdtemp(m_path.data()) == nullptr)
    RaiseSolveError(ORXSrvSolveError::onDisk,
                    "A folder for factors on disk, " + m_path +
                        ", cannot be made: " + std::strerror(isTooLong ? ENAMETOOLONG : errno) + ".");
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

} // namespace orx
