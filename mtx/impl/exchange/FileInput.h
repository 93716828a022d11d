#pragma once

#include "core/mem_Allocator.h"

#include <cstdint>
#include <string>

namespace orx {

/// A binary file that is read from front to back, in the machine's byte order. Every read is checked against
/// the size of the file before memory is taken for it. Errors are ORXSrvMtxOpenFileException with the path,
/// the file offset, what was expected and what was found.
class FileInput {
public:
  /// Opens a regular file; any other file is an error, because it has no size to check reads against.
  explicit FileInput(char const* path);
  FileInput(FileInput const&) = delete;
  FileInput& operator=(FileInput const&) = delete;
  ~FileInput();

  std::int64_t Size() const noexcept { return m_size; }
  /// File offset of the next byte to be read.
  std::int64_t Offset() const noexcept { return m_offset; }
  /// Number of whole elements in the rest of the file.
  std::int64_t Holds(std::int64_t elementBytes) const noexcept { return (m_size - m_offset) / elementBytes; }
  /// Raises an error unless the rest of the file has `count` elements; `what` is their name in plural.
  /// REQUIRES count >= 0; count * elementBytes may exceed 64 bits.
  void Require(std::int64_t count, std::int64_t elementBytes, char const* what) const {
    if (count > Holds(elementBytes)) FailShort(count, elementBytes, what);
  }

  template<class T>
  void Read(T* out, std::int64_t count, char const* what) {
    Require(count, sizeof(T), what);
    ReadBytes(out, count * static_cast<std::int64_t>(sizeof(T)));
  }
  template<class T>
  mem_Array<T> ReadArray(std::int64_t count, char const* what) {
    Require(count, sizeof(T), what);
    auto array = mem_MakeArray<T>(count);
    ReadBytes(array.get(), count * static_cast<std::int64_t>(sizeof(T)));
    return array;
  }
  void Skip(std::int64_t count, std::int64_t elementBytes, char const* what) {
    Require(count, elementBytes, what);
    m_offset += count * elementBytes;
  }
  /// REQUIRES offset <= Size().
  void MoveTo(std::int64_t offset) noexcept { m_offset = offset; }

  /// Raises the error for a fault at file offset `offset`; `fault` says what was expected and what was found.
  [[noreturn]] void Fail(std::int64_t offset, std::string const& fault) const;

private:
  void ReadBytes(void* out, std::int64_t bytes);
  [[noreturn]] void FailShort(std::int64_t count, std::int64_t elementBytes, char const* what) const;
  [[noreturn]] void FailAsWhole(std::string const& fault) const;

  std::string m_path;
  int m_file;
  std::int64_t m_size = 0;
  std::int64_t m_offset = 0;
};

} // namespace orx
