#include "tools/mpi/SplitRows.h"

#include "tools/mpi/Exchange.h"

#include "tools/terminal/Text.h"

#include <limits>
#include <memory>
#include <utility>

namespace orx::mpi {
namespace {

using tool::ExitCode;
using tool::Format;
using tool::ToolError;

/// Where the mirrored entries of a row come, so that columns ascend without sorting if the file holds one
/// triangle with ascending columns:
///
///     Lower   stored | diagonal | mirrored, from the rows below
///     Upper   mirrored, from the rows above | diagonal | stored
///     Other   diagonal | mirrored | stored, to be sorted
enum class Triangle : std::uint8_t { Lower, Upper, Other };

Triangle TriangleOf(RowShare const& share, Ranks const& ranks) {
  bool isLower = true, isUpper = true, ascends = true;
  int rowBefore = -1, columnBefore = -1;
  ForEachStored(share, [&](int ownRow, int column, double) {
    int const row = share.own.first + ownRow;
    isLower = isLower && column < row;
    isUpper = isUpper && column > row;
    ascends = ascends && (row != rowBefore || column > columnBefore);
    rowBefore = row;
    columnBefore = column;
  });
  if (ranks.AreAll(isLower && ascends)) return Triangle::Lower;
  return ranks.AreAll(isUpper && ascends) ? Triangle::Upper : Triangle::Other;
}

/// A block under construction: each row has a part for stored, one for mirrored entries, and its diagonal.
class BlockBuilder {
public:
  /// `diagonals` is the number of rows again if each has an entry for its diagonal, else 0.
  BlockBuilder(int rows, int diagonals) : m_stored(rows), m_mirrored(rows), m_diagonal(diagonals) {}

  void CountStored(int row) { ++m_stored[row]; }
  void CountMirrored(int row) { ++m_mirrored[row]; }

  /// After counting: makes room for all entries. More than PETSc's integers count are a ToolError.
  void Place(Triangle triangle) {
    auto const rows = static_cast<int>(m_stored.Length());
    std::int64_t total = 0;
    for (int row = 0; row < rows; ++row)
      total += std::int64_t{m_stored[row]} + m_mirrored[row];
    total += m_diagonal.Length();
    if (total > std::numeric_limits<PetscInt>::max())
      throw ToolError(ExitCode::Failure,
                      Format("a rank has %lld entries, PETSc counts up to %d here; expected more ranks",
                             static_cast<long long>(total), std::numeric_limits<PetscInt>::max()));
    m_block = {PagedArray<PetscInt>(rows + 1), PagedArray<PetscInt>(total), PagedArray<double>(total)};
    for (int row = 0; row < rows; ++row)
      PlaceRow(row, triangle);
  }

  void PutStored(int row, int column, double value) { Put(m_stored[row]++, column, value); }
  void PutMirrored(int row, int column, double value) { Put(m_mirrored[row]++, column, value); }
  void PutDiagonal(int row, double value) { Put(m_diagonal[row], row, value); }

  /// After all entries are put: sorts the rows that need it, and sums entries at one position.
  SplitRows::Block Finished() {
    PetscInt end = 0;
    for (std::int64_t row = 0; row < m_stored.Length(); ++row) {
      PetscInt const begin = m_block.pointers[row];
      PetscInt const length = m_block.pointers[row + 1] - begin;
      m_block.pointers[row] = end;
      end += IsOrdered(begin, length) ? MoveRow(begin, length, end) : SortRow(begin, length, end);
    }
    m_block.pointers[m_stored.Length()] = end;
    return std::move(m_block);
  }

private:
  void PlaceRow(int row, Triangle triangle) {
    PetscInt const stored = m_stored[row], mirrored = m_mirrored[row];
    PetscInt const diagonals = m_diagonal.Length() > 0 ? 1 : 0;
    PetscInt const first = m_block.pointers[row];
    PetscInt const last = first + stored + mirrored + diagonals;
    m_block.pointers[row + 1] = last;
    m_stored[row] = triangle == Triangle::Lower ? first : last - stored;
    m_mirrored[row] = triangle == Triangle::Lower   ? last - mirrored
                      : triangle == Triangle::Upper ? first
                                                    : first + diagonals;
    if (diagonals > 0)
      m_diagonal[row] = triangle == Triangle::Lower   ? first + stored
                        : triangle == Triangle::Upper ? first + mirrored
                                                      : first;
  }

  void Put(PetscInt at, int column, double value) {
    m_block.columns[at] = column;
    m_block.values[at] = value;
  }

  bool IsOrdered(PetscInt begin, PetscInt length) const {
    for (PetscInt k = begin + 1; k < begin + length; ++k)
      if (m_block.columns[k] <= m_block.columns[k - 1]) return false;
    return true;
  }

  PetscInt MoveRow(PetscInt begin, PetscInt length, PetscInt to) {
    if (begin == to) return length;
    std::copy_n(m_block.columns.Data() + begin, length, m_block.columns.Data() + to);
    std::copy_n(m_block.values.Data() + begin, length, m_block.values.Data() + to);
    return length;
  }

  /// Returns the number of entries that are left.
  PetscInt SortRow(PetscInt begin, PetscInt length, PetscInt to) {
    m_row.clear();
    for (PetscInt k = begin; k < begin + length; ++k)
      m_row.emplace_back(m_block.columns[k], m_block.values[k]);
    std::ranges::stable_sort(m_row, {}, &std::pair<PetscInt, double>::first);
    PetscInt end = to;
    for (auto const& [column, value] : m_row) {
      if (end > to && m_block.columns[end - 1] == column)
        m_block.values[end - 1] += value;
      else
        Put(end++, column, value);
    }
    return end - to;
  }

  PagedArray<PetscInt> m_stored;   ///< first the number in each row, then the place of its next one
  PagedArray<PetscInt> m_mirrored; ///< the same of mirrored entries
  PagedArray<PetscInt> m_diagonal; ///< the place of each row's diagonal
  SplitRows::Block m_block;
  std::vector<std::pair<PetscInt, double>> m_row;
};

/// An entry on its way to the rank that has its row.
struct MirroredEntry {
  std::int32_t row;
  std::int32_t column;
  double value;
};

class Splitter {
public:
  Splitter(RowShare share, Ranks const& ranks, std::int64_t most)
      : m_share(std::move(share)), m_ranks(ranks), m_round(RecordsOfRound(ranks, most)),
        m_ownColumns(ranks.OwnShare(m_share.columns)),
        m_inside(m_share.own.count, m_share.isSymmetric ? m_share.own.count : 0),
        m_outside(m_share.own.count, 0) {}

  SplitRows Split() {
    if (m_share.isSymmetric) m_triangle = TriangleOf(m_share, m_ranks);
    Count();
    if (m_share.isSymmetric) CountForeign();
    m_ranks.OnEach([&] {
      m_inside.Place(m_triangle);
      m_outside.Place(m_triangle);
    });
    if (m_share.isSymmetric)
      FillSymmetric();
    else
      FillGeneral();
    SplitRows rows;
    m_ranks.OnEach([&] {
      rows = {m_share.rows, m_share.columns,     m_share.own,
              m_ownColumns, m_inside.Finished(), m_outside.Finished()};
    });
    return rows;
  }

private:
  int Owner(int row) const { return m_ranks.OwnerOf(row, m_share.rows); }

  void Count() {
    ForEachStored(m_share, [&](int row, int column, double) {
      bool const isInside = m_ownColumns.Has(column);
      (isInside ? m_inside : m_outside).CountStored(row);
      if (m_share.isSymmetric && isInside) m_inside.CountMirrored(column - m_ownColumns.first);
    });
  }

  /// Mirrored entries that others will send, all of them outside: their columns are rows of the others.
  void CountForeign() {
    auto piece = m_share.pieces.begin();
    std::int64_t next = 0;
    Exchange<std::int32_t>(
        m_ranks,
        [&](Outbox<std::int32_t>& outbox) {
          std::int64_t left = m_round;
          for (; piece != m_share.pieces.end(); ++piece, next = 0)
            for (; next < piece->Entries(); ++next) {
              int const column = piece->columns[next];
              if (m_ownColumns.Has(column)) continue;
              if (left-- == 0) return true;
              outbox[static_cast<std::size_t>(Owner(column))].push_back(column);
            }
          return false;
        },
        [&](std::int32_t row) { m_outside.CountMirrored(row - m_share.own.first); });
  }

  void FillGeneral() {
    TakenEntries entries(m_share);
    entries.Take(m_share.Entries(), [&](int row, int column, double value) {
      if (m_ownColumns.Has(column))
        m_inside.PutStored(row, column - m_ownColumns.first, value);
      else
        m_outside.PutStored(row, column, value);
    });
  }

  void FillSymmetric() {
    TakenEntries entries(m_share);
    Exchange<MirroredEntry>(
        m_ranks,
        [&](Outbox<MirroredEntry>& outbox) {
          std::int64_t left = m_round;
          while (left > 0 && entries.HasNext())
            entries.Take(left, [&](int row, int column, double value) {
              left -= PutBoth(row, column, value, outbox) ? 1 : 0;
            });
          if (!entries.HasNext()) PutDiagonalsBefore(m_share.own.count);
          return entries.HasNext();
        },
        [&](MirroredEntry const& e) { m_outside.PutMirrored(e.row - m_share.own.first, e.column, e.value); });
  }

  /// Row after row, so that memory is taken as rows are filled.
  void PutDiagonalsBefore(int endRow) {
    for (; m_nextDiagonal < endRow; ++m_nextDiagonal)
      m_inside.PutDiagonal(m_nextDiagonal, m_share.diagonal[m_nextDiagonal]);
  }

  /// Returns true when the mirrored entry is another rank's.
  bool PutBoth(int row, int column, double value, Outbox<MirroredEntry>& outbox) {
    PutDiagonalsBefore(row + 1);
    if (m_ownColumns.Has(column)) {
      m_inside.PutStored(row, column - m_ownColumns.first, value);
      m_inside.PutMirrored(column - m_ownColumns.first, row, value);
      return false;
    }
    m_outside.PutStored(row, column, value);
    outbox[static_cast<std::size_t>(Owner(column))].push_back({column, m_share.own.first + row, value});
    return true;
  }

  RowShare m_share;
  Ranks const& m_ranks;
  std::int64_t const m_round;
  Range const m_ownColumns;
  BlockBuilder m_inside, m_outside;
  Triangle m_triangle = Triangle::Other;
  int m_nextDiagonal = 0;
};

PetscErrorCode DeleteRows(void* rows) {
  delete static_cast<SplitRows*>(rows);
  return 0;
}

} // namespace

SplitRows Split(RowShare share, Ranks const& ranks, std::int64_t most) {
  return Splitter(std::move(share), ranks, most).Split();
}

Handle<Mat> MakeMatrix(SplitRows rows, Ranks const& ranks) {
  auto owned = std::make_unique<SplitRows>(std::move(rows));
  SplitRows& r = *owned;
  Handle<PetscContainer> owner;
  Check(PetscContainerCreate(ranks.Communicator(), owner.Receive()));
  Check(PetscContainerSetPointer(owner.Get(), owned.get()));
  Check(PetscContainerSetUserDestroy(owner.Get(), DeleteRows));
  owned.release(); // NOLINT(bugprone-unused-return-value): the container has it
  Handle<Mat> matrix;
  Check(MatCreateMPIAIJWithSplitArrays(ranks.Communicator(), r.own.count, r.ownColumns.count, r.rows,
                                       r.columns, r.inside.pointers.Data(), r.inside.columns.Data(),
                                       r.inside.values.Data(), r.outside.pointers.Data(),
                                       r.outside.columns.Data(), r.outside.values.Data(), matrix.Receive()));
  Check(PetscObjectCompose(reinterpret_cast<PetscObject>(matrix.Get()), "orx rows",
                           reinterpret_cast<PetscObject>(owner.Get())));
  return matrix;
}

} // namespace orx::mpi
