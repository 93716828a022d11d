#include "mtx/impl/exchange/DenseBinary.h"

#include "core/mem_Allocator.h"
#include "mtx/impl/exchange/FileInput.h"
#include "mtx/impl/exchange/FileOutput.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/layouts/FileLayouts.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <span>

namespace orx {

namespace {

/// The reader takes values up to this magnitude for zeros.
constexpr double largestZero = 1e-16;
/// The rows of a matrix without columns take no bytes in the file: without a limit, twenty bytes could ask
/// for gigabytes of row pointers.
constexpr std::int32_t mostRowsWithoutColumns = 1 << 24;
/// Number of values that are read or written at once: 1 MiB.
constexpr std::int64_t windowLength = std::int64_t{1} << 17;

/// Returns the transpose. The columns in its rows ascend, whatever the order in the rows of `matrix` is, and
/// entries at equal positions keep their order.
CompressedRows Transposed(CompressedRowsView const& matrix) {
  CompressedRows result;
  AllocateRowPointers(result, matrix.columns, matrix.rows);
  result.entries = result.numberOfNonzeros = matrix.Entries();
  ResizeEntries(result, result.entries);
  // Column j is counted in element j + 2. After summing, element j + 1 is the column's start, and storing its
  // entries advances the element to the column's end.
  std::int32_t* const ends = result.rowPointers.get();
  std::fill_n(ends, std::int64_t{matrix.columns} + 1, 0);
  for (std::int32_t k = 0; k < result.entries; ++k)
    if (matrix.columnIndices[k] + 1 < static_cast<std::uint32_t>(matrix.columns))
      ++ends[matrix.columnIndices[k] + 2];
  for (std::int32_t j = 0; j < matrix.columns; ++j)
    ends[j + 1] += ends[j];
  for (std::int32_t i = 0; i < matrix.rows; ++i)
    for (std::int32_t k = matrix.rowPointers[i]; k < matrix.rowPointers[i + 1]; ++k) {
      std::int32_t const to = ends[matrix.columnIndices[k] + 1]++;
      result.columnIndices[to] = static_cast<std::uint32_t>(i);
      result.values[to] = matrix.values[k];
    }
  return result;
}

// Reading

/// Receives the values in the order of the file and keeps those that are not zeros, as compressed columns.
class ColumnCollector {
public:
  ColumnCollector(std::int32_t rows, std::int32_t columns) : m_rows(rows) {
    AllocateRowPointers(m_entries, columns, rows);
    m_entries.rowPointers[0] = 0;
  }

  /// Returns false when there are more entries than an int counts.
  bool Add(std::span<double const> values) {
    while (!values.empty()) {
      auto const inColumn = std::min(values.size(), static_cast<std::size_t>(m_rows - m_row));
      EnsureCapacity(static_cast<std::int64_t>(inColumn));
      m_count = Keep(values.first(inColumn));
      if (m_count > INT_MAX) return false;
      values = values.subspan(inColumn);
      m_row += static_cast<std::int32_t>(inColumn);
      if (m_row == m_rows) {
        m_row = 0;
        m_entries.rowPointers[++m_column] = static_cast<std::int32_t>(m_count);
      }
    }
    return true;
  }

  CompressedRows Finish() const { return Transposed(m_entries.View()); }

private:
  void EnsureCapacity(std::int64_t more) {
    if (m_capacity - m_count >= more) return;
    m_capacity = std::max(m_count + more, m_capacity + m_capacity / 2);
    ResizeEntries(m_entries, m_capacity);
  }

  /// Appends the values that are not zeros and returns the number of entries. Writes every value, and the
  /// next value overwrites a zero: no branch can be mispredicted.
  std::int64_t Keep(std::span<double const> values) {
    std::uint32_t* const rows = m_entries.columnIndices.get();
    double* const kept = m_entries.values.get();
    std::int64_t count = m_count;
    auto row = static_cast<std::uint32_t>(m_row);
    for (double const value : values) {
      rows[count] = row++;
      kept[count] = value;
      count += std::abs(value) > largestZero ? 1 : 0;
    }
    return count;
  }

  std::int32_t m_rows;
  std::int32_t m_row = 0;    ///< row of the next value
  std::int32_t m_column = 0; ///< column of the next value
  CompressedRows m_entries;  ///< the transpose
  std::int64_t m_count = 0;
  std::int64_t m_capacity = 0;
};

CompressedRows ReadValues(FileInput& file, std::int32_t rows, std::int32_t columns) {
  auto const window = mem_MakeArray<double>(windowLength);
  ColumnCollector collector(rows, columns);
  for (std::int64_t left = std::int64_t{rows} * columns; left > 0;) {
    std::int64_t const count = std::min(left, windowLength);
    std::int64_t const offset = file.Offset();
    file.Read(window.get(), count, "values");
    if (!collector.Add({window.get(), static_cast<std::size_t>(count)}))
      file.Fail(offset, "at most 2147483647 values that are not zero expected, found more");
    left -= count;
  }
  return collector.Finish();
}

// Writing

/// Writes all values of the matrix whose transpose is `byColumns`, column by column through a buffer.
void WriteImage(FileOutput& file, CompressedRows const& byColumns, std::int32_t rows, std::int32_t columns) {
  auto const window = mem_MakeArray<double>(windowLength);
  std::int32_t column = 0;
  std::int32_t entry = 0;
  std::int64_t const cells = std::int64_t{rows} * columns;
  for (std::int64_t first = 0; first < cells; first += windowLength) {
    std::int64_t const end = std::min(first + windowLength, cells);
    std::fill_n(window.get(), end - first, 0.0);
    for (; entry < byColumns.entries; ++entry) {
      while (entry == byColumns.rowPointers[column + 1])
        ++column;
      std::int64_t const cell = std::int64_t{column} * rows + byColumns.columnIndices[entry];
      if (cell >= end) break;
      window[cell - first] = byColumns.values[entry];
    }
    file.Write(window.get(), end - first);
  }
}

} // namespace

CompressedRows ReadDenseBinary(char const* path) {
  FileInput file(path);
  DenseHeader header{};
  file.Read(&header, 1, "headers");
  if (header.rows < 0)
    file.Fail(0, "a number of rows of at least 0 expected, found " + std::to_string(header.rows));
  if (header.columns < 0)
    file.Fail(4, "a number of columns of at least 0 expected, found " + std::to_string(header.columns));
  std::int64_t const cells = std::int64_t{header.rows} * header.columns;
  file.Require(cells, sizeof(double), "values");
  if (header.columns == 0 && header.rows > mostRowsWithoutColumns)
    file.Fail(0, "at most " + std::to_string(mostRowsWithoutColumns) +
                     " rows for a matrix without columns expected, found " + std::to_string(header.rows));
  CompressedRows content;
  if (cells > 0) {
    content = ReadValues(file, header.rows, header.columns);
  } else {
    AllocateRowPointers(content, header.rows, header.columns);
    std::fill_n(content.rowPointers.get(), std::int64_t{header.rows} + 1, 0);
  }
  return content;
}

void WriteDenseBinary(char const* path, CompressedRowsView const& matrix) {
  auto const cells = static_cast<std::uint64_t>(matrix.rows) * static_cast<std::uint64_t>(matrix.columns);
  FileOutput file(path, FileOutput::Existing::KeepTail);
  // The header is as long as two values. A size beyond 64 bits becomes the largest one.
  file.RequireSpace(mem_ArrayBytes(static_cast<std::int64_t>(cells) + 2, sizeof(double)));
  CompressedRows const byColumns = cells > 0 ? Transposed(matrix) : CompressedRows();
  DenseHeader const header{matrix.rows, matrix.columns, matrix.rows, matrix.columns};
  file.Write(&header, 1);
  WriteImage(file, byColumns, matrix.rows, matrix.columns);
  file.Close();
}

} // namespace orx
