#include "tools/mpi/Panels.h"

#include <algorithm>

namespace orx::mpi {
namespace {

/// The lists of all ranks, on the root; one after the other.
std::vector<std::vector<int>> GatherLists(std::vector<int> const& own, Ranks const& ranks) {
  constexpr int tag = 1;
  auto const length = static_cast<int>(own.size());
  std::vector<int> const lengths = ranks.Gathered(length);
  std::vector<std::vector<int>> lists(static_cast<std::size_t>(ranks.IsRoot() ? ranks.Count() : 0));
  if (!ranks.IsRoot()) {
    MPI_Send(own.data(), length, MPI_INT, 0, tag, ranks.Communicator());
    return lists;
  }
  lists[0] = own;
  for (int rank = 1; rank < ranks.Count(); ++rank) {
    lists[rank].resize(static_cast<std::size_t>(lengths[rank]));
    MPI_Recv(lists[rank].data(), lengths[rank], MPI_INT, rank, tag, ranks.Communicator(), MPI_STATUS_IGNORE);
  }
  return lists;
}

/// The columns of a list that a panel has, as places in the list.
Range PlacesIn(std::vector<int> const& columns, Range panel) {
  auto const first = std::ranges::lower_bound(columns, panel.first) - columns.begin();
  auto const end = std::ranges::lower_bound(columns, panel.End()) - columns.begin();
  return {static_cast<int>(first), static_cast<int>(end - first)};
}

class PanelGatherer {
public:
  PanelGatherer(LocalPart const& part, int rows, Ranks const& ranks)
      : m_part(part), m_rows(rows), m_ranks(ranks), m_rowsOf(GatherLists(part.rows, ranks)),
        m_columnsOf(GatherLists(part.columns, ranks)) {}

  /// All values of the panel, on the root.
  double const* Gather(Range panel) {
    PackOwn(panel);
    auto const length = static_cast<int>(m_packed.size());
    if (!m_ranks.IsRoot()) {
      MPI_Send(m_packed.data(), length, MPI_DOUBLE, 0, 0, m_ranks.Communicator());
      return nullptr;
    }
    m_panel.resize(static_cast<std::size_t>(m_rows) * panel.count);
    Place(0, panel);
    for (int rank = 1; rank < m_ranks.Count(); ++rank) {
      std::size_t const places = m_rowsOf[rank].size() * PlacesIn(m_columnsOf[rank], panel).count;
      m_packed.resize(places);
      MPI_Recv(m_packed.data(), static_cast<int>(places), MPI_DOUBLE, rank, 0, m_ranks.Communicator(),
               MPI_STATUS_IGNORE);
      Place(rank, panel);
    }
    return m_panel.data();
  }

private:
  void PackOwn(Range panel) {
    Range const places = PlacesIn(m_part.columns, panel);
    m_packed.clear();
    for (int j = places.first; j < places.End(); ++j) {
      double const* const column = m_part.values + j * m_part.lead;
      m_packed.insert(m_packed.end(), column, column + m_part.rows.size());
    }
  }

  /// Puts the packed values of a rank where they belong.
  void Place(int rank, Range panel) {
    std::vector<int> const& rows = m_rowsOf[rank];
    Range const places = PlacesIn(m_columnsOf[rank], panel);
    double const* from = m_packed.data();
    for (int j = places.first; j < places.End(); ++j) {
      double* const column =
          m_panel.data() + static_cast<std::int64_t>(m_columnsOf[rank][j] - panel.first) * m_rows;
      for (int const row : rows)
        column[row] = *from++;
    }
  }

  LocalPart const& m_part;
  int m_rows;
  Ranks const& m_ranks;
  std::vector<std::vector<int>> m_rowsOf, m_columnsOf; ///< of each rank, on the root
  std::vector<double> m_packed, m_panel;
};

} // namespace

void ForEachPanel(LocalPart const& part, int rows, int columns, Ranks const& ranks,
                  std::function<void(int, int, double const*)> const& write, std::int64_t most) {
  if (rows == 0) return;
  PanelGatherer gatherer(part, rows, ranks);
  auto const width = static_cast<int>(std::clamp<std::int64_t>(most / rows, 1, std::max(columns, 1)));
  for (int first = 0; first < columns; first += width) {
    Range const panel{first, std::min(width, columns - first)};
    double const* const values = gatherer.Gather(panel);
    ranks.OnRoot([&] { write(panel.first, panel.count, values); });
  }
}

} // namespace orx::mpi
