#include "mtx/impl/exchange/FortranRecords.h"

#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/impl/exchange/FileInput.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace orx {

// Implemented in fortran/record_reader.f90. Results: 0 success, 1 the runtime could not read (`message` has
// its reason), 2 a count is out of range.
extern "C" {
std::int32_t orx_fortran_open(char const* path, std::int32_t length, std::int32_t* isBigEndian,
                              char* message);
std::int32_t orx_fortran_read_order(std::int32_t* order, char* message);
std::int32_t orx_fortran_read_rows(std::int32_t order, std::int64_t capacity, std::int32_t* rowPointers,
                                   std::uint32_t* columns, double* values, double* diagonal,
                                   std::int32_t* row, std::int32_t* pairs, char* message);
void orx_fortran_close();
}

namespace {

constexpr auto& sourceFile = orx::exchangeSource;
constexpr int messageSize = 256;
constexpr std::int32_t miscounted = 2;

[[noreturn]] void Fail(std::string const& path, std::int64_t record, std::string const& fault) {
  ORXSrvMtxOpenFileException((path + ", record " + std::to_string(record) + ": " + fault).c_str())
      .Throw(sourceFile, __LINE__);
}

/// Checks the lengths that frame each record before the runtime relies on them: where a file ends within a
/// record that is to be continued, gfortran's runtime searches for the continuation forever.
///
///     | 28 | 28 bytes | 28 |                        a record
///     | -64 | 64 bytes | 64 | 8 | 8 bytes | -8 |    a record of two subrecords: -64, another one follows;
///                                                   -8, another one precedes
class RecordFrames {
public:
  explicit RecordFrames(char const* path)
      : m_path(path), m_file(path), m_window(mem_MakeArray<char>(windowBytes)) {}

  std::int64_t FileSize() const noexcept { return m_file.Size(); }

  /// Checks the next record; raises an error unless it is whole.
  void CheckNext(bool isBigEndian) {
    ++m_record;
    bool isContinued = true;
    while (isContinued) {
      std::int64_t const leading = ReadMarker(m_next, isBigEndian);
      std::int64_t const length = std::abs(leading);
      std::int64_t const end = m_next + markerBytes + length;
      bool const isCutOff = end > m_file.Size() - markerBytes;
      std::int64_t const trailing = isCutOff ? 0 : ReadMarker(end, isBigEndian);
      if (isCutOff || std::abs(trailing) != length)
        Fail(m_path, m_record,
             "a record of " + std::to_string(length) + " bytes at byte " + std::to_string(m_next) +
                 " expected to end at byte " + std::to_string(end) + ", found " +
                 (isCutOff ? "the end of the file" : "a length of " + std::to_string(trailing)));
      isContinued = leading < 0;
      m_next = end + markerBytes;
    }
  }

private:
  static constexpr std::int64_t markerBytes = 4;
  static constexpr std::int64_t windowBytes = std::int64_t{1} << 18;

  std::int64_t ReadMarker(std::int64_t offset, bool isBigEndian) {
    if (offset > m_file.Size() - markerBytes)
      Fail(m_path, m_record,
           "a record at byte " + std::to_string(offset) + " expected, found the end of the file");
    if (offset < m_windowStart || offset + markerBytes > m_file.Offset()) {
      m_file.MoveTo(offset);
      m_windowStart = offset;
      m_file.Read(m_window.get(), std::min(windowBytes, m_file.Size() - offset), "characters");
    }
    std::uint32_t bytes = 0;
    std::memcpy(&bytes, m_window.get() + (offset - m_windowStart), sizeof bytes);
    return static_cast<std::int32_t>(isBigEndian ? __builtin_bswap32(bytes) : bytes);
  }

  std::string m_path;
  FileInput m_file;
  mem_Array<char> m_window; ///< the bytes of the file from m_windowStart on
  std::int64_t m_windowStart = 0;
  std::int64_t m_next = 0;   ///< file offset of the next record
  std::int64_t m_record = 0; ///< the last record checked, counted from 1
};

/// Reads the file through the Fortran runtime, on unit 81.
class Records {
public:
  explicit Records(char const* path) : m_path(path), m_frames(path) {
    // The runtime drops blanks at the end of a name, and would open another file.
    if (m_path.ends_with(' ') || m_path.size() > INT_MAX)
      ORXSrvMtxOpenFileException((m_path + ": Fortran cannot open a path that ends in a blank").c_str())
          .Throw(sourceFile, __LINE__);
    std::int32_t isBigEndian = 0;
    if (orx_fortran_open(path, static_cast<std::int32_t>(m_path.size()), &isBigEndian, m_message) != 0)
      Fail(m_path, 1, std::string("the order of the matrix expected, found \"") + m_message + '"');
    m_isBigEndian = isBigEndian != 0;
  }
  Records(Records const&) = delete;
  Records& operator=(Records const&) = delete;
  ~Records() { orx_fortran_close(); }

  CompressedRows Read() {
    ReadOrder();
    for (std::int32_t row = 0; row < m_order; ++row)
      m_frames.CheckNext(m_isBigEndian);
    CompressedRows content;
    AllocateRowPointers(content, m_order, m_order);
    content.diagonal = mem_MakeArray<double>(m_order);
    ReadRows(content);
    CountFromZero(content);
    return content;
  }

private:
  // Record lengths with both markers: the first record has 12 bytes, a row 24 and 12 more for each entry off
  // the diagonal. A row that the runtime cuts into subrecords is longer.
  static constexpr std::int64_t orderBytes = 12;
  static constexpr std::int64_t rowBytes = 24;
  static constexpr std::int64_t entryBytes = 12;

  void ReadOrder() {
    m_frames.CheckNext(m_isBigEndian);
    if (orx_fortran_read_order(&m_order, m_message) != 0)
      Fail(m_path, 1, std::string("the order of the matrix expected, found \"") + m_message + '"');
    std::int64_t const most = (m_frames.FileSize() - orderBytes) / rowBytes;
    if (m_order < 0 || m_order > most)
      Fail(m_path, 1,
           "an order of 0 to " + std::to_string(most) + " expected in a file of " +
               std::to_string(m_frames.FileSize()) + " bytes, found " + std::to_string(m_order));
  }

  void ReadRows(CompressedRows& content) {
    std::int64_t const capacity =
        std::min<std::int64_t>((m_frames.FileSize() - orderBytes - rowBytes * m_order) / entryBytes, INT_MAX);
    ResizeEntries(content, capacity);
    std::int32_t row = 0;
    std::int32_t pairs = 0;
    std::int32_t const status =
        orx_fortran_read_rows(m_order, capacity, content.rowPointers.get(), content.columnIndices.get(),
                              content.values.get(), content.diagonal.get(), &row, &pairs, m_message);
    std::int64_t const record = std::int64_t{row} + 1;
    if (status == miscounted)
      Fail(m_path, record,
           "1 to " + std::to_string(m_order) + " pairs expected, found " + std::to_string(pairs));
    if (status != 0)
      Fail(m_path, record,
           "row " + std::to_string(row) + " of " + std::to_string(m_order) + " expected, found \"" +
               m_message + '"');
    content.entries = content.numberOfNonzeros = content.rowPointers[m_order];
    ResizeEntries(content, content.entries);
  }

  /// Turns the one-based column indices of the file into zero-based ones; raises an error for an index out of
  /// range.
  void CountFromZero(CompressedRows& content) const {
    auto const order = static_cast<std::uint32_t>(m_order);
    std::uint32_t* const columns = content.columnIndices.get();
    std::uint32_t largest = 0;
    for (std::int32_t k = 0; k < content.entries; ++k)
      largest = std::max(largest, --columns[k]);
    if (content.entries == 0 || largest < order) return;
    auto const bad = std::find_if(columns, columns + content.entries,
                                  [=](std::uint32_t column) { return column >= order; });
    std::int32_t const* const rowPointers = content.rowPointers.get();
    std::int64_t const row =
        std::upper_bound(rowPointers, rowPointers + m_order + 1, bad - columns) - rowPointers;
    Fail(m_path, row + 1,
         "a column of 1 to " + std::to_string(m_order) + " expected, found " +
             std::to_string(static_cast<std::int32_t>(*bad + 1)));
  }

  std::string m_path;
  RecordFrames m_frames;
  bool m_isBigEndian = false;
  std::int32_t m_order = 0;
  char m_message[messageSize] = "";
};

} // namespace

CompressedRows ReadFortranRecords(char const* path) { return Records(path).Read(); }

} // namespace orx
