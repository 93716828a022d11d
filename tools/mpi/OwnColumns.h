#pragma once

#include "tools/mpi/Ranks.h"

#include "tools/numerics/StaticProblem.h"

#include <vector>

namespace orx::mpi {

/// The rows that this rank has of columns of doubles, one after the other. The rows of the ranks follow one
/// another and need not be equal shares.
class OwnColumns {
public:
  OwnColumns(int ownRows, int count, Ranks const& ranks);

  int Rows() const noexcept { return m_columns.rows; }
  int Count() const noexcept { return m_columns.count; }
  double* Column(int j) { return m_columns.Column(j); }
  double const* Column(int j) const { return m_columns.Column(j); }

  /// Gives each rank its rows of what the root has. Collective, as the next one.
  void TakeFromRoot(tool::Columns const& all);
  /// All rows on the root; elsewhere nothing.
  tool::Columns GatheredOnRoot() const;

private:
  Ranks const& m_ranks;
  tool::Columns m_columns;
  std::vector<int> m_counts, m_first; ///< rows of each rank, and of those before it
};

} // namespace orx::mpi
