#pragma once

#include "core/cow_List.h"
#include "mtx/CompressedRows.h"
#include "mtx/ORXSrvSparseMatrixEntry.h"

#include <cstdint>
#include <span>
#include <vector>

namespace orx {

/// Collects triplets whose number and dimensions are not known beforehand, as of a file that is read.
///
/// As long as rows ascend, as in most files, each row is compressed at once and only the compressed row is
/// kept. From the first row that does not ascend, triplets are kept uncompressed, and Finish treats the
/// compressed rows as triplets too. Values at equal positions are summed in the order of Add.
class TripletCollector {
public:
  void Add(std::span<ORXSrvSparseMatrixEntry const> triplets);
  /// Returns the matrix of all triplets, and drops them. REQUIRES rows below `rows` and columns below
  /// `columns`.
  CompressedRows Finish(std::int32_t rows, std::int32_t columns);

private:
  /// A row with entries, and the position of its first entry.
  struct RowStart {
    std::uint32_t row;
    std::int32_t start;
  };

  void BeginRow(std::uint32_t row);
  void EndRow();
  void Enlarge();
  CompressedRows FinishOrdered(std::int32_t rows, std::int32_t columns);
  CompressedRows FinishUnordered(std::int32_t rows, std::int32_t columns);

  CompressedRows m_ordered; ///< compressed rows without row pointers
  std::vector<RowStart> m_rowStarts;
  std::int32_t m_end = 0; ///< end of the open row, which begins at m_ordered.entries
  std::int32_t m_capacity = 0;
  bool m_isAscending = true; ///< true while the columns of the open row ascend
  cow_List<ORXSrvSparseMatrixEntry> m_rest;
  std::vector<std::uint32_t> m_rowColumns; ///< workspace for a row out of order
  std::vector<double> m_rowValues;
  std::vector<std::uint64_t> m_sortWorkspace;
};

} // namespace orx
