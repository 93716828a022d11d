#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace orx::file {

struct FileRange {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

/// A failed operation on a file: what was done, where, how much, why, and the free space where that is why.
class FileError : public std::exception {
public:
  enum class Access : std::uint8_t { Open, Read, Write };

  /// `operation` is how the message begins: "reading", "reserving space in". An empty range is not named.
  FileError(Access access, char const* operation, std::string const& path, int error, FileRange range = {},
            std::optional<std::uint64_t> freeBytes = {});
  /// A failure that no system call reported, in words.
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

/// An open and locked file: reads and writes at offsets, space that is reserved before it is used, and a
/// mapping of the bytes. Writers lock out everybody, readers lock out writers; the lock ends with the object.
/// All that lies inside the file has its space reserved, as far as the file system can. Errors are FileError;
/// after one the file is as it was, but a failed write may have written a part.
///
/// A process that is forked from the owner has a copy of the object. The copy reads; everything that would
/// change the file is an error, and its destruction neither unlocks nor removes anything.
class PositionedFile {
public:
  enum class Mode : std::uint8_t {
    Read,    ///< an existing file
    Write,   ///< an existing file
    Create,  ///< a file that must not exist; it is built under another name, see Publish
    Replace, ///< the same, but there may be a file, which nobody else has open; it stays until Publish
    Scratch, ///< a file that must not exist, see MakeWayForScratch
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
  /// Raises unless the process may change the file; `operation` as in FileError.
  void RequireOwner(char const* operation) const;
  /// Raises when another program has shortened or deleted the file.
  void RequireIntact(char const* operation) const;

  // A file that is being created

  /// A file that is not published is removed with the object.
  bool IsPublished() const noexcept { return m_stagedPath.empty(); }
  /// Gives the file its name, and makes the name durable. A file of that name is replaced, or an error, as
  /// the mode says. After an error it may be tried again.
  void Publish();

  // Reading and writing

  /// All of the bytes; it is an error when the file ends before.
  void ReadAt(std::uint64_t offset, void* to, std::size_t bytes) const;
  /// The same, with zeros for what is behind the file's end.
  void ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteAt(std::uint64_t offset, void const* from, std::size_t bytes);
  /// Makes the range read as zeros and keeps its space; cheap for large ranges.
  void Zero(std::uint64_t offset, std::uint64_t bytes);

  // Size and durability

  /// What a longer file has in addition reads as zero, but has no space yet: see Reserve.
  void Resize(std::uint64_t size);
  /// Sets space aside for the range and lengthens the file to its end; what was not in the file reads as
  /// zero. False when the file system cannot; then the file is only lengthened. After an error it has its old
  /// size.
  bool Reserve(std::uint64_t from, std::uint64_t to);
  /// Makes what was written durable. After a failure the system may have dropped it: it must be written
  /// anew.
  void Sync();
  /// Takes the file's name away, if it still is this file's, whatever the current directory is by now.
  /// Failures are ignored.
  void Unlink() const noexcept;

  // Mapping

  /// For a file that was opened, to be called before anything is mapped, and not before it is known to be one
  /// of ours: fills the holes that another program has left in it.
  void PrepareMapping();
  /// Whether Bytes may be used: only where the file system keeps what was reserved does a full disk never
  /// turn into a signal. Otherwise take ReadAt and WriteAt. May turn false, when space cannot be reserved.
  bool MapsSafely() const noexcept { return m_mapsSafely; }
  /// The same for a range inside the file, which is then mapped. Where the process has no addresses left, all
  /// further access goes without the mapping.
  bool CanMap(std::uint64_t offset, std::uint64_t bytes) {
    return m_mapsSafely && (IsMapped(offset, bytes) || TryToMapFurther(offset, bytes));
  }
  /// The bytes of a range inside the file, in one mapping of it; valid until the next call. It is an error
  /// when the range leaves the file.
  std::byte* Bytes(std::uint64_t offset, std::uint64_t bytes) {
    return IsMapped(offset, bytes) ? m_mapping + offset : MapFurther(offset, bytes);
  }

private:
  static std::uint64_t s_forks; ///< that lead to this process, since the first file was opened

  bool IsMapped(std::uint64_t offset, std::uint64_t bytes) const noexcept {
    return offset <= m_size && bytes <= m_size - offset && offset + bytes <= m_mapped;
  }
  bool IsCreating() const noexcept { return m_mode == Mode::Create || m_mode == Mode::Replace; }
  void Open();
  void OpenStaged();
  void LockPredecessor();
  void Lock(int descriptor) const;
  void CheckIdentity();
  void CloseAll() noexcept;
  int TakeName();
  void GiveNameBack() noexcept;
  void SyncFolder() const;
  bool CanMapSafely();
  int TryReserve(std::uint64_t from, std::uint64_t to) const;
  void ZeroPages(std::uint64_t from, std::uint64_t to);
  void WriteZeros(std::uint64_t from, std::uint64_t to);
  std::byte* MapFurther(std::uint64_t offset, std::uint64_t bytes);
  bool TryToMapFurther(std::uint64_t offset, std::uint64_t bytes);
  bool TryToMap(std::uint64_t bytes);
  [[noreturn]] void Raise(FileError::Access access, char const* operation, int error, FileRange range) const;
  [[noreturn]] void RaiseOutside(char const* operation, FileRange range) const;

  std::string m_path;
  std::string m_absolutePath;
  Mode m_mode;
  std::string m_target;     ///< where Publish puts the file: the path behind symbolic links
  std::string m_stagedPath; ///< its name before; "" once it is published
  std::uint64_t m_forks;
  int m_descriptor = -1;
  int m_predecessor = -1;     ///< the locked file that Publish replaces; -1: there is none
  bool m_isExchanged = false; ///< it has the staged name
  bool m_mapsSafely = false;
  std::uint64_t m_size = 0;
  std::byte* m_mapping = nullptr;
  std::uint64_t m_mapped = 0; ///< bytes of the mapping, which may reach beyond the file's end
};

/// A system call on an open file, shown to the fault hook before it is made.
struct FileStep {
  enum class Kind : std::uint8_t { Write, Resize, Reserve, Sync, Rename, Read, Map };
  Kind kind;
  int descriptor;
  std::uint64_t offset; ///< for Resize the new size
  void const* data;     ///< for Write, else null
  std::uint64_t bytes;
};

/// For tests: returns 0, or the errno that the step is to fail with; may end the process. Null: no faults.
using FaultHook = std::function<int(FileStep const&)>;
void SetFaultHook(FaultHook hook);

} // namespace orx::file
