#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace orx {

/// A file that is written from front to back. Small pieces are gathered, large ones written as they are.
/// Failures are ORXSrvMtxFileWriteFailure with the path and the system's reason.
///
/// The bytes go to a new file beside, "<target>.new<process>", which Close gives the target's name: until
/// then, and after a failure, the path holds what it held. Symbolic links stay; permissions, and where the
/// system allows it the owner, are those of the older file. Devices, pipes, files in a folder that takes no
/// new ones, and files without a name that are given by a descriptor in /proc are written in place.
class FileOutput {
public:
  enum class Existing : std::uint8_t {
    Truncate, ///< nothing of an older file stays
    KeepTail  ///< what an older file holds beyond the bytes written stays
  };
  static constexpr std::size_t bufferSize = std::size_t{1} << 16;

  FileOutput(char const* path, Existing existing);
  FileOutput(FileOutput const&) = delete;
  FileOutput& operator=(FileOutput const&) = delete;
  ~FileOutput();

  /// Raises the failure of a full disk when the file system cannot hold a file of so many bytes at the path.
  void RequireSpace(std::uint64_t bytes) const;

  template<class T>
  void Write(T const* values, std::int64_t count) {
    WriteBytes(values, static_cast<std::size_t>(count) * sizeof(T));
  }
  void WriteZeros(std::int64_t bytes);

  /// A place for the next `bytes` bytes; Take says where they ended. REQUIRES bytes <= bufferSize.
  char* Room(std::size_t bytes) {
    if (m_buffer.get() + bufferSize - m_next < static_cast<std::ptrdiff_t>(bytes)) Flush();
    return m_next;
  }
  void Take(char* end) noexcept { m_next = end; }

  /// Writes what is still held back, closes, and lets the file take its place; without it nothing changes.
  void Close();

private:
  mode_t ModeOfNewFile() const noexcept;
  void OpenBeside(struct stat const* older);
  void OpenInPlace();
  void CopyTail();
  void WriteBytes(void const* bytes, std::size_t count);
  void WriteThrough(char const* bytes, std::size_t count);
  void Flush();
  [[noreturn]] void Fail(int line, std::string const& reason) const;
  [[noreturn]] void FailWithError(int line) const;

  std::string m_path;
  Existing m_existing;
  std::string m_target;  ///< the path behind symbolic links
  std::string m_newName; ///< of the file beside; empty when the file is written in place or has taken it
  int m_file;
  mem_Array<char> m_buffer;
  char* m_next;
};

} // namespace orx
