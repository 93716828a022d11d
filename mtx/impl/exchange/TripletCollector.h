#pragma once

#include "core/cow_List.h"
#include "mtx/CompressedRows.h"
#include "mtx/ORXSrvSparseMatrixEntry.h"

#include <cstdint>
#include <span>
#include <vector>

namespace orx {

/// Collects triplets whose number and shape are not known beforehand, as those of a file.
///
/// As long as rows ascend, as in most files they do, each row is compressed at once and nothing else is kept:
/// memory that is never touched is the fastest. From the first row that steps back, triplets are kept as they
/// are, and the rows before count as triplets too. Equal positions are summed in the order they came.
class TripletCollector {
public:
  void Add(std::span<ORXSrvSparseMatrixEntry const> triplets);
  /// The matrix of all triplets, whose rows are below `rows` and columns below `columns`; they are used up.
  CompressedRows Finish(std::int32_t rows, std::int32_t columns);

private:
  /// Where a row with entries begins.
  struct RowStart {
    std::uint32_t row;
    std::int32_t start;
  };

  void BeginRow(std::uint32_t row);
  void EndRow();
  void MakeRoom();
  CompressedRows FinishOrdered(std::int32_t rows, std::int32_t columns);
  CompressedRows FinishUnordered(std::int32_t rows, std::int32_t columns);

  CompressedRows m_ordered; ///< without row pointers
  std::vector<RowStart> m_rowStarts;
  std::int32_t m_end = 0; ///< behind the entries of the open row, which begin at m_ordered.entries
  std::int32_t m_room = 0;
  bool m_isAscending = true; ///< the open row's columns, so far
  cow_List<ORXSrvSparseMatrixEntry> m_rest;
  std::vector<std::uint32_t> m_rowColumns; ///< scratch for a row out of order
  std::vector<double> m_rowValues;
  std::vector<std::uint64_t> m_sortScratch;
};

} // namespace orx
