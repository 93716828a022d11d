#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

namespace orx::store {

struct FileRange {
  std::uint64_t offset = 0;
  std::uint64_t bytes = 0;
};

/// A failed operation on a file: what was done, where, how much, why, and the free space where that is why.
class FileError : public std::exception {
public:
  enum class Access : std::uint8_t { Read, Write };

  /// `operation` is how the message begins: "reading", "reserving space in". An empty range is not named.
  FileError(Access access, char const* operation, std::string const& path, int error, FileRange range = {},
            std::optional<std::uint64_t> freeBytes = {});
  /// A failure that no system call reported, in words.
  FileError(Access access, char const* operation, std::string const& path, int error,
            std::string const& reason);

  char const* what() const noexcept override { return m_text.c_str(); }
  int Error() const noexcept { return m_error; } ///< errno
  bool IsRead() const noexcept { return m_access == Access::Read; }

private:
  std::string m_text;
  int m_error;
  Access m_access;
};

/// An open and locked file: reads and writes at offsets, space that is reserved before it is used, and a
/// mapping of the bytes. Writers lock out everybody, readers lock out writers; the lock ends with the object.
/// All that lies inside the file has its space reserved, as far as the file system can. Errors are FileError;
/// after one the file is as it was, but a failed write may have written a part.
class PositionedFile {
public:
  enum class Mode : std::uint8_t {
    Read,    ///< an existing file
    Write,   ///< an existing file
    Create,  ///< a file that must not exist
    Replace, ///< a new file, or an existing one that is emptied once it is locked
  };

  PositionedFile(std::string path, Mode mode);
  PositionedFile(PositionedFile const&) = delete;
  PositionedFile& operator=(PositionedFile const&) = delete;
  ~PositionedFile();

  std::string const& Path() const noexcept { return m_path; }
  bool IsReadOnly() const noexcept { return m_mode == Mode::Read; }
  std::uint64_t Size() const noexcept { return m_size; }

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
  void Sync();
  /// Makes the file's name durable.
  void SyncFolder() const;

  // Mapping

  /// Whether Bytes may be used: only where the file system keeps what was reserved does a full disk never
  /// turn into a signal. Otherwise take ReadAt and WriteAt. May turn false, when space cannot be reserved.
  bool MapsSafely() const noexcept { return m_mapsSafely; }
  /// The bytes of a range inside the file, in one mapping of it; valid until the next call. It is an error
  /// when the range leaves the file.
  std::byte* Bytes(std::uint64_t offset, std::uint64_t bytes) {
    bool const isInside = offset <= m_size && bytes <= m_size - offset;
    return isInside && offset + bytes <= m_mapped ? m_mapping + offset : MapFurther(offset, bytes);
  }

private:
  void Open();
  void Lock() const;
  void CheckIdentity();
  bool CanMapSafely();
  int TryReserve(std::uint64_t from, std::uint64_t to) const;
  void ZeroPages(std::uint64_t from, std::uint64_t to);
  void WriteZeros(std::uint64_t from, std::uint64_t to);
  std::byte* MapFurther(std::uint64_t offset, std::uint64_t bytes);
  bool TryToMap(std::uint64_t bytes);
  [[noreturn]] void Raise(FileError::Access access, char const* operation, int error, FileRange range) const;
  [[noreturn]] void RaiseOutside(char const* operation, FileRange range) const;

  std::string m_path;
  Mode m_mode;
  int m_descriptor = -1;
  bool m_mapsSafely = false;
  std::uint64_t m_size = 0;
  std::byte* m_mapping = nullptr;
  std::uint64_t m_mapped = 0; ///< bytes of the mapping, which may reach beyond the file's end
};

/// A step that changes a file, shown to the fault hook before it is taken.
struct FileStep {
  enum class Kind : std::uint8_t { Write, Resize, Reserve, Sync };
  Kind kind;
  int descriptor;
  std::uint64_t offset; ///< for Resize the new size
  void const* data;     ///< for Write, else null
  std::uint64_t bytes;
};

/// For tests: returns 0, or the errno that the step is to fail with; may end the process. Null: no faults.
using FaultHook = std::function<int(FileStep const&)>;
void SetFaultHook(FaultHook hook);

} // namespace orx::store
