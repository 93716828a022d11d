#pragma once

#include "core/mem_Allocator.h"
#include "mtx/impl/TripletCollector.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

// Sparse matrices as text: items "row column value" with one-based indices, separated by blanks and line
// ends.

struct TextTripletShape {
  std::int32_t rows = 0;    ///< the largest row number of the file
  std::int32_t columns = 0; ///< the largest column number of the file
};

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, FileCloser>;

/// Adds a whole file, opened with fopen's `mode`, to a collector, zero-based. What is not an item is an
/// ORXSrvMtxOpenFileException with path, line, what was expected and what was found.
TextTripletShape ReadTextTriplets(char const* path, char const* mode, TripletCollector& collector);

/// Writes one line "%ld %ld %18.15e" per entry. Failures are ORXSrvMtxFileWriteFailure, with path and reason.
class TextTripletWriter {
public:
  /// Opens the file, which loses what it held.
  explicit TextTripletWriter(char const* path);
  /// Adds an entry with zero-based indices.
  void Write(std::uint32_t row, std::uint32_t column, double value);
  /// Writes what is still held back and closes; without it the file is incomplete.
  void Close();

private:
  static constexpr std::size_t bufferSize = std::size_t{1} << 16;

  void Flush();
  [[noreturn]] void Fail(int line) const;

  std::string m_path;
  OpenFile m_file;
  mem_Array<char> m_buffer;
  char* m_next;
};
