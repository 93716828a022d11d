#pragma once

#include "tools/mpi/PagedArray.h"
#include "tools/mpi/Ranks.h"

#include <cstdint>
#include <deque>
#include <vector>

namespace orx::mpi {

/// Entries that follow one another in a share of rows. Entries of one row may lie in several pieces.
struct RowPiece {
  PagedArray<std::int32_t> columns; ///< zero-based, of the whole matrix
  PagedArray<double> values;

  explicit RowPiece(std::int64_t entries) : columns(entries), values(entries) {}
  std::int64_t Entries() const noexcept { return columns.Length(); }
};

/// The rows of a sparse matrix that belong to this rank, as a file has them: in general form, or in symmetric
/// form with the diagonal apart and each pair of mirrored entries once, which may be in rows of two ranks.
struct RowShare {
  int rows = 0; ///< of the whole matrix
  int columns = 0;
  Range own;
  bool isSymmetric = false;
  std::vector<std::int32_t> rowPointers; ///< own.count + 1, of this rank's entries, from 0
  std::deque<RowPiece> pieces;
  std::vector<double> diagonal; ///< symmetric form only, own.count values

  std::int64_t Entries() const noexcept { return rowPointers.back(); }
};

/// Calls visit(row, column, value) for each stored entry of the share, row by row. The row is counted from
/// the first of this rank.
template<class Visit>
void ForEachStored(RowShare const& share, Visit visit) {
  int row = 0;
  std::int32_t entry = 0;
  for (RowPiece const& piece : share.pieces)
    for (std::int64_t k = 0; k < piece.Entries(); ++k, ++entry) {
      while (entry >= share.rowPointers[row + 1])
        ++row;
      visit(row, piece.columns[k], piece.values[k]);
    }
}

/// Gives the entries of a share row by row, and drops each piece behind it: who copies the entries needs no
/// memory for two matrices.
class TakenEntries {
public:
  explicit TakenEntries(RowShare& share) : m_share(share) {}

  bool HasNext() const noexcept { return m_entry < m_share.Entries(); }
  /// Calls visit(row, column, value) for the next entries, `most` at most.
  template<class Visit>
  void Take(std::int64_t most, Visit visit) {
    for (; most > 0 && HasNext(); --most, ++m_entry) {
      if (m_inPiece == m_share.pieces.front().Entries()) {
        m_share.pieces.pop_front();
        m_inPiece = 0;
      }
      while (m_entry >= m_share.rowPointers[m_row + 1])
        ++m_row;
      RowPiece const& piece = m_share.pieces.front();
      visit(m_row, piece.columns[m_inPiece], piece.values[m_inPiece]);
      ++m_inPiece;
    }
    if (!HasNext()) m_share.pieces.clear();
  }

private:
  RowShare& m_share;
  int m_row = 0;
  std::int64_t m_entry = 0;
  std::int64_t m_inPiece = 0;
};

} // namespace orx::mpi
