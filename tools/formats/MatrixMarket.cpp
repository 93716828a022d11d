#include "tools/formats/MatrixMarket.h"

#include "tools/formats/OutputFile.h"
#include "tools/formats/TextLines.h"
#include "tools/terminal/Text.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>

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
  explicit MarketReader(std::string const& path) : m_lines(path), m_assembly(path) {}

  MatrixEntries Read() {
    TakeBanner();
    TakeSizes();
    if (m_isArray)
      TakeArray();
    else
      TakeCoordinates();
    if (m_lines.NextLine()) m_lines.FailHere("the end of the file behind " + EntriesText());
    MatrixEntries entries = m_assembly.Finish();
    entries.Enlarge(m_rows, m_columns);
    return entries;
  }

private:
  enum class Values : std::uint8_t { Real, Integer, Pattern };

  void TakeBanner() {
    if (!m_lines.Next(' ') || m_lines.FieldCount() != 5 || LowerCase(m_lines.Field(0)) != "%%matrixmarket")
      m_lines.FailHere("%%MatrixMarket matrix, layout, values, symmetry");
    TakeWord(1, {"matrix"});
    m_isArray = TakeWord(2, {"coordinate", "array"}) == 1;
    m_values = static_cast<Values>(TakeWord(3, {"real", "integer", "pattern"}));
    m_mirror = static_cast<Mirror>(TakeWord(4, {"general", "symmetric", "skew-symmetric"}));
    if (m_values == Values::Pattern && (m_isArray || m_mirror == Mirror::Negative))
      m_lines.Fail("real or integer values of an array or a skew-symmetric matrix", "\"pattern\"");
  }

  /// Which of the words the field is.
  int TakeWord(int position, std::initializer_list<char const*> words) {
    std::string const found = LowerCase(m_lines.Field(position));
    auto const at = std::find(words.begin(), words.end(), found);
    if (at != words.end()) return static_cast<int>(at - words.begin());
    std::string expected;
    for (char const* word : words)
      expected += (expected.empty() ? "" : " or ") + std::string(word);
    m_lines.Fail(expected, Quoted(m_lines.Field(position)));
  }

  void TakeSizes() {
    bool isThere = m_lines.Next(' ');
    while (isThere && m_lines.Line().starts_with('%'))
      isThere = m_lines.Next(' ');
    m_lines.RequireFields(m_isArray ? 2 : 3, m_isArray ? "rows columns" : "rows columns entries");
    m_rows = static_cast<int>(m_lines.Integer(0, "a number of rows", 0, INT_MAX));
    m_columns = static_cast<int>(m_lines.Integer(1, "a number of columns", 0, INT_MAX));
    if (!m_isArray) m_count = m_lines.Integer(2, "a number of entries", 0, INT_MAX);
    if (m_mirror != Mirror::None && m_rows != m_columns)
      m_lines.Fail("as many columns as rows", Quoted(m_lines.Line()));
  }

  void TakeCoordinates() {
    int const fields = m_values == Values::Pattern ? 2 : 3;
    char const* const form = m_values == Values::Pattern ? "row column" : "row column value";
    for (m_taken = 0; m_taken < m_count; ++m_taken) {
      NextEntry();
      m_lines.RequireFields(fields, form);
      std::int64_t const row = m_lines.Integer(0, "a row", 1, m_rows) - 1;
      std::int64_t const column = m_lines.Integer(1, "a column", 1, m_columns) - 1;
      if (m_mirror == Mirror::Same && column > row)
        m_lines.FailHere("an entry of the lower triangle of a symmetric matrix");
      if (m_mirror == Mirror::Negative && column >= row)
        m_lines.FailHere("an entry below the diagonal of a skew-symmetric matrix");
      Add(row, column, m_values == Values::Pattern ? 1.0 : TakeValue(2));
    }
  }

  void TakeArray() {
    if (m_rows == 0) return;
    for (std::int64_t column = 0; column < m_columns; ++column)
      for (std::int64_t row = FirstRow(column); row < m_rows; ++row) {
        NextEntry();
        m_lines.RequireFields(1, "one value");
        double const value = TakeValue(0);
        if (value != 0.0) Add(row, column, value);
        ++m_taken;
      }
  }

  std::int64_t FirstRow(std::int64_t column) const {
    if (m_mirror == Mirror::None) return 0;
    return m_mirror == Mirror::Same ? column : column + 1;
  }

  void NextEntry() {
    if (!m_lines.Next(' ')) m_lines.FailHere("an entry behind the first " + std::to_string(m_taken));
  }

  double TakeValue(int position) {
    if (m_values == Values::Real) return m_lines.Value(position);
    return static_cast<double>(
        m_lines.Integer(position, "an integer", -largestExactInteger, largestExactInteger));
  }

  void Add(std::int64_t row, std::int64_t column, double value) {
    m_assembly.Add(row, column, value);
    if (m_mirror != Mirror::None && row != column)
      m_assembly.Add(column, row, m_mirror == Mirror::Same ? value : -value);
  }

  std::string EntriesText() const { return Counted(m_taken, "entry", "entries"); }

  TextLines m_lines;
  bool m_isArray = false;
  Values m_values = Values::Real;
  Mirror m_mirror = Mirror::None;
  int m_rows = 0;
  int m_columns = 0;
  std::int64_t m_count = 0; ///< entries that the header says; of coordinates
  std::int64_t m_taken = 0;
  EntryAssembly m_assembly;
};

// ---- writing

std::string BannerText(MarketLayout layout, Mirror mirror) {
  char const* const symmetries[] = {"general", "symmetric", "skew-symmetric"};
  return Format("%%%%MatrixMarket matrix %s real %s\n",
                layout == MarketLayout::Array ? "array" : "coordinate", symmetries[static_cast<int>(mirror)]);
}

bool IsWritten(Entry const& e, Mirror mirror) { return mirror == Mirror::None || e.row >= e.column; }

void WriteCoordinates(OutputFile& file, MatrixEntries const& matrix, Mirror mirror) {
  auto const items = matrix.Items();
  auto const count =
      std::count_if(items.begin(), items.end(), [=](Entry const& e) { return IsWritten(e, mirror); });
  file.Write(Format("%d %d %td\n", matrix.Rows(), matrix.Columns(), count));
  for (Entry const& e : items)
    if (IsWritten(e, mirror))
      file.Write(std::to_string(e.row + 1) + ' ' + std::to_string(e.column + 1) + ' ' + Number(e.value) +
                 '\n');
}

/// Positions in the order of an array's values; those of a triangle that is not written have none.
std::vector<Entry> ByColumns(MatrixEntries const& matrix, Mirror mirror) {
  std::vector<Entry> sorted;
  for (Entry const& e : matrix.Items())
    if (IsWritten(e, mirror)) sorted.push_back(e);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](Entry const& a, Entry const& b) { return a.column < b.column; });
  return sorted;
}

void WriteArray(OutputFile& file, MatrixEntries const& matrix, Mirror mirror) {
  file.Write(Format("%d %d\n", matrix.Rows(), matrix.Columns()));
  std::vector<Entry> const sorted = ByColumns(matrix, mirror);
  auto next = sorted.begin();
  for (int column = 0; column < matrix.Columns(); ++column) {
    int const first = mirror == Mirror::None ? 0 : mirror == Mirror::Same ? column : column + 1;
    for (int row = first; row < matrix.Rows(); ++row) {
      bool const isStored = next != sorted.end() && static_cast<int>(next->row) == row &&
                            static_cast<int>(next->column) == column;
      file.Write(isStored ? Number((next++)->value) + '\n' : "0\n");
    }
  }
}

} // namespace

MatrixEntries ReadMatrixMarket(std::string const& path) { return MarketReader(path).Read(); }

void WriteMatrixMarket(std::string const& path, MatrixEntries const& matrix, MarketLayout layout,
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
