#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <string>
#include <sys/stat.h>

namespace orx {

/// A file that is written from front to back. Small writes are collected in a buffer, large writes go
/// directly to the file. Failures are ORXSrvMtxFileWriteFailure with the path and the system's reason.
///
/// The bytes go to a new file "<target>.new<process>" in the folder of the target. Close renames it to the
/// target: until then, and after a failure, the path holds its old content. Symbolic links stay. The new file
/// gets the permissions and, where the system allows it, the owner of the older file. Devices, pipes, files
/// in a folder that takes no new files, and files without a name that are given by a descriptor in /proc are
/// written in place.
class FileOutput {
public:
  enum class Existing : std::uint8_t {
    Truncate, ///< nothing of an older file stays
    KeepTail  ///< the bytes of an older file beyond the bytes written stay
  };
  static constexpr std::size_t bufferSize = std::size_t{1} << 16;

  FileOutput(char const* path, Existing existing);
  FileOutput(FileOutput const&) = delete;
  FileOutput& operator=(FileOutput const&) = delete;
  ~FileOutput();

  /// Raises the failure of a full disk when the file system cannot hold a file of `bytes` bytes at the path.
  void RequireSpace(std::uint64_t bytes) const;

  template<class T>
  void Write(T const* values, std::int64_t count) {
    WriteBytes(values, static_cast<std::size_t>(count) * sizeof(T));
  }
  void WriteZeros(std::int64_t bytes);

  /// Returns the start of `bytes` free bytes of the buffer; the caller fills them and passes their end to
  /// CommitBuffer. REQUIRES bytes <= bufferSize.
  char* ReserveBuffer(std::size_t bytes) {
    if (m_buffer.get() + bufferSize - m_next < static_cast<std::ptrdiff_t>(bytes)) Flush();
    return m_next;
  }
  void CommitBuffer(char* end) noexcept { m_next = end; }

  /// Writes the buffer, closes the file and renames it to the target. Without Close only a file that is
  /// written in place changes.
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
  std::string m_target;  ///< the path with symbolic links followed
  std::string m_newName; ///< name of the new file; empty in place and after renaming
  int m_file;
  mem_Array<char> m_buffer;
  char* m_next;
};

} // namespace orx
