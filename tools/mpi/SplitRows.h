#pragma once

#include "tools/mpi/Petsc.h"
#include "tools/mpi/RowShare.h"

#include <algorithm>
#include <cstdint>

namespace orx::mpi {

/// The rows of this rank in general form, as PETSc holds them: the entries in the columns that belong to this
/// rank too, and the others. In the picture, of the second rank of three:
///
///             . . . . . . . .
///             o o|i i i|o o o        i  inside
///             o o|i i i|o o o        o  outside
///             . . . . . . . .
struct SplitRows {
  /// Compressed rows; columns ascend in each row, each once.
  struct Block {
    PagedArray<PetscInt> pointers; ///< rows + 1
    PagedArray<PetscInt> columns;  ///< inside: from the first own column; outside: of the whole matrix
    PagedArray<double> values;
  };

  int rows = 0; ///< of the whole matrix
  int columns = 0;
  Range own, ownColumns;
  Block inside, outside;

  std::int64_t Entries() const noexcept {
    return std::int64_t{inside.pointers[own.count]} + outside.pointers[own.count];
  }
};

/// Calls visit(row, column, value) for each entry of a row, which is counted from the first of this rank; the
/// positions that `visit` gets are zero-based in the whole matrix. Entries inside come first.
template<class Visit>
void ForEachEntryOfRow(SplitRows const& rows, int row, Visit visit) {
  auto const visitRow = [&](SplitRows::Block const& block, int firstColumn) {
    for (PetscInt k = block.pointers[row]; k < block.pointers[row + 1]; ++k)
      visit(rows.own.first + row, block.columns[k] + firstColumn, block.values[k]);
  };
  visitRow(rows.inside, rows.ownColumns.first);
  visitRow(rows.outside, 0);
}

/// Does the same for all rows of this rank, ascending.
template<class Visit>
void ForEachEntry(SplitRows const& rows, Visit visit) {
  for (int row = 0; row < rows.own.count; ++row)
    ForEachEntryOfRow(rows, row, visit);
}

/// Takes the entries out of the share, piece by piece, so that the matrix is in memory once. Of the symmetric
/// form both triangles come out: mirrored entries go to the ranks whose rows they are in. Entries at one
/// position are summed: the diagonal, mirrored entries, then stored ones. No rank gets more than about `most`
/// of them from others at a time. Collective.
SplitRows Split(RowShare share, Ranks const& ranks, std::int64_t most = 1 << 20);

/// The matrix over these arrays, of type MPIAIJ; it keeps them. Collective.
Handle<Mat> MakeMatrix(SplitRows rows, Ranks const& ranks);

} // namespace orx::mpi
