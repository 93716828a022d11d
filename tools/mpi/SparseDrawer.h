#pragma once

#include "tools/mpi/ParallelFile.h"
#include "tools/mpi/RowShare.h"

#include <string>

namespace orx::mpi {

/// Where a sparse matrix lies in a database.
struct SparsePlace {
  std::string drawer; ///< "/context_0/distribution_1/drawer"
  int rows = 0;
  int columns = 0;
  bool isSymmetric = false;
};

/// Each rank gets its rows of a sparse drawer. Arrays of other lengths than they should have, row pointers
/// that decrease, columns that the matrix does not have, and an array that does not have the checksum it was
/// written with, are a ToolError of all ranks with file, array, expected and found. Collective.
/// `piece` is the number of entries that are read at a time.
RowShare ReadSparseDrawer(ParallelFile const& file, SparsePlace const& place, Ranks const& ranks,
                          std::int64_t piece = 1 << 19);

} // namespace orx::mpi
