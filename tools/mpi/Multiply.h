#pragma once

#include "tools/mpi/Ranks.h"

#include <cstdint>
#include <string>

namespace orx::mpi {

struct MultiplyOptions {
  std::string a, b;          ///< matrices of databases: A dense or sparse, B dense
  std::string out;           ///< a database
  bool isTransposed = false; ///< A^T * B instead of A * B

  // What tests make small
  int blockLength = 0;               ///< of dense matrices; 0: by their size
  std::int64_t panelCells = 1 << 21; ///< that go to the root at a time
};

/// Multiplies two matrices of databases and writes the product, a block matrix of type "product" with the
/// labels of A's rows, of its columns for A^T, and of B's columns, into a new database; an older file stays
/// until that is complete. Dense matrices are dealt out in blocks and multiplied by ScaLAPACK; of a sparse A
/// each rank has rows. No rank has more than its shares of A, B and the product, besides a few blocks and, of
/// a sparse A, the rows of B that its entries need. Returns what the command prints, on the root. Collective.
std::string MultiplyText(MultiplyOptions const& options, Ranks const& ranks);

} // namespace orx::mpi
