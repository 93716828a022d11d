#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>

namespace store {

/// The unit in which files are mapped, reserved and journaled.
constexpr std::size_t pageBytes = 4096;

/// A failed operation on a file: what, where, how much, why.
class FileError : public std::exception {
public:
  /// `operation` is a verb for the message: "reading", "reserving space in"; `freeBytes` below 0: not asked.
  FileError(char const* operation, std::string const& path, int error, std::uint64_t offset,
            std::uint64_t length, std::int64_t freeBytes);
  /// A failure that no system call reported, in words.
  FileError(char const* operation, std::string const& path, int error, std::string const& reason);

  char const* what() const noexcept override { return m_text.c_str(); }
  int Error() const noexcept { return m_error; } ///< errno
  bool IsRead() const noexcept { return m_isRead; }

private:
  std::string m_text;
  int m_error;
  bool m_isRead;
};

/// An open and locked file: reads and writes at offsets, space that is reserved before it is used, and a
/// mapping of the bytes. Writers lock out everybody, readers lock out writers. Errors are FileError.
class PositionedFile {
public:
  enum class Mode : std::uint8_t {
    Read,    ///< an existing file
    Write,   ///< an existing file
    Create,  ///< a file that must not exist
    Replace, ///< a new file, or an existing one emptied once it is locked
  };

  PositionedFile(std::string path, Mode mode);
  PositionedFile(PositionedFile const&) = delete;
  PositionedFile& operator=(PositionedFile const&) = delete;
  ~PositionedFile();

  std::string const& Path() const noexcept { return m_path; }
  bool IsReadOnly() const noexcept { return m_mode == Mode::Read; }
  std::uint64_t Device() const noexcept { return m_device; }
  std::uint64_t Inode() const noexcept { return m_inode; }
  std::uint64_t Size() const noexcept { return m_size; }

  /// All of the bytes; it is an error when the file ends before.
  void ReadAt(std::uint64_t offset, void* to, std::size_t bytes) const;
  /// The same, with zeros for what is behind the file's end.
  void ReadZeroFilled(std::uint64_t offset, void* to, std::size_t bytes) const;
  void WriteAt(std::uint64_t offset, void const* from, std::size_t bytes);
  void Resize(std::uint64_t size);
  void Sync();
  /// Flushes the folder's entry of the file.
  void SyncFolder() const;

  /// Sets space aside for the range and lengthens the file to its end; what was not in the file reads as
  /// zero. False when the file system cannot (then the file is lengthened all the same).
  bool Reserve(std::uint64_t from, std::uint64_t to);
  /// Makes the range read as zeros and keeps its space; cheap for large ranges.
  void Zero(std::uint64_t offset, std::uint64_t bytes);

  /// Whether the mapping may be written to: only where the file system keeps what was reserved does a full
  /// disk never turn into a signal.
  bool MapsSafely() const noexcept { return m_mapsSafely; }
  /// The bytes of a range inside the file, in one mapping of it; valid until the next call. It is an error
  /// when the range leaves the file.
  std::byte* Bytes(std::uint64_t offset, std::uint64_t bytes) {
    if (offset + bytes <= m_mapped && offset + bytes <= m_size && offset <= offset + bytes)
      return m_mapping + offset;
    return MapFurther(offset, bytes);
  }

private:
  void Open();
  void Lock() const;
  void CheckIdentity();
  std::byte* MapFurther(std::uint64_t offset, std::uint64_t bytes);
  [[noreturn]] void Raise(char const* operation, int error, std::uint64_t offset, std::uint64_t bytes) const;

  std::string m_path;
  Mode m_mode;
  int m_descriptor = -1;
  bool m_mapsSafely = false;
  std::uint64_t m_device = 0;
  std::uint64_t m_inode = 0;
  std::uint64_t m_size = 0;
  std::byte* m_mapping = nullptr;
  std::uint64_t m_mapped = 0; ///< bytes of the mapping, which may reach beyond the file's end
};

/// For tests: is asked before each operation that changes a file ("write", "sync", "resize", "reserve"), with
/// its range, and returns 0 or the errno that the operation is to fail with.
using FaultHook = std::function<int(char const* operation, int descriptor, std::uint64_t offset,
                                    void const* data, std::size_t bytes)>;
void SetFaultHook(FaultHook hook);

} // namespace store
