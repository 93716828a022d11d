#include "tools/formats/MatrixMarket.h"

#include "tools/formats/OutputFile.h"
#include "tools/formats/TextLines.h"
#include "tools/numerics/RowPairs.h"
#include "tools/terminal/Text.h"

#include "mtx/layouts/TextFields.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <memory>
#include <utility>

namespace orx::tool {
namespace {

/// Integers beyond do not all have a double.
constexpr std::int64_t largestExactInteger = std::int64_t{1} << 53;

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  return lower;
}

// ---- reading

class MarketReader {
public:
  explicit MarketReader(std::string const& path) : m_path(path), m_lines(path) {}

  ORXSrvSparseMatrix Read() {
    ReadBanner();
    ReadSizes();
    if (m_isArray)
      ReadArray();
    else
      ReadCoordinates();
    if (m_lines.NextLine()) m_lines.FailHere("the end of the file behind " + EntriesText());
    EndAssembly(m_path, m_matrix);
    return std::move(m_matrix);
  }

private:
  enum class Values : std::uint8_t { Real, Integer, Pattern };

  void ReadBanner() {
    if (!m_lines.Next(' ') || m_lines.FieldCount() != 5 || LowerCase(m_lines.Field(0)) != "%%matrixmarket")
      m_lines.FailHere("%%MatrixMarket matrix, layout, values, symmetry");
    ReadWord(1, {"matrix"});
    m_isArray = ReadWord(2, {"coordinate", "array"}) == 1;
    m_values = static_cast<Values>(ReadWord(3, {"real", "integer", "pattern"}));
    m_mirror = static_cast<Mirror>(ReadWord(4, {"general", "symmetric", "skew-symmetric"}));
    if (m_values == Values::Pattern && (m_isArray || m_mirror == Mirror::Negative))
      m_lines.Fail("real or integer values of an array or a skew-symmetric matrix", "\"pattern\"");
  }

  /// Which of the words the field is.
  int ReadWord(int position, std::initializer_list<char const*> words) {
    std::string const found = LowerCase(m_lines.Field(position));
    auto const at = std::find(words.begin(), words.end(), found);
    if (at != words.end()) return static_cast<int>(at - words.begin());
    std::string expected;
    for (char const* word : words)
      expected += (expected.empty() ? "" : " or ") + std::string(word);
    m_lines.Fail(expected, Quoted(m_lines.Field(position)));
  }

  void ReadSizes() {
    bool isThere = m_lines.Next(' ');
    while (isThere && m_lines.Line().starts_with('%'))
      isThere = m_lines.Next(' ');
    m_lines.RequireFields(m_isArray ? 2 : 3, m_isArray ? "rows columns" : "rows columns entries");
    m_rows = static_cast<int>(m_lines.Integer(0, "a number of rows", 0, INT_MAX));
    m_columns = static_cast<int>(m_lines.Integer(1, "a number of columns", 0, INT_MAX));
    if (!m_isArray) m_count = m_lines.Integer(2, "a number of entries", 0, INT_MAX);
    m_matrix = ORXSrvSparseMatrix(m_rows, m_columns);
    if (m_mirror != Mirror::None && m_rows != m_columns)
      m_lines.Fail("as many columns as rows", Quoted(m_lines.Line()));
  }

  void ReadCoordinates() {
    int const fields = m_values == Values::Pattern ? 2 : 3;
    char const* const form = m_values == Values::Pattern ? "row column" : "row column value";
    for (m_entriesRead = 0; m_entriesRead < m_count; ++m_entriesRead) {
      NextEntry();
      m_lines.RequireFields(fields, form);
      std::int64_t const row = m_lines.Integer(0, "a row", 1, m_rows) - 1;
      std::int64_t const column = m_lines.Integer(1, "a column", 1, m_columns) - 1;
      if (m_mirror == Mirror::Same && column > row)
        m_lines.FailHere("an entry of the lower triangle of a symmetric matrix");
      if (m_mirror == Mirror::Negative && column >= row)
        m_lines.FailHere("an entry below the diagonal of a skew-symmetric matrix");
      Add(row, column, m_values == Values::Pattern ? 1.0 : ReadValue(2));
    }
  }

  void ReadArray() {
    if (m_rows == 0) return;
    for (std::int64_t column = 0; column < m_columns; ++column)
      for (std::int64_t row = FirstRow(column); row < m_rows; ++row) {
        NextEntry();
        m_lines.RequireFields(1, "one value");
        double const value = ReadValue(0);
        if (value != 0.0) Add(row, column, value);
        ++m_entriesRead;
      }
  }

  std::int64_t FirstRow(std::int64_t column) const {
    if (m_mirror == Mirror::None) return 0;
    return m_mirror == Mirror::Same ? column : column + 1;
  }

  void NextEntry() {
    if (!m_lines.Next(' ')) m_lines.FailHere("an entry behind the first " + std::to_string(m_entriesRead));
  }

  double ReadValue(int position) {
    if (m_values == Values::Real) return m_lines.Value(position);
    return static_cast<double>(
        m_lines.Integer(position, "an integer", -largestExactInteger, largestExactInteger));
  }

  void Add(std::int64_t row, std::int64_t column, double value) {
    auto const i = static_cast<std::uint32_t>(row);
    auto const j = static_cast<std::uint32_t>(column);
    m_matrix.AddData(i, j, value);
    if (m_mirror != Mirror::None && i != j) m_matrix.AddData(j, i, m_mirror == Mirror::Same ? value : -value);
  }

  std::string EntriesText() const { return Counted(m_entriesRead, "entry", "entries"); }

  std::string m_path;
  TextLines m_lines;
  bool m_isArray = false;
  Values m_values = Values::Real;
  Mirror m_mirror = Mirror::None;
  int m_rows = 0;
  int m_columns = 0;
  std::int64_t m_count = 0; ///< entries that the header says; of coordinates
  std::int64_t m_entriesRead = 0;
  ORXSrvSparseMatrix m_matrix{0, 0};
};

// ---- writing

std::string BannerText(MarketLayout layout, Mirror mirror) {
  char const* const symmetries[] = {"general", "symmetric", "skew-symmetric"};
  return Format("%%%%MatrixMarket matrix %s real %s\n",
                layout == MarketLayout::Array ? "array" : "coordinate", symmetries[static_cast<int>(mirror)]);
}

bool IsWritten(std::uint32_t row, std::uint32_t column, Mirror mirror) {
  return mirror == Mirror::None || row >= column;
}

void WriteCoordinates(OutputFile& file, ORXSrvSparseMatrix const& matrix, Mirror mirror) {
  std::int64_t count = 0;
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double) {
    count += IsWritten(row, column, mirror) ? 1 : 0;
  });
  file.Write(
      Format("%d %d %lld\n", matrix.NumberOfRows(), matrix.NumberOfColumns(), static_cast<long long>(count)));
  ForEachEntry(matrix.View(), [&](std::uint32_t row, std::uint32_t column, double value) {
    if (IsWritten(row, column, mirror))
      file.Write(std::to_string(row + 1) + ' ' + std::to_string(column + 1) + ' ' + Number(value) + '\n');
  });
}

void WriteArray(OutputFile& file, ORXSrvSparseMatrix const& matrix, Mirror mirror) {
  file.Write(Format("%d %d\n", matrix.NumberOfRows(), matrix.NumberOfColumns()));
  std::unique_ptr<ORXSrvSparseMatrix const> const transpose(matrix.Transpose());
  CompressedRowsView const columns = transpose->View();
  auto const rows = static_cast<std::uint32_t>(matrix.NumberOfRows());
  for (std::int32_t j = 0; j < columns.rows; ++j) {
    auto const column = static_cast<std::uint32_t>(j);
    std::uint32_t const first = mirror == Mirror::None ? 0 : mirror == Mirror::Same ? column : column + 1;
    RowCursor entries(columns, j, rows);
    while (entries.Column() < first)
      entries.ValueIn(entries.Column());
    for (std::uint32_t row = first; row < rows; ++row) {
      double const* const value = entries.ValueIn(row);
      file.Write(value != nullptr ? Number(*value) + '\n' : "0\n");
    }
  }
}

} // namespace

ORXSrvSparseMatrix ReadMatrixMarket(std::string const& path) { return MarketReader(path).Read(); }

void WriteMatrixMarket(std::string const& path, ORXSrvSparseMatrix const& matrix, MarketLayout layout,
                       Mirror mirror) {
  OutputFile file(path);
  file.Write(BannerText(layout, mirror));
  if (layout == MarketLayout::Array)
    WriteArray(file, matrix, mirror);
  else
    WriteCoordinates(file, matrix, mirror);
  file.Close();
}

} // namespace orx::tool
