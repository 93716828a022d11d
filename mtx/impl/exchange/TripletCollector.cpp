#include "mtx/impl/exchange/TripletCollector.h"

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
    if (m_end == m_room) MakeRoom();
    m_isAscending = m_isAscending && (m_end == m_ordered.nonzeros || m_ordered.columns[m_end - 1] < t.column);
    m_ordered.columns[m_end] = t.column;
    m_ordered.values[m_end++] = t.value;
  }
}

void TripletCollector::BeginRow(std::uint32_t row) {
  EndRow();
  m_rowStarts.push_back({row, m_ordered.nonzeros});
}

/// Brings the open row into its final form.
void TripletCollector::EndRow() {
  std::int32_t const begin = m_ordered.nonzeros;
  if (m_isAscending) {
    m_ordered.nonzeros = m_end;
  } else {
    m_rowColumns.assign(m_ordered.columns.get() + begin, m_ordered.columns.get() + m_end);
    m_rowValues.assign(m_ordered.values.get() + begin, m_ordered.values.get() + m_end);
    m_ordered.AppendSorted(m_rowColumns, m_rowValues.data(), m_sortScratch);
    m_end = m_ordered.nonzeros;
    m_isAscending = true;
  }
}

void TripletCollector::MakeRoom() {
  std::int64_t const room = std::max<std::int64_t>(1 << 16, std::int64_t{m_room} * 2);
  m_room = static_cast<std::int32_t>(std::min<std::int64_t>(room, INT_MAX));
  m_ordered.Resize(m_room);
}

CompressedRows TripletCollector::Finish(std::int32_t rows, std::int32_t columns) {
  EndRow();
  return m_rest.Count() == 0 ? FinishOrdered(rows) : FinishUnordered(rows, columns);
}

CompressedRows TripletCollector::FinishOrdered(std::int32_t rows) {
  CompressedRows result;
  result.rowPointers = mem_MakeArray<std::int32_t>(std::int64_t{rows} + 1);
  std::int32_t* next = result.rowPointers.get();
  // Row pointers up to a row that begins at `start` are `start`, as the rows between have no entries.
  for (RowStart const& r : m_rowStarts) {
    std::int32_t* const end = result.rowPointers.get() + r.row + 1;
    std::fill(next, end, r.start);
    next = end;
  }
  std::fill(next, result.rowPointers.get() + rows + 1, m_ordered.nonzeros);
  if (m_ordered.nonzeros == 0) return result;
  m_ordered.Resize(m_ordered.nonzeros);
  result.columns = std::move(m_ordered.columns);
  result.values = std::move(m_ordered.values);
  result.nonzeros = m_ordered.nonzeros;
  return result;
}

CompressedRows TripletCollector::FinishUnordered(std::int32_t rows, std::int32_t columns) {
  TripletCompressor compressor(rows, columns, m_ordered.nonzeros + m_rest.Count());
  m_rowStarts.push_back({0, m_ordered.nonzeros});
  for (std::size_t r = 0; r + 1 < m_rowStarts.size(); ++r)
    for (std::int32_t k = m_rowStarts[r].start; k < m_rowStarts[r + 1].start; ++k) {
      ORXSrvSparseMatrixEntry const triplet{m_rowStarts[r].row, m_ordered.columns[k], m_ordered.values[k]};
      compressor.Add({&triplet, 1});
    }
  m_ordered.columns.reset();
  m_ordered.values.reset();
  compressor.AddAndDrop(m_rest);
  return compressor.Compress();
}

} // namespace orx
