#include "mtx/impl/FortranRecords.h"

#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/impl/FileInput.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

// fortran/record_reader.f90: 0 done, 1 the runtime could not read (see the message), 2 a count out of range.
extern "C" {
std::int32_t orx_fortran_open(char const* path, std::int32_t length, std::int32_t* order, char* message);
std::int32_t orx_fortran_read_rows(std::int32_t order, std::int64_t room, std::int32_t* starts,
                                   std::uint32_t* columns, double* values, double* diagonal,
                                   std::int32_t* row, std::int32_t* pairs, char* message);
void orx_fortran_close();
}

namespace {

constexpr char sourceFile[] = "mtx/impl/FortranRecords.cpp";
constexpr int messageSize = 256;
constexpr std::int32_t miscounted = 2;

[[noreturn]] void Fail(std::string const& path, std::int64_t record, std::string const& fault) {
  ORXSrvMtxOpenFileException((path + ", record " + std::to_string(record) + ": " + fault).c_str())
      .Throw(sourceFile, __LINE__);
}

/// The file on unit 81.
class Records {
public:
  explicit Records(char const* path) : m_path(path), m_size(FileInput(path).Size()) {
    // The runtime drops blanks at the end of a name, and would open another file.
    if (m_path.ends_with(' ') || m_path.size() > INT_MAX)
      ORXSrvMtxOpenFileException((m_path + ": Fortran cannot open a path that ends in a blank").c_str())
          .Throw(sourceFile, __LINE__);
    if (orx_fortran_open(path, static_cast<std::int32_t>(m_path.size()), &m_order, m_message) != 0)
      Fail(m_path, 1, std::string("the order of the matrix expected, found \"") + m_message + '"');
  }
  Records(Records const&) = delete;
  Records& operator=(Records const&) = delete;
  ~Records() { orx_fortran_close(); }

  SparseContent Read() {
    CheckOrder();
    SparseContent content;
    content.rows = content.columns = m_order;
    content.entries.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{m_order} + 1);
    content.diagonal = mem_MakeArray<double>(m_order);
    ReadRows(content);
    CountFromZero(content);
    return content;
  }

private:
  // With its two markers the first record takes 12 bytes, a row 24 and another 12 for each entry besides the
  // diagonal; more if the runtime cuts it into subrecords.
  static constexpr std::int64_t orderBytes = 12;
  static constexpr std::int64_t rowBytes = 24;
  static constexpr std::int64_t entryBytes = 12;

  void CheckOrder() const {
    std::int64_t const most = (m_size - orderBytes) / rowBytes;
    if (m_order < 0 || m_order > most)
      Fail(m_path, 1,
           "an order of 0 to " + std::to_string(most) + " expected in a file of " + std::to_string(m_size) +
               " bytes, found " + std::to_string(m_order));
  }

  void ReadRows(SparseContent& content) {
    CompressedRows& entries = content.entries;
    std::int64_t const room =
        std::min<std::int64_t>((m_size - orderBytes - rowBytes * m_order) / entryBytes, INT_MAX);
    entries.Resize(room);
    std::int32_t row = 0;
    std::int32_t pairs = 0;
    std::int32_t const status =
        orx_fortran_read_rows(m_order, room, entries.rowPointers.get(), entries.columns.get(),
                              entries.values.get(), content.diagonal.get(), &row, &pairs, m_message);
    std::int64_t const record = std::int64_t{row} + 1;
    if (status == miscounted)
      Fail(m_path, record,
           "1 to " + std::to_string(m_order) + " pairs expected, found " + std::to_string(pairs));
    if (status != 0)
      Fail(m_path, record,
           "row " + std::to_string(row) + " of " + std::to_string(m_order) + " expected, found \"" +
               m_message + '"');
    entries.nonzeros = content.nonzeros = entries.rowPointers[m_order];
    entries.Resize(entries.nonzeros);
  }

  /// Columns count from one in the file.
  void CountFromZero(SparseContent& content) const {
    auto const order = static_cast<std::uint32_t>(m_order);
    std::uint32_t* const columns = content.entries.columns.get();
    std::uint32_t largest = 0;
    for (std::int32_t k = 0; k < content.entries.nonzeros; ++k)
      largest = std::max(largest, --columns[k]);
    if (content.entries.nonzeros == 0 || largest < order) return;
    auto const bad = std::find_if(columns, columns + content.entries.nonzeros,
                                  [=](std::uint32_t column) { return column >= order; });
    std::int32_t const* const starts = content.entries.rowPointers.get();
    std::int64_t const row = std::upper_bound(starts, starts + m_order + 1, bad - columns) - starts;
    Fail(m_path, row + 1,
         "a column of 1 to " + std::to_string(m_order) + " expected, found " +
             std::to_string(static_cast<std::int32_t>(*bad + 1)));
  }

  std::string m_path;
  std::int64_t m_size;
  std::int32_t m_order = 0;
  char m_message[messageSize] = "";
};

} // namespace

SparseContent ReadFortranRecords(char const* path) { return Records(path).Read(); }
