#include "tools/mpi/OwnColumns.h"

#include <numeric>

namespace orx::mpi {

OwnColumns::OwnColumns(int ownRows, int count, Ranks const& ranks)
    : m_ranks(ranks), m_columns(ownRows, count), m_counts(ranks.Gathered(ownRows)), m_first(m_counts.size()) {
  std::exclusive_scan(m_counts.begin(), m_counts.end(), m_first.begin(), 0);
}

void OwnColumns::TakeFromRoot(tool::Columns const& all) {
  for (int j = 0; j < Count(); ++j)
    MPI_Scatterv(m_ranks.IsRoot() ? all.Column(j) : nullptr, m_counts.data(), m_first.data(), MPI_DOUBLE,
                 Column(j), Rows(), MPI_DOUBLE, 0, m_ranks.Communicator());
}

tool::Columns OwnColumns::GatheredOnRoot() const {
  tool::Columns all;
  m_ranks.OnRoot([&] { all = tool::Columns(m_first.back() + m_counts.back(), Count()); });
  for (int j = 0; j < Count(); ++j)
    MPI_Gatherv(Column(j), Rows(), MPI_DOUBLE, m_ranks.IsRoot() ? all.Column(j) : nullptr, m_counts.data(),
                m_first.data(), MPI_DOUBLE, 0, m_ranks.Communicator());
  return all;
}

} // namespace orx::mpi
