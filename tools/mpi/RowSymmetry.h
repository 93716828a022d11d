#pragma once

#include "tools/mpi/SplitRows.h"

#include "tools/numerics/Symmetry.h"

#include "mtx/ORXSrvSparseMatrixEntry.h"

#include <cstdint>
#include <optional>

namespace orx::mpi {

/// What one look at all entries of all ranks tells. Equal on all ranks.
struct EntryScan {
  std::int64_t entries = 0;
  std::int64_t lower = 0, diagonal = 0, upper = 0;
  std::int64_t notFinite = 0;
  std::optional<ORXSrvSparseMatrixEntry> firstNotFinite;      ///< by rows, then columns
  std::optional<ORXSrvSparseMatrixEntry> firstBesideDiagonal; ///< that is not 0
  /// Two sums over the entries beside the diagonal that are not 0, which are equal when each has a mirrored
  /// entry of the same value, and by a chance of 1 to 2^64 when one has not.
  std::uint64_t sumOfEntries = 0, sumOfMirrored = 0;

  bool AreMirrored() const noexcept { return notFinite == 0 && sumOfEntries == sumOfMirrored; }
};

/// Collective, as the functions below are.
EntryScan Scan(SplitRows const& rows, Ranks const& ranks);

/// What tool::MeasureSymmetry says of the whole matrix. Only when the scan shows that it is not exactly
/// symmetric, each entry goes to the rank that has the row below the diagonal, to be compared: 24 bytes for
/// each one beside the diagonal meanwhile.
tool::Symmetry MeasureSymmetry(SplitRows const& rows, EntryScan const& scan, Ranks const& ranks);

/// The symmetric matrix whose mirrored entries are the means of those of a square one.
SplitRows Averaged(SplitRows rows, Ranks const& ranks);

} // namespace orx::mpi
