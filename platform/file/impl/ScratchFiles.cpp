#include "file/ScratchFiles.h"

#include "file/PositionedFile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace orx::file {

namespace {

namespace fs = std::filesystem;

/// The bytes of the mark, as many as the superblock has that is written over them.
using Mark = std::array<char, 48>;

/// The mark has the machine's name, because other machines that use the folder may not see its locks.
Mark MarkOfThisMachine() {
  Mark mark{};
  constexpr char text[] = "orx scratch, on ";
  std::memcpy(mark.data(), text, sizeof text - 1);
  gethostname(mark.data() + sizeof text - 1, mark.size() - sizeof text);
  return mark;
}

/// An existing file that is opened only to inspect it. It is not opened through a symbolic link, and the
/// opening of a pipe does not wait for its other end.
class InspectedFile {
public:
  explicit InspectedFile(std::string const& path)
      : m_path(path),
        m_descriptor(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    m_error = m_descriptor < 0 ? errno : 0;
    m_hasFacts = m_error == 0 && fstat(m_descriptor, &m_facts) == 0;
  }
  InspectedFile(InspectedFile const&) = delete;
  InspectedFile& operator=(InspectedFile const&) = delete;
  ~InspectedFile() {
    if (m_descriptor >= 0) close(m_descriptor);
  }

  int Error() const { return m_error; } ///< errno of the opening; 0 when it has succeeded
  bool IsRegular() const { return m_hasFacts && S_ISREG(m_facts.st_mode); }
  bool IsInUse() const { return flock(m_descriptor, LOCK_EX | LOCK_NB) != 0; }
  bool BeginsWith(char const* bytes, std::size_t count) const {
    Mark start{};
    return pread(m_descriptor, start.data(), count, 0) == static_cast<ssize_t>(count) &&
           std::memcmp(start.data(), bytes, count) == 0;
  }
  /// True when the path still names the file that was opened.
  bool HasItsName() const {
    struct stat named {};
    return lstat(m_path.c_str(), &named) == 0 && named.st_ino == m_facts.st_ino &&
           named.st_dev == m_facts.st_dev;
  }

private:
  std::string m_path;
  int m_descriptor;
  int m_error = 0;
  bool m_hasFacts = false;
  struct stat m_facts {};
};

/// True when the file begins with HDF5's signature, or with the mark of a commit that is due.
bool IsDatabase(InspectedFile const& file) {
  return file.BeginsWith("\211HDF\r\n\032\n", 8) || file.BeginsWith("orxapply", 8);
}

[[noreturn]] void RaiseNotReplaceable(std::string const& path, int error, char const* reason) {
  throw FileError(FileError::Access::Open, "creating", path, error, reason);
}

/// Raises FileError unless a new scratch file may replace the file.
void RequireExpendable(std::string const& path, InspectedFile const& file, bool replacesDatabase) {
  if (file.Error() != 0) RaiseNotReplaceable(path, file.Error(), std::strerror(file.Error()));
  if (!file.IsRegular()) RaiseNotReplaceable(path, ENODEV, "it is not a regular file");
  if (file.IsInUse())
    RaiseNotReplaceable(path, EWOULDBLOCK,
                        "another process, or this one, has it open for reading or writing");
  if (!replacesDatabase && IsDatabase(file))
    RaiseNotReplaceable(path, EEXIST, "there is a database of this name that is not scratch");
}

/// Deletes a file that has the mark and that no process has open.
void RemoveIfAbandoned(std::string const& path, Mark const& mark) {
  InspectedFile const file(path);
  if (file.Error() != 0 || !file.IsRegular() || !file.BeginsWith(mark.data(), mark.size())) return;
  if (!file.IsInUse() && file.HasItsName()) unlink(path.c_str());
}

} // namespace

void MakeWayForScratch(std::string const& path, bool replacesDatabase) {
  InspectedFile const file(path);
  if (file.Error() == ENOENT) return;
  bool const isLink = file.Error() == ELOOP;
  if (!isLink) RequireExpendable(path, file, replacesDatabase);
  if (unlink(path.c_str()) != 0 && errno != ENOENT) RaiseNotReplaceable(path, errno, std::strerror(errno));
}

void MarkAsScratch(PositionedFile& file) {
  Mark const mark = MarkOfThisMachine();
  file.WriteAt(0, mark.data(), mark.size());
}

void SweepFolderOf(std::string const& path) noexcept {
  try {
    static std::set<fs::path> swept;
    fs::path const folder = fs::absolute(path).parent_path();
    if (!swept.insert(folder).second) return;
    Mark const mark = MarkOfThisMachine();
    for (fs::directory_entry const& entry : fs::directory_iterator(folder))
      if (entry.path().extension() == ".sim") RemoveIfAbandoned(entry.path().string(), mark);
  } catch (std::exception const&) {
    return; // for instance a folder that cannot be listed
  }
}

} // namespace orx::file
