#include "mtx/impl/exchange/TextTriplets.h"

#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/impl/exchange/DecimalText.h"
#include "mtx/impl/exchange/ResizeArray.h"
#include "mtx/impl/exchange/TripletCollector.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/layouts/TextFields.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace orx {

namespace {

constexpr auto& sourceFile = orx::exchangeSource;

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

/// Rows without entries take no bytes in the file: without a limit, one line could ask for gigabytes of row
/// pointers. A matrix may have mostRowsInAnyCase rows, or mostRowsPerEntry for each entry if that is more.
constexpr std::int64_t mostRowsInAnyCase = 1 << 24;
constexpr std::int64_t mostRowsPerEntry = 16;

/// True when a number may begin with the character: a digit, a sign, a point, inf or nan.
bool BeginsNumber(char c) noexcept { return std::strchr("0123456789+-.iInN", c) != nullptr && c != '\0'; }

std::int64_t CountLineEnds(char const* p, char const* end) noexcept {
  std::int64_t total = 0;
  while (p != end) {
    // A run is short enough for a counter of one byte: the compiler turns the loop into byte-wide vector
    // code.
    char const* const runEnd = p + std::min<std::ptrdiff_t>(end - p, 255);
    unsigned char run = 0;
    for (; p != runEnd; ++p)
      run = static_cast<unsigned char>(run + (*p == '\n' ? 1 : 0));
    total += run;
  }
  return total;
}

/// Reads a file through a buffer, m_window:
///
///     parsed | entry | entry | start of an entry | free
///              ^ m_next                          ^ m_end
///
/// An entry that the end of the buffer cuts off is parsed again from its start when more has been read.
class TripletReader {
public:
  TripletReader(char const* path, char const* mode)
      : m_path(path), m_file(std::fopen(path, mode)), m_window(mem_MakeArray<char>(m_capacity)),
        m_next(m_window.get()), m_end(m_next) {
    if (m_file == nullptr) ORXSrvMtxOpenFileException(path).Throw(sourceFile, __LINE__);
    std::setvbuf(m_file.get(), nullptr, _IONBF, 0); // m_window is the buffer
  }

  CompressedRows Read() {
    while (MoveToNextEntry()) {
      if (m_count == batch) HandOverBatch();
      ReadEntry();
    }
    HandOverBatch();
    RequireEntriesForRows();
    return m_collector.Finish(m_rows, m_columns);
  }

private:
  enum class Field : std::uint8_t { Row, Column, Value, None };

  /// Moves to the next entry. Returns false at the end of the file.
  bool MoveToNextEntry() {
    while (true) {
      m_next = SkipBlanks(m_next);
      if (m_next != m_end) return true;
      if (m_atEnd) return false;
      RefillWindow();
    }
  }

  void ReadEntry() {
    while (true) {
      char const* at = m_next;
      Field const failed = ParseEntry(at);
      if (failed == Field::None) {
        m_next = at;
        return;
      }
      bool const isCutOff = FindTokenEnd(at) == m_end && !m_atEnd;
      if (!isCutOff || (at != m_end && !BeginsNumber(*at))) Fail(at, failed);
      RefillWindow();
    }
  }

  /// Parses one entry and moves `at` to its end. On failure returns the field that failed, with `at` at its
  /// start.
  Field ParseEntry(char const*& at) {
    ORXSrvSparseMatrixEntry& entry = m_batch[m_count];
    std::int32_t row = 0;
    std::int32_t column = 0;
    if (!ParseIndex(at, row)) return Field::Row;
    at = SkipBlanks(at);
    if (!ParseIndex(at, column)) return Field::Column;
    at = SkipBlanks(at);
    DecimalResult const read = ReadDouble(at, m_end, entry.value);
    if (read.status != DecimalStatus::Ok || !IsTokenEnd(read.end)) return Field::Value;
    at = read.end;
    entry.row = static_cast<std::uint32_t>(row) - 1;
    entry.column = static_cast<std::uint32_t>(column) - 1;
    m_rows = std::max(m_rows, row);
    m_columns = std::max(m_columns, column);
    ++m_count;
    return Field::None;
  }

  bool ParseIndex(char const*& at, std::int32_t& index) const {
    DecimalResult const read = ReadInt32(at, m_end, index);
    if (read.status != DecimalStatus::Ok || index < 1 || !IsTokenEnd(read.end)) return false;
    at = read.end;
    return true;
  }

  bool IsTokenEnd(char const* p) const noexcept { return p != m_end ? IsBlank(*p) : m_atEnd; }
  char const* SkipBlanks(char const* p) const noexcept {
    while (p != m_end && IsBlank(*p))
      ++p;
    return p;
  }
  char const* FindTokenEnd(char const* p) const noexcept { return std::find_if(p, m_end, IsBlank); }

  /// Drops the parsed characters and reads more; doubles a buffer that is full of one entry.
  void RefillWindow() {
    char* const window = m_window.get();
    m_line += CountLineEnds(window, m_next);
    auto const kept = static_cast<std::int64_t>(m_end - m_next);
    std::memmove(window, m_next, static_cast<std::size_t>(kept));
    if (kept == m_capacity) {
      if (m_capacity == longestEntry)
        FailAt(m_next, "an item of less than " + std::to_string(longestEntry) +
                           " characters expected, found a longer one");
      ResizeArray(m_window, m_capacity * 2);
      m_capacity *= 2;
    }
    errno = 0;
    std::size_t const read =
        std::fread(m_window.get() + kept, 1, static_cast<std::size_t>(m_capacity - kept), m_file.get());
    if (std::ferror(m_file.get()) != 0) FailWith(std::string(": ") + std::strerror(errno));
    m_atEnd = read == 0;
    m_next = m_window.get();
    m_end = m_next + kept + read;
  }

  void HandOverBatch() {
    m_total += m_count;
    if (m_total > INT_MAX) FailAt(m_next, "at most 2147483647 items expected, found more");
    m_collector.Add({m_batch, static_cast<std::size_t>(m_count)});
    m_count = 0;
  }

  void RequireEntriesForRows() const {
    std::int64_t const most = std::max(mostRowsInAnyCase, mostRowsPerEntry * m_total);
    if (m_rows > most)
      FailWith(": at most " + std::to_string(most) + " rows for " + std::to_string(m_total) +
               " items expected, found " + std::to_string(m_rows));
  }

  [[noreturn]] void Fail(char const* token, Field field) const {
    std::string const index = field == Field::Row ? "a row" : "a column";
    if (token == m_end)
      FailAt(token, (field == Field::Value ? "a value" : index) + " expected, found the end of the file");
    std::string const found = Quoted({token, FindTokenEnd(token)});
    if (field != Field::Value) FailAt(token, index + " of 1 to 2147483647 expected, found " + found);
    double unused = 0.0;
    DecimalResult const read = ReadDouble(token, m_end, unused);
    bool const isTooLarge = read.status == DecimalStatus::OutOfRange && IsTokenEnd(read.end);
    FailAt(token,
           std::string(isTooLarge ? "a value that fits a double" : "a value") + " expected, found " + found);
  }

  [[noreturn]] void FailAt(char const* place, std::string const& what) const {
    // The line of an error at the end of the file is that of the last token.
    if (place == m_end)
      while (place != m_next && IsBlank(place[-1]))
        --place;
    std::int64_t const line = m_line + CountLineEnds(m_window.get(), place);
    FailWith(", line " + std::to_string(line) + ": " + what);
  }
  [[noreturn]] void FailWith(std::string const& fault) const {
    ORXSrvMtxOpenFileException((m_path + fault).c_str()).Throw(sourceFile, __LINE__);
  }

  /// Characters of an entry with the blanks between its fields.
  static constexpr std::int64_t longestEntry = std::int64_t{1} << 24;

  std::string m_path;
  std::unique_ptr<std::FILE, FileCloser> m_file;
  TripletCollector m_collector;
  std::int64_t m_capacity = std::int64_t{1} << 18;
  mem_Array<char> m_window;
  char const* m_next;      ///< start of the next entry, or blanks before it
  char const* m_end;       ///< end of the characters read
  bool m_atEnd = false;    ///< the file ends at m_end
  std::int64_t m_line = 1; ///< line of the first character in m_window

  static constexpr int batch = 1024; ///< entries handed over together
  ORXSrvSparseMatrixEntry m_batch[batch];
  int m_count = 0;            ///< entries in m_batch
  std::int64_t m_total = 0;   ///< entries handed over
  std::int32_t m_rows = 0;    ///< largest row so far, one-based
  std::int32_t m_columns = 0; ///< largest column so far, one-based
};

} // namespace

CompressedRows ReadTextTriplets(char const* path, char const* mode) {
  return TripletReader(path, mode).Read();
}

} // namespace orx
