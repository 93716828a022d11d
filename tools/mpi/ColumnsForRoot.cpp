#include "tools/mpi/ColumnsForRoot.h"

#include "tools/commands/Perform.h"

#include <optional>
#include <vector>

namespace orx::mpi {
namespace {

/// Instead of a column: there are no more requests.
constexpr int done = -1;

class Server {
public:
  Server(Ranks const& ranks, int rows, std::function<double const*(int)> const& own)
      : m_ranks(ranks), m_own(own) {
    for (int rank = 0; rank < ranks.Count(); ++rank) {
      Range const share = ranks.ShareOf(rank, rows);
      m_counts.push_back(share.count);
      m_firsts.push_back(share.first);
    }
    ranks.OnRoot([&] { m_column.resize(static_cast<std::size_t>(rows)); });
  }

  double const* Fetch(int column) {
    m_ranks.Broadcast(column);
    Gather(column);
    return m_column.data();
  }
  void End() {
    int request = done;
    m_ranks.Broadcast(request);
  }
  /// On the other ranks, until End.
  void Answer() {
    for (int request = done;;) {
      m_ranks.Broadcast(request);
      if (request == done) return;
      Gather(request);
    }
  }

private:
  void Gather(int column) {
    MPI_Gatherv(m_own(column), m_counts[static_cast<std::size_t>(m_ranks.Rank())], MPI_DOUBLE,
                m_column.data(), m_counts.data(), m_firsts.data(), MPI_DOUBLE, 0, m_ranks.Communicator());
  }

  Ranks const& m_ranks;
  std::function<double const*(int)> const& m_own;
  std::vector<int> m_counts, m_firsts;
  std::vector<double> m_column; ///< on the root
};

} // namespace

void ServeColumns(Ranks const& ranks, int rows, std::function<double const*(int)> const& own,
                  std::function<void(std::function<double const*(int)> const&)> const& work) {
  Server server(ranks, rows, own);
  std::optional<tool::ToolError> error;
  if (ranks.IsRoot()) {
    error = tool::FailureOf([&] { work([&](int column) { return server.Fetch(column); }); });
    server.End();
  } else {
    server.Answer();
  }
  ranks.OnRoot([&] {
    if (error) throw tool::ToolError(*error);
  });
}

} // namespace orx::mpi
