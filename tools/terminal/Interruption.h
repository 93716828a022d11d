#pragma once

#include <string>
#include <vector>

namespace orx::tool {

/// Has a file, or a folder with all that is in it, removed when SIGINT, SIGTERM or SIGHUP end the program. A
/// signal that the caller has ignored, as nohup does, stays ignored. Eight at a time are remembered.
class RemovedWhenInterrupted {
public:
  RemovedWhenInterrupted() = default;
  RemovedWhenInterrupted(RemovedWhenInterrupted const&) = delete;
  RemovedWhenInterrupted& operator=(RemovedWhenInterrupted const&) = delete;
  ~RemovedWhenInterrupted() { Forget(); }

  /// Remembers a path instead of the one before.
  void Remember(std::string const& path);
  void Forget() noexcept;

private:
  int m_slot = -1;
};

/// All paths that are removed then.
std::vector<std::string> PathsRemovedWhenInterrupted();

/// A folder for the files of a computation, in $TMPDIR, else /tmp. It is removed with all that is in it by
/// its destructor, or when the program is interrupted.
class WorkFolder {
public:
  WorkFolder();
  WorkFolder(WorkFolder const&) = delete;
  WorkFolder& operator=(WorkFolder const&) = delete;
  ~WorkFolder();

  /// Empty when there can be none; who needs one then finds out why.
  std::string const& Path() const noexcept { return m_path; }

private:
  std::string m_path;
  RemovedWhenInterrupted m_removal;
};

} // namespace orx::tool
