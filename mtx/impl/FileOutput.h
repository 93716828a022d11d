#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <string>

namespace orx {

/// A file that is written from front to back. Small pieces are gathered, large ones written as they are.
/// Failures are ORXSrvMtxFileWriteFailure with the path and the system's reason; the file then holds what was
/// written until then.
class FileOutput {
public:
  enum class Existing : std::uint8_t {
    Truncate, ///< an existing file loses what it held
    KeepTail  ///< what an existing file holds beyond the bytes written stays
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

  /// Writes what is still held back and closes; without it the file is incomplete.
  void Close();

private:
  void WriteBytes(void const* bytes, std::size_t count);
  void WriteThrough(char const* bytes, std::size_t count);
  void Flush();
  [[noreturn]] void Fail(int line, std::string const& reason) const;
  [[noreturn]] void FailWithError(int line) const;

  std::string m_path;
  int m_file;
  mem_Array<char> m_buffer;
  char* m_next;
};

} // namespace orx
