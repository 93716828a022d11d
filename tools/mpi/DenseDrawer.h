#pragma once

#include "tools/mpi/ParallelFile.h"

#include <string>

namespace orx::mpi {

/// Where a dense matrix of doubles lies in a database.
struct DensePlace {
  std::string drawer; ///< "/context_0/distribution_1/drawer"
  int rows = 0;
  int columns = 0;
  bool isSymmetric = false;
};

/// A dense drawer, from which each rank reads the rectangles that it needs.
class DenseDrawer {
public:
  /// A drawer that is smaller than its matrix is a ToolError of all ranks. Collective.
  DenseDrawer(ParallelFile const& file, DensePlace const& place, Ranks const& ranks);

  /// Reads a rectangle by columns, which come `lead` values apart, by this rank alone.
  void Read(Range rows, Range columns, double* to, std::int64_t lead) const;

private:
  void RequireShape() const;
  void ReadBlock(Range rows, Range columns, double* to, std::int64_t lead) const;

  DensePlace m_place;
  StoredArray m_cells;
  std::int64_t m_blockLength; ///< of a symmetric drawer: the rows of a block
};

} // namespace orx::mpi
