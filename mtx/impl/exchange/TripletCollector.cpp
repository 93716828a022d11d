#include "mtx/impl/exchange/TripletCollector.h"

#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/exchange/TripletCompressor.h"

#include <algorithm>
#include <climits>

namespace orx {

void TripletCollector::Add(std::span<ORXSrvSparseMatrixEntry const> triplets) {
  for (ORXSrvSparseMatrixEntry const& t : triplets) {
    bool const isNewRow = m_rowStarts.empty() || t.row != m_rowStarts.back().row;
    if (m_rest.Count() > 0 || (isNewRow && !m_rowStarts.empty() && t.row < m_rowStarts.back().row)) {
      m_rest.Append(t);
      continue;
    }
    if (isNewRow) BeginRow(t.row);
    if (m_end == m_capacity) Enlarge();
    m_isAscending =
        m_isAscending && (m_end == m_ordered.entries || m_ordered.columnIndices[m_end - 1] < t.column);
    m_ordered.columnIndices[m_end] = t.column;
    m_ordered.values[m_end++] = t.value;
  }
}

void TripletCollector::BeginRow(std::uint32_t row) {
  EndRow();
  m_rowStarts.push_back({row, m_ordered.entries});
}

/// Completes the open row: if its columns do not ascend, sorts them and sums equal ones.
void TripletCollector::EndRow() {
  std::int32_t const begin = m_ordered.entries;
  if (m_isAscending) {
    m_ordered.entries = m_end;
  } else {
    m_rowColumns.assign(m_ordered.columnIndices.get() + begin, m_ordered.columnIndices.get() + m_end);
    m_rowValues.assign(m_ordered.values.get() + begin, m_ordered.values.get() + m_end);
    AppendSorted(m_ordered, m_rowColumns, m_rowValues.data(), m_sortWorkspace);
    m_end = m_ordered.entries;
    m_isAscending = true;
  }
}

void TripletCollector::Enlarge() {
  std::int64_t const capacity = std::max<std::int64_t>(1 << 16, std::int64_t{m_capacity} * 2);
  m_capacity = static_cast<std::int32_t>(std::min<std::int64_t>(capacity, INT_MAX));
  ResizeEntries(m_ordered, m_capacity);
}

CompressedRows TripletCollector::Finish(std::int32_t rows, std::int32_t columns) {
  EndRow();
  return m_rest.Count() == 0 ? FinishOrdered(rows, columns) : FinishUnordered(rows, columns);
}

CompressedRows TripletCollector::FinishOrdered(std::int32_t rows, std::int32_t columns) {
  CompressedRows result;
  AllocateRowPointers(result, rows, columns);
  std::int32_t* next = result.rowPointers.get();
  // Rows between two elements of m_rowStarts are empty: their row pointers are the start of the later one.
  for (RowStart const& r : m_rowStarts) {
    std::int32_t* const end = result.rowPointers.get() + r.row + 1;
    std::fill(next, end, r.start);
    next = end;
  }
  std::fill(next, result.rowPointers.get() + rows + 1, m_ordered.entries);
  if (m_ordered.entries == 0) return result;
  ResizeEntries(m_ordered, m_ordered.entries);
  result.columnIndices = std::move(m_ordered.columnIndices);
  result.values = std::move(m_ordered.values);
  result.entries = result.numberOfNonzeros = m_ordered.entries;
  return result;
}

CompressedRows TripletCollector::FinishUnordered(std::int32_t rows, std::int32_t columns) {
  TripletCompressor compressor(rows, columns, m_ordered.entries + m_rest.Count());
  m_rowStarts.push_back({0, m_ordered.entries});
  for (std::size_t r = 0; r + 1 < m_rowStarts.size(); ++r)
    for (std::int32_t k = m_rowStarts[r].start; k < m_rowStarts[r + 1].start; ++k) {
      ORXSrvSparseMatrixEntry const triplet{m_rowStarts[r].row, m_ordered.columnIndices[k],
                                            m_ordered.values[k]};
      compressor.Add({&triplet, 1});
    }
  m_ordered.columnIndices.reset();
  m_ordered.values.reset();
  compressor.AddAndDrop(m_rest);
  return compressor.Compress();
}

} // namespace orx
