#pragma once

#include <string>

namespace orx {

/// A folder of its own for temporary files; it is deleted with all that lies in it.
class ScratchFolder {
public:
  /// Makes the folder inside `parent`, or where that is empty in $TMPDIR or /tmp. Raises
  /// ORXSrvSolveError::onDisk.
  explicit ScratchFolder(std::string const& parent);
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;
  ~ScratchFolder();

  std::string const& Path() const noexcept { return m_path; }

private:
  std::string m_path;
};

} // namespace orx
