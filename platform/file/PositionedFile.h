#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace orx::file {

/// Consecutive bytes of a file.
struct FileRange {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

/// A failed operation on a file. The text names the operation, the path, the range of bytes, the reason, and
/// the free space when the reason is that there is too little.
class FileError : public std::exception {
public:
  enum class Access : std::uint8_t { Open, Read, Write };

  /// The message begins with `operation`: "reading", "reserving space in". It does not name an empty range.
  FileError(Access access, char const* operation, std::string const& path, int error, FileRange range = {},
            std::optional<std::uint64_t> freeBytes = {});
  /// A failure that no system call has reported; `reason` describes it.
  FileError(Access access, char const* operation, std::string const& path, int error,
            std::string const& reason);

  char const* what() const noexcept override { return m_text.c_str(); }
  int Error() const noexcept { return m_error; } ///< errno
  Access Kind() const noexcept { return m_access; }

private:
  std::string m_text;
  int m_error;
  Access m_access;
};

/// An open and locked file: reads and writes at file offsets, reserves space, and maps the bytes. A writer
/// excludes all other users of the file, a reader excludes writers; the lock ends with the object. All bytes
/// inside the file have their space reserved, where the file system can do that. Errors are FileError. After
/// an error the file is as before, except that a failed write may have written some of its bytes.
///
/// A process that is forked from the owner has a copy of the object. The copy can read. Functions that would
/// change the file raise an error, and its destructor neither unlocks nor removes anything.
class PositionedFile {
public:
  enum class Mode : std::uint8_t {
    Read,    ///< an existing file
    Write,   ///< an existing file
    Create,  ///< a new file, which must not exist; it has another name until Publish
    Replace, ///< the same, but a file may exist that nobody else has open; it stays until Publish
    Scratch, ///< a new file, which must not exist, see MakeWayForScratch
  };

  PositionedFile(std::string path, Mode mode);
  PositionedFile(PositionedFile const&) = delete;
  PositionedFile& operator=(PositionedFile const&) = delete;
  ~PositionedFile();

  std::string const& Path() const noexcept { return m_path; }
  bool IsReadOnly() const noexcept { return m_mode == Mode::Read; }
  std::uint64_t Size() const noexcept { return m_size; }
  /// False in a process that was forked from the one that opened the file.
  bool IsOwner() const noexcept { return m_forks == s_forks; }
  /// Raises FileError in a process that was forked from the owner; `operation` as in FileError.
  void RequireOwner(char const* operation) const;
  /// Raises FileError when another program has shortened or deleted the file.
  void RequireIntact(char const* operation) const;

  // Creation

  /// False for a new file that does not have its name yet. The destructor deletes such a file.
  bool IsPublished() const noexcept { return m_stagedPath.empty(); }
  /// Gives a new file its name and makes the name durable. An existing file of that name is an error in mode
  /// Create, and is replaced in mode Replace. After an error the call may be repeated.
  void Publish();

  // Reading and writing

  /// Reads a range of bytes; raises FileError when the file ends before the range does.
  void ReadAt(std::uint64_t offset, void* to, std::size_t bytes) const;
  /// Reads a range of bytes, as zeros behind the file's end.
  void ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteAt(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Makes the range read as zeros and keeps its space; cheap for large ranges.
  void ZeroRange(std::uint64_t offset, std::uint64_t bytes);

  // Size and durability

  /// Changes the size of the file. Added bytes read as zeros and have no space yet; see Reserve.
  void Resize(std::uint64_t size);
  /// Reserves space for the bytes [from, to) and lengthens the file to `to`; added bytes read as zeros.
  /// Returns false when the file system cannot reserve space; then the file is only lengthened. After an
  /// error the file has its former size.
  bool Reserve(std::uint64_t from, std::uint64_t to);
  /// Makes all written bytes durable. After a failure the system may have dropped them, and they must be
  /// written again.
  void Sync();
  /// Deletes the name of the file if it still names this file, even when the current directory has changed.
  /// Failures are ignored.
  void Unlink() const noexcept;

  // Mapping

  /// Determines if an opened file can be mapped, and reserves space for holes that another program has
  /// left in it. Call this before mapping, and only once the file is known to be one of ours.
  void PrepareMapping();
  /// True when Bytes may be used. False where the file system does not keep reserved space: a full disk would
  /// then end the process by a signal, so callers use ReadAt and WriteAt. Turns false when a reservation is
  /// not possible.
  bool MapsSafely() const noexcept { return m_mapsSafely; }
  /// Maps a range inside the file if that is possible. When the process has no address space left, the
  /// result is false here and in all later calls.
  bool CanMap(std::uint64_t offset, std::uint64_t bytes) {
    return m_mapsSafely && (IsMapped(offset, bytes) || TryToMapMore(offset, bytes));
  }
  /// Address of a range inside the file, in a mapping that the object owns; valid until the next call of this
  /// function or CanMap. Raises FileError when the range leaves the file.
  std::byte* Bytes(std::uint64_t offset, std::uint64_t bytes) {
    return IsMapped(offset, bytes) ? m_mapping + offset : MapMore(offset, bytes);
  }

private:
  static std::uint64_t s_forks; ///< number of forks that lead to this process, since the first opening

  bool IsMapped(std::uint64_t offset, std::uint64_t bytes) const noexcept {
    return offset <= m_size && bytes <= m_size - offset && offset + bytes <= m_mapped;
  }
  bool IsCreating() const noexcept { return m_mode == Mode::Create || m_mode == Mode::Replace; }
  void Open();
  void OpenStaged();
  void LockPredecessor();
  void LockFile(int descriptor) const;
  void CheckIdentity();
  void CloseAll() noexcept;
  int MoveToTarget();
  void MoveBackToStaged() noexcept;
  void SyncFolder() const;
  bool CanMapSafely();
  int TryReserve(std::uint64_t from, std::uint64_t to) const;
  void ZeroPages(std::uint64_t from, std::uint64_t to);
  void WriteZeros(std::uint64_t from, std::uint64_t to);
  std::byte* MapMore(std::uint64_t offset, std::uint64_t bytes);
  bool TryToMapMore(std::uint64_t offset, std::uint64_t bytes);
  bool TryToMap(std::uint64_t bytes);
  [[noreturn]] void Raise(FileError::Access access, char const* operation, int error, FileRange range) const;
  [[noreturn]] void RaiseOutside(char const* operation, FileRange range) const;

  std::string m_path;
  std::string m_absolutePath;
  Mode m_mode;
  std::string m_target;     ///< where Publish puts the file: the path behind symbolic links
  std::string m_stagedPath; ///< its name until then; "" afterwards
  std::uint64_t m_forks;
  int m_descriptor = -1;
  int m_predecessor = -1;     ///< the locked file that Publish replaces, or -1
  bool m_isExchanged = false; ///< the predecessor has the staged name
  bool m_mapsSafely = false;
  std::uint64_t m_size = 0;
  std::byte* m_mapping = nullptr;
  std::uint64_t m_mapped = 0; ///< bytes of the mapping, which may reach beyond the file's end
};

/// A system call on an open file. The fault hook gets it before the call is made.
struct FileStep {
  enum class Kind : std::uint8_t { Write, Resize, Reserve, Sync, Rename, Read, Map };
  Kind kind;
  int descriptor;
  std::uint64_t offset; ///< file offset; the new size for Resize
  void const* data;     ///< the bytes for Write, otherwise null
  std::uint64_t bytes;
};

/// For tests: called before each step. Returns 0, or the errno with which the step fails; it may also end the
/// process. A null hook causes no faults.
using FaultHook = std::function<int(FileStep const&)>;
void SetFaultHook(FaultHook hook);

} // namespace orx::file
